#pragma once

#include "platform/IOReturn.hpp"
#include "platform/OpenFailureCause.hpp"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// access(2) with the real user's rights: whether a file may be read (R_OK) or written (W_OK).
bool mayAccess(const std::string& file, int mode);

/// Where the causes of a failed open are looked for, and who is asked.
struct OpenFailurePlaces {
    std::string processes = "/proc";
    std::vector<std::string> ruleFolders = {"/etc/udev/rules.d", "/run/udev/rules.d", "/usr/local/lib/udev/rules.d",
                                            "/usr/lib/udev/rules.d", "/lib/udev/rules.d"};
    std::function<bool(const std::string& file, int mode)> mayAccess = platform::mayAccess;
};

/// The file name of this product's udev rule.
inline constexpr const char* kUdevRuleFile = "60-trovik-reset-tool.rules";

/// The path of the rule that udev takes, of those in its folders; empty when there is none.
std::string installedUdevRule(const std::vector<std::string>& folders = OpenFailurePlaces{}.ruleFolders);

/// A node's owner, mode and access list, and what access(2) answers, as sentences; says so when the node is not there.
std::string permissionsText(const std::string& node, const OpenFailurePlaces& places = {});

/// The device node of a registry path; empty when the device has gone.
std::string deviceNodeOfPath(const std::string& registryPath);

/// Why a device could not be opened. Access that was denied is looked at with the node's permissions and the udev rule,
/// a held device with its holders; no other result has anything to do with these.
/// @param registryPath  as IORegistryEntryGetPath gave it
/// @param result        of the open
/// Never throws on what it finds. Any thread.
OpenFailure diagnoseOpenFailure(const std::string& registryPath, IOReturn result, const OpenFailurePlaces& places = {});

}  // namespace platform
