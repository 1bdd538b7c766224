#pragma once

#include "platform/IOReturn.hpp"

#include <string>
#include <vector>

namespace platform {

/// Where the causes of a failed open are looked for.
struct OpenFailurePlaces {
    std::string processes = "/proc";
    std::vector<std::string> ruleFolders = {"/etc/udev/rules.d", "/run/udev/rules.d", "/usr/local/lib/udev/rules.d",
                                            "/usr/lib/udev/rules.d", "/lib/udev/rules.d"};
};

/// The file name of this product's udev rule.
inline constexpr const char* kUdevRuleFile = "60-trovik-reset-tool.rules";

/// The device node of a registry path; empty when the device has gone.
std::string deviceNodeOfPath(const std::string& registryPath);

/// Why a device could not be opened, as one line for the log: the node with its owner and mode, whether the udev rule
/// is installed and what to do if not, which program or kernel driver holds the device, whether it has gone.
/// @param registryPath  as IORegistryEntryGetPath gave it
/// Never throws on what it finds. Any thread.
std::string describeOpenFailure(const std::string& registryPath, IOReturn result, const OpenFailurePlaces& places);

/// The same on this system, for Platform.
std::string describeOpenFailure(const std::string& registryPath, IOReturn result);

}  // namespace platform
