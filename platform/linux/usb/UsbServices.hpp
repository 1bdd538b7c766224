#pragma once

#include "platform/IORegistry.hpp"

#include <cstdint>
#include <memory>
#include <string>

namespace platform {

/// The registry entry of one attach of a USB device.
class UsbDeviceService final : public IOService {
  public:
    /// Null when there is nothing at the path any more.
    static std::unique_ptr<UsbDeviceService> atPath(std::string sysfsPath);

    IOReturn IORegistryEntryGetPath(const std::string& plane, std::string& path) override;
    IOReturn IORegistryEntryGetRegistryEntryID(std::uint64_t& entryId) override;
    IOReturn IOCreatePlugInInterfaceForService(IOUserClientType type,
                                               std::unique_ptr<IOCFPlugInInterface>& plugIn) override;

    std::uint64_t entryId() const { return mEntryId; }

  private:
    UsbDeviceService(std::string sysfsPath, std::uint64_t entryId) : mPath(std::move(sysfsPath)), mEntryId(entryId) {}
    bool isThere() const;

    const std::string mPath;
    const std::uint64_t mEntryId;
};

}  // namespace platform
