#pragma once

#include "app/TrovikMode/USBRegistryInfo.hpp"

#include <optional>
#include <string>
#include <vector>

namespace twin {

/// A device as the registry shows it, without opening it.
struct Device {
    USBRegistryInfo entry;
    std::string port;     ///< "1-2.3"
    std::string product;  ///< what it calls itself; empty where it does not
};

/// The devices in Trovik mode that are attached now, in the registry's order. Any thread.
/// @return nothing when the registry can't be asked
[[nodiscard]] std::optional<std::vector<Device>> attachedDevices();

}  // namespace twin
