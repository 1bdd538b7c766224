#pragma once

#include "GLO/GLO_NonCopyable.hpp"
#include "IOL/IOL_Frame.hpp"
#include "WIN/WIN_Duration.hpp"

#include <cstddef>
#include <vector>

namespace iol {

class Packet_t;

/// The wait for every mandatory reply, in milliseconds: the time-out that the application gives a link when it opens
/// it, and what the application channel passes with each exchange.
inline constexpr win::Duration_t gcDefaultTimeout{3000};

/// A transport that can send one frame and receive one frame within a time limit, and the exchange of typed packets on
/// top of it. Holds no data. One thread uses a link at a time; nothing here takes a lock.
class Link_t : private glo::NonCopyable_t {
  public:
    Link_t() = default;

    /// Receives the next frame.
    /// @param timeout  milliseconds; gcDurationInfinite waits for ever
    /// @throws glo::Timeout_t  none arrived in time; the link stays usable
    /// Blocks. Owner thread only.
    virtual Frame_t GetFrameWithTimeout(win::Duration_t timeout) = 0;

    /// Sends one frame and waits until the transport has taken it.
    /// @param timeout  milliseconds; gcDurationInfinite waits for ever
    /// @throws glo::Timeout_t  not taken in time; part of it may have left
    /// Blocks. Owner thread only.
    virtual void SendFrameWithTimeout(const Frame_t& frame, win::Duration_t timeout) = 0;

    virtual ~Link_t();

    /// The largest payload, in bytes, that one frame may carry on this transport.
    virtual unsigned int MaxPacketSize() const = 0;

    /// Sends the packet as one frame. No retry.
    /// @param timeout  milliseconds, passed to the transport as it is
    /// Throws what SendFrameWithTimeout() throws.
    /// Blocks. Owner thread only.
    void SendPacket(const Packet_t& packet, win::Duration_t timeout);

    /// Waits for a frame with the packet's id and reads it into the packet. Frames with other ids are lost for good.
    /// The limit is looked at before each receive, and each receive may take the whole of it: a stream of other frames
    /// can hold the call for up to twice the time-out.
    /// @param timeout  milliseconds; gcDurationInfinite never gives up, only the transport can
    /// @throws glo::Timeout_t   no such frame in time, or the transport's own time-out; the packet is untouched
    /// @throws iol::BadFrame_t  the frame came and doesn't fit the packet; the frame is consumed
    /// Blocks. Owner thread only.
    void GetPacket(Packet_t& packet, win::Duration_t timeout);

    /// The same for a list: the first packet whose id is the frame's gets the frame.
    /// @param packets  borrowed; neither empty nor holding a null pointer, else an assertion
    /// @return the position of the packet that was filled
    /// Throws and blocks like the other form. Owner thread only.
    std::size_t GetPacket(const std::vector<Packet_t*>& packets, win::Duration_t timeout);
};

}  // namespace iol
