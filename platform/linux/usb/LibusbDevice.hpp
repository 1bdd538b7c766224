#pragma once

#include "platform/IOUSB.hpp"

#include <cstdint>
#include <memory>
#include <string>

struct libusb_device_descriptor;

namespace platform {

class UsbConnection;

/// A USB device over libusb. One thread.
class LibusbDevice final : public IOUSBDeviceInterface {
  public:
    /// @param entryId  the attach that is meant; a later device on the same port is another one
    LibusbDevice(std::string registryPath, std::uint64_t entryId);
    ~LibusbDevice() override;
    LibusbDevice(const LibusbDevice&) = delete;
    LibusbDevice& operator=(const LibusbDevice&) = delete;

    /// Blocks for up to two seconds while access is denied to a device that has just been attached.
    IOReturn USBDeviceOpen() override;
    IOReturn USBDeviceClose() override;
    IOReturn GetConfigurationDescriptorPtr(std::uint8_t index, IOUSBConfigurationDescriptor& descriptor) override;
    IOReturn SetConfiguration(std::uint8_t configurationValue) override;
    IOReturn GetDeviceVendor(std::uint16_t& vendor) override;
    IOReturn GetDeviceProduct(std::uint16_t& product) override;
    IOReturn GetDeviceReleaseNumber(std::uint16_t& release) override;
    IOReturn CreateInterfaceIterator(const IOUSBFindInterfaceRequest& request,
                                     std::unique_ptr<IOIterator>& iterator) override;

  private:
    IOReturn readField(std::uint16_t libusb_device_descriptor::*field, std::uint16_t& value) const;

    const std::string mPath;
    const std::uint64_t mEntryId;
    std::shared_ptr<UsbConnection> mConnection;  // shared with the interfaces; empty while closed
};

}  // namespace platform
