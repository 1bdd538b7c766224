#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "libs/IOU/mac/IOU_PipeFinder.hpp"
#include "platform/IOReturn.hpp"

#include <cstdint>
#include <span>

namespace iou {

class PipeEventsIntf_t;

/// The pipe for everything the host sends. Owned by the device; belongs to the thread that opened it, in whose waits
/// its completions run.
class OutPipe_t : private glo::NonCopyable_t {
  public:
    /// Finds its pipe: the first outward one of the wanted type.
    /// @throws int  gcDeviceUnusable, after reporting
    OutPipe_t(PipeEventsIntf_t& events, std::uint8_t transferType, platform::IOUSBInterfaceInterface& interface);
    ~OutPipe_t();

    /// Starts a write of the whole buffer, whose bytes are taken over; a refusal is reported.
    /// @param bytes  none send a zero-length packet
    /// Never blocks.
    void WriteAsync(std::span<const unsigned char> bytes);

    void AbortPipe();

    /// Ends the write, or first sends the zero-length packet by which the device sees the end of a write that
    /// fills its last USB packet.
    void CompleteWriteAsyncOfSize(std::uint32_t bytes, platform::IOReturn result);

    /// Completion of a write.
    /// @throws glo::OutOfRange_t  the byte count does not fit 32 bits
    static void OutPipeHandler(void* pipe, platform::IOReturn result, void* bytes);

  private:
    PipeEventsIntf_t& mEvents;
    platform::IOUSBInterfaceInterface& mInterface;
    FoundPipe_t mPipe{};
};

}  // namespace iou
