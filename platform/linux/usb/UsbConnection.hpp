#pragma once

#include "platform/IOReturn.hpp"
#include "platform/common/FileDescriptor.hpp"
#include "platform/common/Release.hpp"

#include <libusb.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace platform {

class AsioRunLoops;

using UsbConfiguration = std::unique_ptr<libusb_config_descriptor, Release<libusb_free_config_descriptor>>;

/// Of each interface, alternate setting 0, the one that a configuration starts with. They belong to the configuration.
std::vector<const libusb_interface_descriptor*> firstSettings(const libusb_config_descriptor& configuration);

/// One opened device: a libusb context of its own, so that nothing but this device's owner ever handles its events, the
/// handle, and the node's descriptor. Shared by the device, its interface and the interface's transfers, and closed
/// with the last of them. Owner thread only.
class UsbConnection {
  public:
    /// Opens the node of a device; udev being late with permissions is waited for.
    /// @param loops  whose run loops watch the connection
    static IOReturn open(const std::string& node, AsioRunLoops& loops, std::shared_ptr<UsbConnection>& connection);

    ~UsbConnection();
    UsbConnection(const UsbConnection&) = delete;
    UsbConnection& operator=(const UsbConnection&) = delete;

    libusb_device_handle* handle() const { return mHandle.get(); }
    libusb_device* device() const { return libusb_get_device(mHandle.get()); }

    AsioRunLoops& loops() const { return mLoops; }

    /// @param index  of the configuration; nothing for the active one
    IOReturn readConfiguration(std::optional<std::uint8_t> index, UsbConfiguration& configuration) const;

    /// Chooses the configuration; kernel drivers in the way are detached, and given back at the end.
    IOReturn SetConfiguration(int configurationValue);

    /// Handles what is ready; transfers' call-backs run inside.
    /// @param wait  how long to wait for something, an hour at the most; 0 does not wait
    /// @return false when libusb refused
    bool handleEvents(std::chrono::microseconds wait);
    /// Ends the wait under way, else the next one. Any thread.
    void interrupt() noexcept { libusb_interrupt_event_handler(mContext.get()); }

  private:
    explicit UsbConnection(AsioRunLoops& loops) : mLoops(loops) {}
    IOReturn attach(const std::string& node);
    IOReturn detachKernelDrivers();

    AsioRunLoops& mLoops;
    // In the order in which they are made; they go the other way round.
    FileDescriptor mNode;
    std::unique_ptr<libusb_context, Release<libusb_exit>> mContext;
    std::unique_ptr<libusb_device_handle, Release<libusb_close>> mHandle;
    std::set<int> mDetached;  // interfaces whose kernel drivers have to be given back
};

}  // namespace platform
