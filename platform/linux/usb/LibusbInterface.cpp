#include "platform/linux/usb/LibusbInterface.hpp"

#include "platform/linux/usb/UsbConnection.hpp"
#include "platform/linux/usb/UsbErrors.hpp"
#include "platform/linux/usb/UsbTransfers.hpp"

#include <limits>
#include <utility>

namespace platform {
namespace {

std::uint8_t address(const PipeProperties& pipe) {
    return static_cast<std::uint8_t>(pipe.number | (pipe.direction == kUSBIn ? LIBUSB_ENDPOINT_IN : 0));
}

}  // namespace

LibusbInterface::LibusbInterface(std::shared_ptr<UsbConnection> connection, UsbInterfaceDescription description)
    : mConnection(std::move(connection)), mDescription(std::move(description)) {}

LibusbInterface::~LibusbInterface() {
    LibusbInterface::USBInterfaceClose();
}

IOReturn LibusbInterface::USBInterfaceOpen() {
    if (mTransfers) return kIOReturnExclusiveAccess;
    const IOReturn result = IOReturnOfLibusb(libusb_claim_interface(mConnection->handle(), mDescription.number));
    if (result != kIOReturnSuccess) return result;
    mTransfers = std::make_shared<UsbTransfers>(mConnection, mDescription.number);
    return kIOReturnSuccess;
}

IOReturn LibusbInterface::USBInterfaceClose() {
    if (!mTransfers) return kIOReturnNotOpen;
    std::exchange(mTransfers, nullptr)->close();
    return kIOReturnSuccess;
}

IOReturn LibusbInterface::GetNumEndpoints(std::uint8_t& count) {
    if (!mTransfers) return kIOReturnNotOpen;
    count = static_cast<std::uint8_t>(mDescription.pipes.size());
    return kIOReturnSuccess;
}

IOReturn LibusbInterface::GetPipeProperties(std::uint8_t pipeRef, PipeProperties& properties) {
    if (!mTransfers) return kIOReturnNotOpen;
    if (pipeRef < 1 || pipeRef > mDescription.pipes.size()) return kIOReturnBadArgument;
    properties = mDescription.pipes[pipeRef - 1U];
    return kIOReturnSuccess;
}

IOReturn LibusbInterface::start(std::uint8_t pipeRef, std::uint8_t direction, std::span<const unsigned char> bytes,
                                const UsbTransfers::Completion& completion) {
    PipeProperties pipe;
    const IOReturn result = GetPipeProperties(pipeRef, pipe);
    if (result != kIOReturnSuccess) return result;
    constexpr std::size_t kMost = std::numeric_limits<int>::max();  // that libusb can count
    const bool asynchronous = pipe.transferType == kUSBBulk || pipe.transferType == kUSBInterrupt;
    if (!asynchronous || pipe.direction != direction) return kIOReturnBadArgument;
    if (bytes.size() > kMost || completion.destination.size() > kMost) return kIOReturnBadArgument;
    return mTransfers->submit(address(pipe), pipe.transferType, bytes, completion);
}

IOReturn LibusbInterface::ReadPipeAsync(std::uint8_t pipeRef, std::span<unsigned char> buffer,
                                        IOAsyncCallback1 callback, void* refCon) {
    return start(pipeRef, kUSBIn, {}, {callback, refCon, buffer});
}

IOReturn LibusbInterface::WritePipeAsync(std::uint8_t pipeRef, std::span<const unsigned char> bytes,
                                         IOAsyncCallback1 callback, void* refCon) {
    return start(pipeRef, kUSBOut, bytes, {callback, refCon, {}});
}

IOReturn LibusbInterface::AbortPipe(std::uint8_t pipeRef) {
    PipeProperties pipe;
    const IOReturn result = GetPipeProperties(pipeRef, pipe);
    if (result == kIOReturnSuccess) mTransfers->abort(address(pipe));
    return result;
}

IOReturn LibusbInterface::CreateInterfaceAsyncEventSource(std::shared_ptr<CFRunLoopSource>& source) {
    if (!mTransfers) return kIOReturnNotOpen;
    source = mTransfers;
    return kIOReturnSuccess;
}

}  // namespace platform
