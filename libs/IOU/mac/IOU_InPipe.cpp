#include "libs/IOU/mac/IOU_InPipe.hpp"

#include "GLO/GLO_Assert.hpp"
#include "GLO/GLO_Exception.hpp"
#include "libs/IOU/IOU_Trace.hpp"
#include "libs/IOU/IOU_UsbPacket.hpp"
#include "libs/IOU/mac/IOU_PipeEvents.hpp"
#include "libs/IOU/mac/IOU_PipeFinder.hpp"
#include "platform/IOUSB.hpp"

#include <limits>

namespace iou {
namespace {

constexpr char gcFile[] = "libs/IOU/mac/IOU_InPipe";

// Stable identifiers of the places that report an error, known to support; not this file's lines.
constexpr PipeFailureLines_t gcFinderLines{.endpointCount = 53, .properties = 72, .noPipe = 84};
constexpr std::uint16_t gcReadRefusedLine = 128;
constexpr std::uint16_t gcByteCountLine = 161;
constexpr std::uint16_t gcReadFailedLine = 178;

}  // namespace

InPipe_t::InPipe_t(PipeEventsIntf_t& events, std::uint8_t transferType, platform::IOUSBInterfaceInterface& interface)
    : mEvents(events),
      mInterface(interface),
      mName(transferType == platform::kUSBInterrupt ? "Interrupt" : "Bulk"),
      mPipeRef(FindPipe(events, interface, {transferType, platform::kUSBIn}, gcFile, gcFinderLines).pipeRef) {
    if (transferType == platform::kUSBInterrupt)
        mPartner = std::make_unique<InPipe_t>(events, platform::kUSBBulk, interface);
}

InPipe_t::~InPipe_t() {
    AbortPipe();
}

void InPipe_t::ReadAsync() {
    const platform::IOReturn result = mInterface.ReadPipeAsync(mPipeRef, mBuffer, &InPipe_t::InPipeHandler, this);
    Trace(mName, " ReadPipeAsync IOResult: ", result, "\n");
    if (result == platform::kIOReturnSuccess) {
        ++mReads;  // in time: a completion never runs inside the call that started it
    } else {
        mEvents.ReportErrorWithCode(result, gcFile, gcReadRefusedLine);
    }
}

void InPipe_t::AbortPipe() {
    Trace(mName, " AbortPipe\n");
    mInterface.AbortPipe(mPipeRef);
}

void InPipe_t::InPipeHandler(void* pipe, platform::IOReturn result, void* bytes) {
    const auto count = reinterpret_cast<std::uintptr_t>(bytes);
    if (count > std::numeric_limits<std::uint32_t>::max())
        throw glo::OutOfRange_t(gcFile, gcByteCountLine, L"Byte count of a read");
    static_cast<InPipe_t*>(pipe)->CompleteReadOfSize(static_cast<std::uint32_t>(count), result);
}

void InPipe_t::CompleteReadOfSize(std::uint32_t bytes, platform::IOReturn result) {
    if (mReads > 0) --mReads;
    Trace(mName, " CompleteReadOfSize Bytes: ", bytes, " IOResult: ", result, "\n");
    if (result != platform::kIOReturnSuccess && result != platform::kIOReturnAborted) {
        mEvents.ReportErrorWithCode(result, gcFile, gcReadFailedLine);
        return;
    }

    glo::Assert(bytes <= gcReadSize, gcFile, __LINE__);  // the platform writes into the buffer it was given
    Gather(bytes);
    if (bytes == gcReadSize) {
        ReadAsync();
    } else if (mGathered.empty()) {
        RanDry();
    } else {
        TakePacket();
        ReadAsync();
    }
}

void InPipe_t::Gather(std::size_t bytes) {
    mIsTooLong = mIsTooLong || mGathered.size() + bytes > gcMaxPacket;
    if (!mIsTooLong) mGathered.insert(mGathered.end(), mBuffer.begin(), mBuffer.begin() + bytes);
}

void InPipe_t::TakePacket() {
    if (mIsTooLong) {
        Trace("Packet discarded!\nToo long\n");
        std::vector<unsigned char>().swap(mGathered);
        mIsTooLong = false;
        return;
    }
    if (const auto packet = MakeUsbPacket(mGathered)) {
        if (packet->layer == Layer_t::UsbProtocol && packet->id == gcPacketIdDataAvailable) {
            // Only the interrupt pipe can announce; on the bulk pipe itself the packet has nobody to wake.
            if (mPartner) mPartner->Announced();
        } else {
            mEvents.SavePacket(*packet);
        }
    }
    mGathered.clear();
}

/// Each announcement is one read, so that none is lost: the device may announce its next run before the empty transfer
/// that ended the last one has come in, and that empty transfer ends exactly one read.
void InPipe_t::Announced() {
    if (mReads < gcMaxReads) {
        ReadAsync();
    } else if (mOwedReads < std::numeric_limits<std::uint32_t>::max()) {
        ++mOwedReads;
    }
}

void InPipe_t::RanDry() {
    if (mPartner) {
        ReadAsync();  // the interrupt pipe: an empty transfer means nothing
    } else if (mOwedReads > 0) {
        --mOwedReads;
        ReadAsync();
    }
}

}  // namespace iou
