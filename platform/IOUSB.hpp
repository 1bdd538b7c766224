#pragma once

#include "platform/CFRunLoop.hpp"
#include "platform/IORegistry.hpp"
#include "platform/IOReturn.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace platform {

/// Directions (seen from the host) and transfer types of PipeProperties.
/// @{
inline constexpr std::uint8_t kUSBOut = 0;
inline constexpr std::uint8_t kUSBIn = 1;
inline constexpr std::uint8_t kUSBBulk = 2;
inline constexpr std::uint8_t kUSBInterrupt = 3;
/// @}

/// Wild card of every field of IOUSBFindInterfaceRequest: fits any value.
inline constexpr std::uint16_t kIOUSBFindInterfaceDontCare = 0xFFFF;

/// Which interfaces are wanted, or what one is.
struct IOUSBFindInterfaceRequest {
    /// As in the interface's descriptor.
    /// @{
    std::uint16_t bInterfaceClass = kIOUSBFindInterfaceDontCare;
    std::uint16_t bInterfaceSubClass = kIOUSBFindInterfaceDontCare;
    std::uint16_t bInterfaceProtocol = kIOUSBFindInterfaceDontCare;
    std::uint16_t bAlternateSetting = kIOUSBFindInterfaceDontCare;
    /// @}
    bool operator==(const IOUSBFindInterfaceRequest&) const = default;  ///< @plain

    /// Whether an interface is what this request wants.
    /// @param interface  an interface's own values
    [[nodiscard]] bool fits(const IOUSBFindInterfaceRequest& interface) const {
        const auto fit = [](auto wanted, auto own) { return wanted == kIOUSBFindInterfaceDontCare || wanted == own; };
        return fit(bInterfaceClass, interface.bInterfaceClass) &&
               fit(bInterfaceSubClass, interface.bInterfaceSubClass) &&
               fit(bInterfaceProtocol, interface.bInterfaceProtocol) &&
               fit(bAlternateSetting, interface.bAlternateSetting);
    }
};

/// What is needed of a configuration's descriptor.
struct IOUSBConfigurationDescriptor {
    std::uint8_t bConfigurationValue = 0;  ///< what SetConfiguration() takes
    std::uint8_t bNumInterfaces = 0;       ///< @plain
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

/// An interface of an opened device. All but opening needs an opened one and may else answer kIOReturnNotOpen. Owner
/// thread only: the thread that opened the device.
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
    /// @return kIOReturnExclusiveAccess when it is open here or elsewhere
    virtual IOReturn USBInterfaceOpen() = 0;
    /// Gives the interface up. Blocks until the system has given back each transfer.
    /// @return kIOReturnNotOpen when it isn't open
    virtual IOReturn USBInterfaceClose() = 0;

    /// How many pipes there are, the default pipe not counted.
    virtual IOReturn GetNumEndpoints(std::uint8_t& count) = 0;

    /// Describes a pipe.
    /// @param pipeRef     1-based index of the endpoint within the interface
    /// @param properties  filled on success
    /// @return kIOReturnBadArgument, as from all below, when there is no such pipe
    virtual IOReturn GetPipeProperties(std::uint8_t pipeRef, PipeProperties& properties) = 0;

    /// Starts one read of up to buffer.size() bytes. Several reads may wait on one pipe; they are served in order.
    /// The buffer is written only right before the completion runs, so it may be shared by the reads of one pipe; it is
    /// borrowed until then.
    /// @return kIOReturnBadArgument for a pipe of the other direction; without success no completion comes
    virtual IOReturn ReadPipeAsync(std::uint8_t pipeRef, std::span<unsigned char> buffer, IOAsyncCallback1 callback,
                                   void* refCon) = 0;

    /// Starts one write. The bytes are copied by the call. No bytes send one zero-length packet.
    /// @return as ReadPipeAsync()
    virtual IOReturn WritePipeAsync(std::uint8_t pipeRef, std::span<const unsigned char> bytes,
                                    IOAsyncCallback1 callback, void* refCon) = 0;

    /// Ends every transfer of the pipe with kIOReturnAborted; their completions come as any other does.
    virtual IOReturn AbortPipe(std::uint8_t pipeRef) = 0;

    /// What delivers the completions, once it has been added to a mode of the thread's run loop.
    virtual IOReturn CreateInterfaceAsyncEventSource(std::shared_ptr<CFRunLoopSource>& source) = 0;
};

/// An opened or still closed device. All but opening needs an opened one and may else answer kIOReturnNotOpen. Owner
/// thread only.
class IOUSBDeviceInterface {
  public:
    virtual ~IOUSBDeviceInterface() = default;

    /// Opens the device. Blocks.
    /// @return kIOReturnNotPermitted when this account may not. A device that another program holds is refused with
    ///         kIOReturnExclusiveAccess here, or not before SetConfiguration or USBInterfaceOpen, as Linux does it.
    virtual IOReturn USBDeviceOpen() = 0;
    virtual IOReturn USBDeviceClose() = 0;  ///< lets other programs have it

    /// Reads a configuration by its index, from 0 on. The caller's descriptor is filled on success.
    virtual IOReturn GetConfigurationDescriptorPtr(std::uint8_t index, IOUSBConfigurationDescriptor& descriptor) = 0;

    /// Makes a configuration the active one, anew where it is already: that clears what halted an endpoint. Blocks.
    virtual IOReturn SetConfiguration(std::uint8_t configurationValue) = 0;

    /// The numbers of the device's descriptor by which a device is told.
    /// @{
    virtual IOReturn GetDeviceVendor(std::uint16_t& vendor) = 0;
    virtual IOReturn GetDeviceProduct(std::uint16_t& product) = 0;
    virtual IOReturn GetDeviceReleaseNumber(std::uint16_t& release) = 0;
    /// @}

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
