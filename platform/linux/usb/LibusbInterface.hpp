#pragma once

#include "platform/IOUSB.hpp"
#include "platform/linux/usb/UsbTransfers.hpp"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace platform {

class UsbConnection;

/// What the configuration descriptor says of an interface, and its folder in sysfs.
struct UsbInterfaceDescription {
    std::string path;
    std::uint8_t number = 0;
    std::vector<PipeProperties> pipes;
};

/// A USB interface over libusb. Owner thread only.
class LibusbInterface final : public IOUSBInterfaceInterface {
  public:
    LibusbInterface(std::shared_ptr<UsbConnection> connection, UsbInterfaceDescription description);
    ~LibusbInterface() override;
    LibusbInterface(const LibusbInterface&) = delete;
    LibusbInterface& operator=(const LibusbInterface&) = delete;

    IOReturn USBInterfaceOpen() override;
    IOReturn USBInterfaceClose() override;
    IOReturn GetNumEndpoints(std::uint8_t& count) override;
    IOReturn GetPipeProperties(std::uint8_t pipeRef, PipeProperties& properties) override;
    IOReturn ReadPipeAsync(std::uint8_t pipeRef, std::span<unsigned char> buffer, IOAsyncCallback1 callback,
                           void* refCon) override;
    IOReturn WritePipeAsync(std::uint8_t pipeRef, std::span<const unsigned char> bytes, IOAsyncCallback1 callback,
                            void* refCon) override;
    IOReturn AbortPipe(std::uint8_t pipeRef) override;
    IOReturn CreateInterfaceAsyncEventSource(std::shared_ptr<CFRunLoopSource>& source) override;

  private:
    IOReturn start(std::uint8_t pipeRef, std::uint8_t direction, std::span<const unsigned char> bytes,
                   const UsbTransfers::Completion& completion);

    const std::shared_ptr<UsbConnection> mConnection;
    const UsbInterfaceDescription mDescription;
    std::shared_ptr<UsbTransfers> mTransfers;  // shared with the loop as its event source; empty while closed
};

}  // namespace platform
