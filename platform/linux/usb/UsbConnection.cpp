#include "platform/linux/usb/UsbConnection.hpp"

#include "platform/linux/usb/UsbErrors.hpp"
#include "platform/linux/usb/UsbNode.hpp"

#include <algorithm>

namespace platform {

std::vector<const libusb_interface_descriptor*> firstSettings(const libusb_config_descriptor& configuration) {
    std::vector<const libusb_interface_descriptor*> settings;
    for (int i = 0; i < configuration.bNumInterfaces; ++i) {
        if (configuration.interface[i].num_altsetting > 0) settings.push_back(configuration.interface[i].altsetting);
    }
    return settings;
}

IOReturn UsbConnection::open(const std::string& node, AsioRunLoops& loops, std::shared_ptr<UsbConnection>& connection) {
    // make_shared can't reach the constructor.
    std::shared_ptr<UsbConnection> made(new UsbConnection(loops));
    const IOReturn result = made->attach(node);
    if (result == kIOReturnSuccess) connection = std::move(made);
    return result;
}

IOReturn UsbConnection::attach(const std::string& node) {
    IOReturn result = openUsbNode(node, mNode);
    if (result != kIOReturnSuccess) return result;

    // The registry is libudev's business: without discovery a context neither scans the bus nor starts a thread.
    // Once: the option holds for all contexts to come, and libusb sets it without a lock.
    static const int withoutDiscovery = libusb_set_option(nullptr, LIBUSB_OPTION_NO_DEVICE_DISCOVERY);
    if (withoutDiscovery != LIBUSB_SUCCESS) return IOReturnOfLibusb(withoutDiscovery);
    libusb_context* context = nullptr;
    result = IOReturnOfLibusb(libusb_init(&context));
    mContext.reset(context);
    if (result != kIOReturnSuccess) return result;

    libusb_device_handle* handle = nullptr;
    result = IOReturnOfLibusb(libusb_wrap_sys_device(context, mNode.get(), &handle));
    mHandle.reset(handle);
    if (result != kIOReturnSuccess) return result;
    libusb_set_auto_detach_kernel_driver(handle, 1);
    return kIOReturnSuccess;
}

UsbConnection::~UsbConnection() {
    for (const int interface : mDetached) libusb_attach_kernel_driver(mHandle.get(), interface);
}

IOReturn UsbConnection::readConfiguration(std::optional<std::uint8_t> index, UsbConfiguration& configuration) const {
    libusb_config_descriptor* found = nullptr;
    const int result = index ? libusb_get_config_descriptor(device(), *index, &found)
                             : libusb_get_active_config_descriptor(device(), &found);
    configuration.reset(found);
    return IOReturnOfLibusb(result);
}

IOReturn UsbConnection::SetConfiguration(int configurationValue) {
    int result = libusb_set_configuration(mHandle.get(), configurationValue);
    if (result == LIBUSB_ERROR_BUSY && detachKernelDrivers() == kIOReturnSuccess) {
        result = libusb_set_configuration(mHandle.get(), configurationValue);
    }
    return IOReturnOfLibusb(result);
}

/// The kernel refuses a configuration while a driver, or another program, holds one of the interfaces. A program is
/// left alone: it makes the second try fail as well.
IOReturn UsbConnection::detachKernelDrivers() {
    UsbConfiguration configuration;
    const IOReturn result = readConfiguration({}, configuration);
    if (result != kIOReturnSuccess) return result;
    for (const auto* interface : firstSettings(*configuration)) {
        const int number = interface->bInterfaceNumber;
        if (libusb_detach_kernel_driver(mHandle.get(), number) == LIBUSB_SUCCESS) mDetached.insert(number);
    }
    return kIOReturnSuccess;
}

bool UsbConnection::handleEvents(std::chrono::microseconds wait) {
    // libusb counts a wait's milliseconds in an int.
    const std::chrono::microseconds longest = std::min<std::chrono::microseconds>(wait, std::chrono::hours(1));
    timeval limit{longest.count() / 1'000'000, longest.count() % 1'000'000};
    const int result = libusb_handle_events_timeout_completed(mContext.get(), &limit, nullptr);
    return result == LIBUSB_SUCCESS || result == LIBUSB_ERROR_INTERRUPTED;
}

}  // namespace platform
