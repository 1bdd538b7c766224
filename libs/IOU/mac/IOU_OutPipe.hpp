#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "platform/IOReturn.hpp"

#include <cstdint>

namespace platform {
class IOUSBInterfaceInterface;
}

namespace iou {

class Session_t;

/// The pipe for everything the host sends. Owned by the device; belongs to the session's thread, in whose waits its
/// completions run.
class OutPipe_t : private glo::NonCopyable_t {
  public:
    /// Finds its pipe: the first outward one of the wanted type.
    /// @throws int  always 1, after reporting to the session
    OutPipe_t(Session_t& session, std::uint8_t transferType, platform::IOUSBInterfaceInterface& interface);
    ~OutPipe_t();

    /// Starts a write of the whole buffer, whose bytes are taken over; a refusal is reported to the session.
    /// @param bytes  may be null when length is 0, which sends a zero-length packet
    /// Never blocks.
    void WriteAsync(const unsigned char* bytes, long length);

    void AbortPipe();

    /// Ends the session's write, or first sends the zero-length packet by which the device sees the end of a write that
    /// fills its last USB packet.
    void CompleteWriteAsyncOfSize(std::uint32_t bytes, platform::IOReturn result);

    /// Completion of a write.
    /// @throws glo::OutOfRange_t  the byte count does not fit 32 bits
    static void OutPipeHandler(void* pipe, platform::IOReturn result, void* bytes);

  private:
    Session_t& mSession;
    platform::IOUSBInterfaceInterface& mInterface;
    std::uint8_t mPipeRef = 0;
    std::uint16_t mMaxPacketSize = 0;
};

}  // namespace iou
