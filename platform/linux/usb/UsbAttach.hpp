#pragma once

#include "platform/PropertyList.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

class AsioRunLoops;
struct MatchingDictionary;

/// One attach of a USB device: what its registry entry and its access objects are made from. Any thread.
struct UsbAttach {
    /// What is attached at a folder in sysfs now; nothing when that is no USB device.
    static std::optional<UsbAttach> at(AsioRunLoops& loops, std::string path);

    /// Its folder's name, which is that of the port.
    std::string name() const { return path.substr(path.rfind('/') + 1); }

    /// Identity is compared as numbers.
    bool matches(const MatchingDictionary& matching) const;

    /// False from the moment the device has left, also while another attach has the path.
    bool isPresent() const;

    /// Whether it is the one that the kernel gave these two numbers to.
    bool hasNumbers(std::uint64_t bus, std::uint64_t device) const;

    AsioRunLoops* loops;  ///< theirs are the run loops that deliver what the device has to say
    std::string path;     ///< its folder in sysfs
    std::uint64_t entryId;
    PropertyList::Dictionary properties;  ///< IORegistryEntryCreateCFProperty() gives them, also once it has left
};

}  // namespace platform
