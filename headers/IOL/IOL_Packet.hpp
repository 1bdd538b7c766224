#pragma once

#include "GLO/GLO_Assert.hpp"
#include "IOL/IOL_Frame.hpp"

namespace iol {

/// Base of every typed packet: an id that never changes, and the two conversions between the packet and a frame. By
/// itself it is a packet without fields. A packet lives for one exchange: it is built, sent or filled, and read.
class Packet_t {
  public:
    explicit Packet_t(unsigned short id) : mId(id) {}  ///< @plain
    virtual ~Packet_t() = default;

    /// Reads a received frame into the packet. An override calls this one first, then reads the payload.
    /// The frame must have the packet's id; handing over another is a fault of the caller and an assertion. A payload,
    /// whatever is in it, is never one.
    /// @throws iol::BadFrame_t  (overrides) the payload doesn't hold the packet's fields; the fields are unspecified
    virtual void AcceptFrame(const Frame_t& frame) {
        glo::Assert(frame.Id() == mId, "../IOL/IOL_Packet.hpp", gcWrongIdLine);
    }

    /// Builds the frame to send. This one has no payload.
    virtual Frame_t ProduceFrame() const { return Frame_t(mId, nullptr, 0); }

    unsigned short Id() const { return mId; }  ///< @plain

  protected:
    /// For derived classes that are values. Assigning takes over the id as well.
    /// @{
    Packet_t(const Packet_t&) = default;
    Packet_t& operator=(const Packet_t&) = default;
    /// @}

  private:
    static constexpr unsigned short gcWrongIdLine = 70;  ///< a stable identifier in crash reports, not this file's line

    unsigned short mId;
};

}  // namespace iol
