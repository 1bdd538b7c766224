#pragma once

#include "IOA/IOA_FrameFields.hpp"

namespace ioa {

/// A packet whose whole payload is one value, little-endian in the width of its type.
///
/// | Id | Type | Value |
/// |---|---|---|
/// | 10 | unsigned short | a command number |
/// | 12 | unsigned short | the command whose transfer is complete |
/// | 27 | unsigned short | how many records follow |
/// | 47 | short | 0, after a time record |
/// | 75 | short | start of a region file |
/// | 91 | unsigned int | file transfer |
/// | 980 | unsigned char | the region whose size is asked for |
template <unsigned short Id_v, typename Value_t>
class Packet_t : public iol::Packet_t {
  public:
    static constexpr unsigned short gcId = Id_v;  ///< @plain

    /// @plain
    explicit Packet_t(Value_t initial = Value_t()) : iol::Packet_t(Id_v), value(initial) {}

    /// @throws iol::BadFrame_t  the payload is shorter than the value
    void AcceptFrame(const iol::Frame_t& frame) override {
        iol::Packet_t::AcceptFrame(frame);
        ReadFields(frame, "../IOA/IOA_Packet.hpp", __LINE__, value);
    }

    iol::Frame_t ProduceFrame() const override { return WriteFields(Id_v, value); }

    Value_t value;  ///< see the table
};

/// Names for some rows of the table.
/// @{
using CommandPacket_t = Packet_t<10, unsigned short>;
using TransferCompletePacket_t = Packet_t<12, unsigned short>;
using RecordCountPacket_t = Packet_t<27, unsigned short>;
using RgnSizeRequestPacket_t = Packet_t<980, unsigned char>;
/// @}

}  // namespace ioa
