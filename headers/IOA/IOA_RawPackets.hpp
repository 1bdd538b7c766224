#pragma once

#include "IOL/IOL_Packet.hpp"

#include <vector>

namespace ioa {

/// A packet whose payload is kept as it came and sent as it is.
class RawPacket_t : public iol::Packet_t {
  public:
    /// @plain
    explicit RawPacket_t(unsigned short id, std::vector<unsigned char> payload = {});

    /// Replaces the data; any payload will do.
    void AcceptFrame(const iol::Frame_t& frame) override;
    iol::Frame_t ProduceFrame() const override;

    std::vector<unsigned char> data;  ///< the payload
};

/// A raw command: the frame's id is the command number, its payload the argument bytes without any framing.
class IopCommandPacket_t : public RawPacket_t {
  public:
    IopCommandPacket_t(unsigned short command, std::vector<unsigned char> arguments);  ///< @plain

    unsigned short Command() const { return mCommand; }  ///< stays when a frame is read into the packet

  private:
    unsigned short mCommand;
};

// Records that the caller of the channel supplies. Their ids and layouts are the devices' own; the payload is the
// caller's to read.

/// The answer to Channel_t::GetInitFixData(), in the device's own layout and under the id that the caller gives.
class InitFixData_t : public RawPacket_t {
  public:
    using RawPacket_t::RawPacket_t;
};

/// The answer to Channel_t::GetProductInventory(), in the device's own layout and under the id that the caller gives.
class ProductInventory_t : public RawPacket_t {
  public:
    using RawPacket_t::RawPacket_t;
};

/// The answer to Channel_t::GetGmapRgnInfo(), in the device's own layout and under the id that the caller gives.
class GmapRgnInfo_t : public RawPacket_t {
  public:
    using RawPacket_t::RawPacket_t;
};

}  // namespace ioa
