#pragma once

#include "platform/IOUSB.hpp"
#include "platform/linux/usb/UsbAttach.hpp"

#include <cstdint>
#include <memory>

struct libusb_device_descriptor;

namespace platform {

class UsbConnection;

/// A USB device over libusb. One thread.
class LibusbDevice final : public IOUSBDeviceInterface {
  public:
    explicit LibusbDevice(UsbAttach attach);
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

    const UsbAttach mAttach;
    std::shared_ptr<UsbConnection> mConnection;  // shared with the interfaces; empty while closed
};

}  // namespace platform
