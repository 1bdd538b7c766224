#include "platform/linux/usb/LibusbDevice.hpp"

#include "platform/common/IOServiceList.hpp"
#include "platform/linux/usb/LibusbInterface.hpp"
#include "platform/linux/usb/OpenFailure.hpp"
#include "platform/linux/usb/UsbConnection.hpp"
#include "platform/linux/usb/UsbErrors.hpp"

#include <optional>
#include <utility>
#include <vector>

namespace platform {
namespace {

/// The way to an interface's access object.
class UsbInterfacePlugIn final : public IOCFPlugInInterface {
  public:
    UsbInterfacePlugIn(std::shared_ptr<UsbConnection> connection, UsbInterfaceDescription description)
        : mConnection(std::move(connection)), mDescription(std::move(description)) {}
    IOReturn QueryInterface(std::unique_ptr<IOUSBDeviceInterface>&) override { return kIOReturnUnsupported; }
    IOReturn QueryInterface(std::unique_ptr<IOUSBInterfaceInterface>& interface) override {
        interface = std::make_unique<LibusbInterface>(mConnection, mDescription);
        return kIOReturnSuccess;
    }

  private:
    const std::shared_ptr<UsbConnection> mConnection;
    const UsbInterfaceDescription mDescription;
};

/// An interface of an opened device. Its path is the one that sysfs would give it; it has no id of its own.
class UsbInterfaceService final : public IOService {
  public:
    UsbInterfaceService(std::shared_ptr<UsbConnection> connection, UsbInterfaceDescription description)
        : mConnection(std::move(connection)), mDescription(std::move(description)) {}
    IOReturn IORegistryEntryGetPath(const std::string& plane, std::string& path) override {
        if (plane != kIOServicePlane) return kIOReturnNotFound;
        path = mDescription.path;
        return kIOReturnSuccess;
    }
    IOReturn IORegistryEntryGetRegistryEntryID(std::uint64_t&) override { return kIOReturnUnsupported; }
    IOReturn IORegistryEntryGetName(std::string& name) override {
        name = mDescription.path.substr(mDescription.path.rfind('/') + 1);
        return kIOReturnSuccess;
    }
    std::optional<PropertyList> IORegistryEntryCreateCFProperty(const std::string&) override { return std::nullopt; }
    IOReturn IOCreatePlugInInterfaceForService(IOUserClientType type,
                                               std::unique_ptr<IOCFPlugInInterface>& plugIn) override {
        if (type != IOUserClientType::kIOUSBInterfaceUserClientTypeID) return kIOReturnUnsupported;
        plugIn = std::make_unique<UsbInterfacePlugIn>(mConnection, mDescription);
        return kIOReturnSuccess;
    }

  private:
    const std::shared_ptr<UsbConnection> mConnection;
    const UsbInterfaceDescription mDescription;
};

UsbInterfaceDescription describe(const std::string& devicePath, int configurationValue,
                                 const libusb_interface_descriptor& interface) {
    UsbInterfaceDescription description;
    description.number = interface.bInterfaceNumber;
    const std::string name = devicePath.substr(devicePath.rfind('/') + 1);
    description.path = devicePath + "/" + name + ":" + std::to_string(configurationValue) + "." +
                       std::to_string(interface.bInterfaceNumber);
    // Descriptors that end too early can promise endpoints and have none; libusb hands out the number all the same.
    for (int i = 0; interface.endpoint && i < interface.bNumEndpoints; ++i) {
        const libusb_endpoint_descriptor& endpoint = interface.endpoint[i];
        PipeProperties pipe;
        pipe.direction = endpoint.bEndpointAddress & LIBUSB_ENDPOINT_IN ? kUSBIn : kUSBOut;
        pipe.number = endpoint.bEndpointAddress & LIBUSB_ENDPOINT_ADDRESS_MASK;
        pipe.transferType = endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK;
        pipe.maxPacketSize = endpoint.wMaxPacketSize & 0x07FF;  // above: extra transactions of a microframe
        pipe.interval = endpoint.bInterval;
        description.pipes.push_back(pipe);
    }
    return description;
}

}  // namespace

LibusbDevice::LibusbDevice(UsbAttach attach) : mAttach(std::move(attach)) {}
LibusbDevice::~LibusbDevice() = default;

IOReturn LibusbDevice::USBDeviceOpen() {
    if (mConnection) return kIOReturnExclusiveAccess;
    // A later device on the same port is another one.
    const std::string node = mAttach.isPresent() ? deviceNodeOfPath(mAttach.path) : std::string();
    return node.empty() ? kIOReturnNoDevice : UsbConnection::open(node, *mAttach.loops, mConnection);
}

IOReturn LibusbDevice::USBDeviceClose() {
    if (!mConnection) return kIOReturnNotOpen;
    mConnection.reset();
    return kIOReturnSuccess;
}

IOReturn LibusbDevice::GetConfigurationDescriptorPtr(std::uint8_t index, IOUSBConfigurationDescriptor& descriptor) {
    if (!mConnection) return kIOReturnNotOpen;
    UsbConfiguration configuration;
    const IOReturn result = mConnection->readConfiguration(index, configuration);
    if (configuration) descriptor = {configuration->bConfigurationValue, configuration->bNumInterfaces};
    return result;
}

IOReturn LibusbDevice::SetConfiguration(std::uint8_t configurationValue) {
    if (!mConnection) return kIOReturnNotOpen;
    // Also done where the configuration is active already: it clears what halted an endpoint in an earlier session.
    return mConnection->SetConfiguration(configurationValue);
}

IOReturn LibusbDevice::GetDeviceVendor(std::uint16_t& vendor) {
    return readField(&libusb_device_descriptor::idVendor, vendor);
}

IOReturn LibusbDevice::GetDeviceProduct(std::uint16_t& product) {
    return readField(&libusb_device_descriptor::idProduct, product);
}

IOReturn LibusbDevice::GetDeviceReleaseNumber(std::uint16_t& release) {
    return readField(&libusb_device_descriptor::bcdDevice, release);
}

IOReturn LibusbDevice::readField(std::uint16_t libusb_device_descriptor::*field, std::uint16_t& value) const {
    if (!mConnection) return kIOReturnNotOpen;
    libusb_device_descriptor descriptor{};
    const int result = libusb_get_device_descriptor(mConnection->device(), &descriptor);
    if (result == LIBUSB_SUCCESS) value = descriptor.*field;
    return IOReturnOfLibusb(result);
}

IOReturn LibusbDevice::CreateInterfaceIterator(const IOUSBFindInterfaceRequest& request,
                                               std::unique_ptr<IOIterator>& iterator) {
    if (!mConnection) return kIOReturnNotOpen;
    UsbConfiguration configuration;
    const IOReturn result = mConnection->readConfiguration({}, configuration);
    if (result != kIOReturnSuccess) return result;

    std::vector<std::unique_ptr<IOService>> interfaces;
    for (const auto* interface : firstSettings(*configuration)) {
        if (!request.fits({interface->bInterfaceClass, interface->bInterfaceSubClass, interface->bInterfaceProtocol,
                           interface->bAlternateSetting})) {
            continue;
        }
        interfaces.push_back(std::make_unique<UsbInterfaceService>(
            mConnection, describe(mAttach.path, configuration->bConfigurationValue, *interface)));
    }
    iterator = std::make_unique<IOServiceList>(std::move(interfaces));
    return kIOReturnSuccess;
}

}  // namespace platform
