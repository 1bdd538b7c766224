#include "cli/Devices.hpp"

#include "app/TrovikMode/USBTrovikModeFinderUtils.hpp"
#include "platform/IORegistry.hpp"
#include "platform/Platform.hpp"

#include <memory>
#include <utility>

namespace twin {

std::optional<std::vector<Device>> attachedDevices() {
    std::unique_ptr<platform::IOIterator> iterator;
    if (platform::kIOMasterPortDefault().IOServiceGetMatchingServices(USBTrovikModeFinderUtils::createTMDeviceMatcher(),
                                                                      iterator) != platform::kIOReturnSuccess)
        return std::nullopt;
    std::vector<Device> devices;
    while (const auto entry = iterator->IOIteratorNext()) {
        Device device;
        if (!USBTrovikModeFinderUtils::readEntry(*entry, device.entry)) continue;
        if (entry->IORegistryEntryGetName(device.port) != platform::kIOReturnSuccess) continue;
        const auto product = entry->IORegistryEntryCreateCFProperty(platform::kUSBProductString);
        if (const auto* const name = product ? product->string() : nullptr) device.product = *name;
        devices.push_back(std::move(device));
    }
    return devices;
}

}  // namespace twin
