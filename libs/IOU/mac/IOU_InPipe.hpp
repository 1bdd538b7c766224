#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "platform/IOReturn.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace platform {
class IOUSBInterfaceInterface;
}

namespace iou {

class PipeEventsIntf_t;

/// A pipe on which the device sends. The interrupt pipe is read all the time; it carries whole packets of its own and
/// announces those that wait on its partner, the bulk pipe, which is read only until it runs dry. Owned by the device
/// (the partner by the interrupt pipe); belongs to the thread that opened it, in whose waits its completions run.
class InPipe_t : private glo::NonCopyable_t {
  public:
    /// Bytes that one read asks for. A read that comes back full means that the packet goes on in the next one.
    static constexpr std::size_t gcReadSize = 4096;

    /// Longest packet that is put together from full reads; far above what devices send (some kilobytes at most). What
    /// goes beyond is dropped to the end of its run, so that a device that never stops can't use up the memory.
    static constexpr std::size_t gcMaxPacket = std::size_t{1} << 20;

    /// Reads under way at a time on one pipe. A well-behaved device causes two; announcements beyond the limit are
    /// counted and made good as reads come back empty.
    static constexpr unsigned gcMaxReads = 8;

    /// Finds its pipe: the first inward one of the wanted type. One of type 3 (interrupt) makes its partner, of type 2.
    /// @throws int  gcDeviceUnusable, after reporting
    InPipe_t(PipeEventsIntf_t& events, std::uint8_t transferType, platform::IOUSBInterfaceInterface& interface);

    /// Aborts the pipe, then the partner's.
    ~InPipe_t();

    /// Starts a read; a refusal is reported. Never blocks.
    void ReadAsync();

    void AbortPipe();

    /// Takes in what a read brought.
    void CompleteReadOfSize(std::uint32_t bytes, platform::IOReturn result);

    /// Completion of a read.
    /// @throws glo::OutOfRange_t  the byte count does not fit 32 bits
    static void InPipeHandler(void* pipe, platform::IOReturn result, void* bytes);

  private:
    void Announced();
    void RanDry();
    void Gather(std::size_t bytes);
    void TakePacket();

    PipeEventsIntf_t& mEvents;
    platform::IOUSBInterfaceInterface& mInterface;
    const char* const mName;
    const std::uint8_t mPipeRef;
    std::unique_ptr<InPipe_t> mPartner;    ///< only the interrupt pipe has one
    std::vector<unsigned char> mGathered;  ///< the packet so far; its storage is kept from packet to packet
    bool mIsTooLong = false;               ///< the packet in hand has passed the limit; its rest is dropped
    unsigned mReads = 0;                   ///< under way
    std::uint32_t mOwedReads = 0;          ///< announced while too many were under way
    std::array<unsigned char, gcReadSize> mBuffer;
};

}  // namespace iou
