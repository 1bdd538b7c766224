#pragma once

#include "IOL/IOL_Packet.hpp"

#include <vector>

namespace ioa {

/// A packet whose payload is kept as it came and sent as it is.
class RawPacket_t : public iol::Packet_t {
  public:
    explicit RawPacket_t(unsigned short id, std::vector<unsigned char> payload = {});

    /// Replaces the data; any payload will do.
    void AcceptFrame(const iol::Frame_t& frame) override;
    iol::Frame_t ProduceFrame() const override;

    std::vector<unsigned char> data;
};

/// A raw command: the frame's id is the command number, its payload the argument bytes without any framing.
class IopCommandPacket_t : public RawPacket_t {
  public:
    IopCommandPacket_t(unsigned short command, std::vector<unsigned char> arguments);

    unsigned short Command() const { return mCommand; }

  private:
    unsigned short mCommand;
};

// Records that the caller of the channel supplies. Their ids and layouts are the devices' own; the payload is the
// caller's to read.

class InitFixData_t : public RawPacket_t {
  public:
    using RawPacket_t::RawPacket_t;
};

class ProductInventory_t : public RawPacket_t {
  public:
    using RawPacket_t::RawPacket_t;
};

class GmapRgnInfo_t : public RawPacket_t {
  public:
    using RawPacket_t::RawPacket_t;
};

}  // namespace ioa
