#pragma once

#include "platform/IORegistry.hpp"
#include "platform/linux/usb/UsbAttach.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace platform {

/// The registry entry of one attach of a USB device.
class UsbDeviceService final : public IOService {
  public:
    explicit UsbDeviceService(UsbAttach attach) : mAttach(std::move(attach)) {}

    IOReturn IORegistryEntryGetPath(const std::string& plane, std::string& path) override;
    IOReturn IORegistryEntryGetRegistryEntryID(std::uint64_t& entryId) override;
    IOReturn IORegistryEntryGetName(std::string& name) override;
    std::optional<PropertyList> IORegistryEntryCreateCFProperty(const std::string& key) override;
    IOReturn IOCreatePlugInInterfaceForService(IOUserClientType type,
                                               std::unique_ptr<IOCFPlugInInterface>& plugIn) override;

  private:
    const UsbAttach mAttach;
};

}  // namespace platform
