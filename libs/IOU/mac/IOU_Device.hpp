#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "platform/IOReturn.hpp"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace platform {
class CFRunLoop;
class CFRunLoopSource;
class IOService;
class IOUSBDeviceInterface;
class IOUSBInterfaceInterface;
}  // namespace platform

namespace iou {

class InPipe_t;
class OutPipe_t;
class PipeEventsIntf_t;

/// One opened device: its first interface, claimed, and the three pipes on it. Owned by the session and used on the
/// session's thread only.
class Device_t : private glo::NonCopyable_t {
  public:
    /// Opens the device at a registry path and starts reading its interrupt pipe.
    /// @param events  told what the pipes do, and which step failed; must outlive the device
    /// @param loop    the calling thread's, which delivers the pipes' completions in the mode; must outlive the device
    /// @throws int  gcDeviceUnusable, after reporting the failed step; everything is closed again
    /// May block for some seconds while the system is still setting the device's permissions.
    Device_t(const std::string& registryPath, PipeEventsIntf_t& events, platform::CFRunLoop& loop,
             std::string_view mode);

    /// Takes back what is under way and closes the device.
    ~Device_t();

    /// Starts a write; the bytes are taken over. Never blocks.
    void WriteAsync(std::span<const unsigned char> bytes);

  private:
    /// Each has what stands before it open as well.
    enum class Opened_t { Nothing, Device, Interface };

    Device_t(PipeEventsIntf_t& events, platform::CFRunLoop& loop);
    void Open(const std::string& registryPath, std::string_view mode);
    void OpenDevice(const std::string& registryPath);
    void CheckIdentity();
    std::unique_ptr<platform::IOService> FirstInterface();
    void OpenInterface();
    void Cleanup();
    void Require(platform::IOReturn result, std::uint16_t line);

    PipeEventsIntf_t& mEvents;
    platform::CFRunLoop& mRunLoop;
    std::unique_ptr<platform::IOUSBDeviceInterface> mDevice;
    std::unique_ptr<platform::IOUSBInterfaceInterface> mInterface;  ///< must go before the device
    std::unique_ptr<InPipe_t> mInPipe;
    std::unique_ptr<OutPipe_t> mOutPipe;
    std::shared_ptr<platform::CFRunLoopSource> mEventSource;  ///< shared with the run loop it is added to
    Opened_t mOpened = Opened_t::Nothing;
};

}  // namespace iou
