#include "libs/IOU/mac/IOU_OutPipe.hpp"

#include "GLO/GLO_Exception.hpp"
#include "libs/IOU/IOU_Trace.hpp"
#include "libs/IOU/mac/IOU_PipeEvents.hpp"
#include "platform/IOUSB.hpp"

#include <limits>

namespace iou {
namespace {

constexpr char gcFile[] = "libs/IOU/mac/IOU_OutPipe";

// Stable identifiers of the places that report an error, known to support; not this file's lines.
constexpr PipeFailureLines_t gcFinderLines{.endpointCount = 40, .properties = 59, .noPipe = 71};
constexpr std::uint16_t gcWriteRefusedLine = 110;
constexpr std::uint16_t gcWriteFailedLine = 126;
constexpr std::uint16_t gcByteCountLine = 153;

}  // namespace

OutPipe_t::OutPipe_t(PipeEventsIntf_t& events, std::uint8_t transferType, platform::IOUSBInterfaceInterface& interface)
    : mEvents(events), mInterface(interface) {
    Trace("Constructing Out Pipe.\n");
    mPipe = FindPipe(events, interface, {transferType, platform::kUSBOut}, gcFile, gcFinderLines);
    Trace("Out Pipe Constructed.\n");
}

OutPipe_t::~OutPipe_t() {
    AbortPipe();
    Trace("Out Pipe Destructed.\n");
}

void OutPipe_t::WriteAsync(std::span<const unsigned char> bytes) {
    const platform::IOReturn result = mInterface.WritePipeAsync(mPipe.pipeRef, bytes, &OutPipe_t::OutPipeHandler, this);
    Trace("Out WriteAsync Bytes: ", bytes.size(), " IOResult: ", result, "\n");
    if (result != platform::kIOReturnSuccess) mEvents.ReportErrorWithCode(result, gcFile, gcWriteRefusedLine);
}

void OutPipe_t::AbortPipe() {
    Trace("Out AbortPipe\n");
    mInterface.AbortPipe(mPipe.pipeRef);
}

void OutPipe_t::OutPipeHandler(void* pipe, platform::IOReturn result, void* bytes) {
    const auto count = reinterpret_cast<std::uintptr_t>(bytes);
    if (count > std::numeric_limits<std::uint32_t>::max())
        throw glo::OutOfRange_t(gcFile, gcByteCountLine, L"Byte count of a write");
    static_cast<OutPipe_t*>(pipe)->CompleteWriteAsyncOfSize(static_cast<std::uint32_t>(count), result);
}

void OutPipe_t::CompleteWriteAsyncOfSize(std::uint32_t bytes, platform::IOReturn result) {
    Trace("Out CompleteWriteAsyncOfSize Bytes: ", bytes, " IOReturn: ", result, "\n");
    if (result != platform::kIOReturnSuccess && result != platform::kIOReturnAborted) {
        mEvents.ReportErrorWithCode(result, gcFile, gcWriteFailedLine);
        return;
    }
    // A descriptor may claim a packet size of 0; nothing is an exact multiple of that.
    const bool fillsLastPacket = bytes != 0 && mPipe.maxPacketSize != 0 && bytes % mPipe.maxPacketSize == 0;
    if (fillsLastPacket) {
        WriteAsync({});
    } else {
        mEvents.CompleteWrite();
    }
}

}  // namespace iou
