#include "platform/linux/usb/UsbConnection.hpp"

#include "platform/linux/usb/UsbErrors.hpp"
#include "platform/linux/usb/UsbNode.hpp"

#include <cerrno>
#include <poll.h>
#include <sys/epoll.h>

namespace platform {
namespace {

bool add(int epoll, int descriptor, short events) {
    epoll_event event{};
    if (events & POLLIN) event.events |= EPOLLIN;
    if (events & POLLOUT) event.events |= EPOLLOUT;
    event.data.fd = descriptor;
    return ::epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

}  // namespace

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
    mEpoll = FileDescriptor(::epoll_create1(EPOLL_CLOEXEC));
    if (!mEpoll) return IOReturnOfErrno(errno);

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
    return watchEvents();
}

IOReturn UsbConnection::watchEvents() {
    libusb_set_pollfd_notifiers(
        mContext.get(),
        [](int descriptor, short events, void* self) {
            add(static_cast<UsbConnection*>(self)->mEpoll.get(), descriptor, events);
        },
        [](int descriptor, void* self) {
            ::epoll_ctl(static_cast<UsbConnection*>(self)->mEpoll.get(), EPOLL_CTL_DEL, descriptor, nullptr);
        },
        this);
    const std::unique_ptr<const libusb_pollfd*, Release<libusb_free_pollfds>> list(libusb_get_pollfds(mContext.get()));
    if (!list) return kIOReturnNoMemory;
    for (const libusb_pollfd** entry = list.get(); *entry; ++entry) {
        // What is not watched would never wake anybody.
        if (!add(mEpoll.get(), (*entry)->fd, (*entry)->events)) return IOReturnOfErrno(errno);
    }
    return kIOReturnSuccess;
}

UsbConnection::~UsbConnection() {
    if (!mHandle) return;
    for (const int interface : mDetached) libusb_attach_kernel_driver(mHandle.get(), interface);
    mHandle.reset();
    libusb_set_pollfd_notifiers(mContext.get(), nullptr, nullptr, nullptr);
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

bool UsbConnection::handleEvents(std::chrono::milliseconds wait) {
    timeval limit{wait.count() / 1000, wait.count() % 1000 * 1000};
    const int result = libusb_handle_events_timeout_completed(mContext.get(), &limit, nullptr);
    return result == LIBUSB_SUCCESS || result == LIBUSB_ERROR_INTERRUPTED;
}

}  // namespace platform
