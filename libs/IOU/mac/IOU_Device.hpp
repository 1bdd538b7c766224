#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "platform/IOReturn.hpp"

#include <cstdint>
#include <memory>
#include <string>

namespace platform {
class CFRunLoopSource;
class IOService;
class IOUSBDeviceInterface;
class IOUSBInterfaceInterface;
}  // namespace platform

namespace iou {

class InPipe_t;
class OutPipe_t;
class Session_t;

/// One opened device: its first interface, claimed, and the three pipes on it. Owned by the session and used on the
/// session's thread only, whose run loop delivers the pipes' completions in the session's mode.
class Device_t : private glo::NonCopyable_t {
  public:
    /// Opens the device at a registry path and starts reading its interrupt pipe.
    /// @throws int  always 1, after reporting the failed step to the session; everything is closed again
    /// May block for some seconds while the system is still setting the device's permissions.
    Device_t(const std::string& registryPath, Session_t& session);

    /// Takes back what is under way and closes the device.
    ~Device_t();

    /// Starts a write; the bytes are taken over. Never blocks.
    void WriteAsync(const unsigned char* bytes, long length);

  private:
    void Open(const std::string& registryPath);
    void OpenDevice(const std::string& registryPath);
    void CheckIdentity();
    std::unique_ptr<platform::IOService> FirstInterface();
    void OpenInterface();
    void Cleanup();
    void Require(platform::IOReturn result, std::uint16_t line);

    Session_t& mSession;
    std::unique_ptr<platform::IOUSBDeviceInterface> mDevice;
    std::unique_ptr<platform::IOUSBInterfaceInterface> mInterface;  ///< must go before the device
    std::unique_ptr<InPipe_t> mInPipe;
    std::unique_ptr<OutPipe_t> mOutPipe;
    std::shared_ptr<platform::CFRunLoopSource> mEventSource;  ///< shared with the run loop it is added to
    bool mDeviceIsOpen = false;
    bool mInterfaceIsOpen = false;
};

}  // namespace iou
