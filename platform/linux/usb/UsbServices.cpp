#include "platform/linux/usb/UsbServices.hpp"

#include "platform/IOUSB.hpp"
#include "platform/linux/usb/LibusbDevice.hpp"

namespace platform {
namespace {

/// The way to a device's access object.
class UsbDevicePlugIn final : public IOCFPlugInInterface {
  public:
    explicit UsbDevicePlugIn(UsbAttach attach) : mAttach(std::move(attach)) {}
    IOReturn QueryInterface(std::unique_ptr<IOUSBDeviceInterface>& device) override {
        device = std::make_unique<LibusbDevice>(mAttach);
        return kIOReturnSuccess;
    }
    IOReturn QueryInterface(std::unique_ptr<IOUSBInterfaceInterface>&) override { return kIOReturnUnsupported; }

  private:
    const UsbAttach mAttach;
};

}  // namespace

IOReturn UsbDeviceService::IORegistryEntryGetPath(const std::string& plane, std::string& path) {
    if (plane != kIOServicePlane) return kIOReturnNotFound;
    if (!mAttach.isPresent()) return kIOReturnNoDevice;
    path = mAttach.path;
    return kIOReturnSuccess;
}

IOReturn UsbDeviceService::IORegistryEntryGetRegistryEntryID(std::uint64_t& entryId) {
    entryId = mAttach.entryId;
    return kIOReturnSuccess;
}

IOReturn UsbDeviceService::IORegistryEntryGetName(std::string& name) {
    name = mAttach.name();
    return kIOReturnSuccess;
}

std::optional<PropertyList> UsbDeviceService::IORegistryEntryCreateCFProperty(const std::string& key) {
    const PropertyList* const value = valueIn(mAttach.properties, key);
    return value ? std::optional(*value) : std::nullopt;
}

IOReturn UsbDeviceService::IOCreatePlugInInterfaceForService(IOUserClientType type,
                                                             std::unique_ptr<IOCFPlugInInterface>& plugIn) {
    if (type != IOUserClientType::kIOUSBDeviceUserClientTypeID) return kIOReturnUnsupported;
    if (!mAttach.isPresent()) return kIOReturnNoDevice;
    plugIn = std::make_unique<UsbDevicePlugIn>(mAttach);
    return kIOReturnSuccess;
}

}  // namespace platform
