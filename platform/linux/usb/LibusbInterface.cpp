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

IOReturn LibusbInterface::findPipe(std::uint8_t pipeRef, std::uint8_t direction, const PipeProperties*& pipe) const {
    if (!mTransfers) return kIOReturnNotOpen;
    if (pipeRef < 1 || pipeRef > mDescription.pipes.size()) return kIOReturnBadArgument;
    pipe = &mDescription.pipes[pipeRef - 1U];
    const bool asynchronous = pipe->transferType == kUSBBulk || pipe->transferType == kUSBInterrupt;
    return asynchronous && pipe->direction == direction ? kIOReturnSuccess : kIOReturnBadArgument;
}

IOReturn LibusbInterface::GetPipeProperties(std::uint8_t pipeRef, PipeProperties& properties) {
    if (!mTransfers) return kIOReturnNotOpen;
    if (pipeRef < 1 || pipeRef > mDescription.pipes.size()) return kIOReturnBadArgument;
    properties = mDescription.pipes[pipeRef - 1U];
    return kIOReturnSuccess;
}

IOReturn LibusbInterface::ReadPipeAsync(std::uint8_t pipeRef, std::span<unsigned char> buffer,
                                        IOAsyncCallback1 callback, void* refCon) {
    const PipeProperties* pipe = nullptr;
    const IOReturn result = findPipe(pipeRef, kUSBIn, pipe);
    if (result != kIOReturnSuccess) return result;
    if (buffer.size() > std::numeric_limits<int>::max()) return kIOReturnBadArgument;
    return mTransfers->submit(address(*pipe), pipe->transferType, {}, {callback, refCon, buffer});
}

IOReturn LibusbInterface::WritePipeAsync(std::uint8_t pipeRef, std::span<const unsigned char> bytes,
                                         IOAsyncCallback1 callback, void* refCon) {
    const PipeProperties* pipe = nullptr;
    const IOReturn result = findPipe(pipeRef, kUSBOut, pipe);
    if (result != kIOReturnSuccess) return result;
    if (bytes.size() > std::numeric_limits<int>::max()) return kIOReturnBadArgument;
    return mTransfers->submit(address(*pipe), pipe->transferType, bytes, {callback, refCon, {}});
}

IOReturn LibusbInterface::AbortPipe(std::uint8_t pipeRef) {
    if (!mTransfers) return kIOReturnNotOpen;
    if (pipeRef < 1 || pipeRef > mDescription.pipes.size()) return kIOReturnBadArgument;
    mTransfers->abort(address(mDescription.pipes[pipeRef - 1U]));
    return kIOReturnSuccess;
}

IOReturn LibusbInterface::CreateInterfaceAsyncEventSource(std::shared_ptr<CFRunLoopSource>& source) {
    if (!mTransfers) return kIOReturnNotOpen;
    source = mTransfers;
    return kIOReturnSuccess;
}

}  // namespace platform
