#pragma once

#include "platform/CFRunLoop.hpp"
#include "platform/IORegistry.hpp"
#include "platform/IOReturn.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace platform {

inline constexpr std::uint8_t kUSBOut = 0;
inline constexpr std::uint8_t kUSBIn = 1;
inline constexpr std::uint8_t kUSBBulk = 2;
inline constexpr std::uint8_t kUSBInterrupt = 3;

/// Wild card of every field of IOUSBFindInterfaceRequest: fits any value.
inline constexpr std::uint16_t kIOUSBFindInterfaceDontCare = 0xFFFF;

struct IOUSBFindInterfaceRequest {
    std::uint16_t bInterfaceClass = kIOUSBFindInterfaceDontCare;
    std::uint16_t bInterfaceSubClass = kIOUSBFindInterfaceDontCare;
    std::uint16_t bInterfaceProtocol = kIOUSBFindInterfaceDontCare;
    std::uint16_t bAlternateSetting = kIOUSBFindInterfaceDontCare;
    bool operator==(const IOUSBFindInterfaceRequest&) const = default;

    /// @param interface  an interface's own values
    [[nodiscard]] bool fits(const IOUSBFindInterfaceRequest& interface) const {
        const auto fit = [](auto wanted, auto own) { return wanted == kIOUSBFindInterfaceDontCare || wanted == own; };
        return fit(bInterfaceClass, interface.bInterfaceClass) &&
               fit(bInterfaceSubClass, interface.bInterfaceSubClass) &&
               fit(bInterfaceProtocol, interface.bInterfaceProtocol) &&
               fit(bAlternateSetting, interface.bAlternateSetting);
    }
};

struct IOUSBConfigurationDescriptor {
    std::uint8_t bConfigurationValue = 0;
    std::uint8_t bNumInterfaces = 0;
};

/// One endpoint of an interface.
struct PipeProperties {
    std::uint8_t direction = 0;       ///< kUSBOut or kUSBIn
    std::uint8_t number = 0;          ///< endpoint number, 1 to 15
    std::uint8_t transferType = 0;    ///< kUSBBulk, kUSBInterrupt, …
    std::uint16_t maxPacketSize = 0;  ///< bytes
    std::uint8_t interval = 0;        ///< as in the descriptor
};

/// Completion of an asynchronous transfer: the caller's reference, the result, and the byte count carried as a pointer.
using IOAsyncCallback1 = void (*)(void* refCon, IOReturn result, void* arg0);

/// An interface of an opened device. All of it belongs to the thread that opened the device.
///
/// Completions run on that thread only while it runs the mode to which the asynchronous event source was added, in the
/// order in which the transfers ended, each exactly once, and never inside the call that started the transfer.
/// In a loop that returns after one source, a failure never comes in the same run as a success before it: whoever waits
/// for that success has to see it before the device counts as gone. For the same reason a transfer that a completion
/// starts on a device that has gone meanwhile is accepted, and fails in a run of its own.
/// USBInterfaceClose (or destruction) takes every transfer back first; completions still due are then dropped.
class IOUSBInterfaceInterface {
  public:
    virtual ~IOUSBInterfaceInterface() = default;

    /// Claims the interface. A kernel driver that holds it is detached, and given back by USBInterfaceClose, or, where
    /// SetConfiguration had to detach it already, when the device is closed.
    virtual IOReturn USBInterfaceOpen() = 0;
    virtual IOReturn USBInterfaceClose() = 0;

    virtual IOReturn GetNumEndpoints(std::uint8_t& count) = 0;

    /// @param pipeRef  1-based index of the endpoint within the interface
    virtual IOReturn GetPipeProperties(std::uint8_t pipeRef, PipeProperties& properties) = 0;

    /// Starts one read of up to buffer.size() bytes. Several reads may wait on one pipe; they are served in order.
    /// The buffer is written only right before the completion runs, so it may be shared by the reads of one pipe.
    virtual IOReturn ReadPipeAsync(std::uint8_t pipeRef, std::span<unsigned char> buffer, IOAsyncCallback1 callback,
                                   void* refCon) = 0;

    /// Starts one write. The bytes are taken over by the call. No bytes send one zero-length packet.
    virtual IOReturn WritePipeAsync(std::uint8_t pipeRef, std::span<const unsigned char> bytes,
                                    IOAsyncCallback1 callback, void* refCon) = 0;

    /// Ends every transfer of the pipe with kIOReturnAborted; their completions come as any other does.
    virtual IOReturn AbortPipe(std::uint8_t pipeRef) = 0;

    virtual IOReturn CreateInterfaceAsyncEventSource(std::shared_ptr<CFRunLoopSource>& source) = 0;
};

/// An opened or still closed device. One thread.
class IOUSBDeviceInterface {
  public:
    virtual ~IOUSBDeviceInterface() = default;

    /// kIOReturnNotPermitted when this account may not. A device that another program holds is refused with
    /// kIOReturnExclusiveAccess here, or not before SetConfiguration or USBInterfaceOpen, as Linux does it.
    virtual IOReturn USBDeviceOpen() = 0;
    virtual IOReturn USBDeviceClose() = 0;

    virtual IOReturn GetConfigurationDescriptorPtr(std::uint8_t index, IOUSBConfigurationDescriptor& descriptor) = 0;
    virtual IOReturn SetConfiguration(std::uint8_t configurationValue) = 0;

    virtual IOReturn GetDeviceVendor(std::uint16_t& vendor) = 0;
    virtual IOReturn GetDeviceProduct(std::uint16_t& product) = 0;
    virtual IOReturn GetDeviceReleaseNumber(std::uint16_t& release) = 0;

    /// The interfaces of the active configuration that fit the request. The entries must not outlive the device.
    virtual IOReturn CreateInterfaceIterator(const IOUSBFindInterfaceRequest& request,
                                             std::unique_ptr<IOIterator>& iterator) = 0;
};

/// The way from a registry entry to its access object: one overload per interface id.
class IOCFPlugInInterface {
  public:
    virtual ~IOCFPlugInInterface() = default;
    /// kIOUSBDeviceInterfaceID; kIOReturnUnsupported on an interface entry.
    virtual IOReturn QueryInterface(std::unique_ptr<IOUSBDeviceInterface>& device) = 0;
    /// kIOUSBInterfaceInterfaceID; kIOReturnUnsupported on a device entry.
    virtual IOReturn QueryInterface(std::unique_ptr<IOUSBInterfaceInterface>& interface) = 0;
};

}  // namespace platform
