#include "IOA/IOA_RawPackets.hpp"

#include <utility>

namespace ioa {

RawPacket_t::RawPacket_t(unsigned short id, std::vector<unsigned char> payload)
    : iol::Packet_t(id), data(std::move(payload)) {}

void RawPacket_t::AcceptFrame(const iol::Frame_t& frame) {
    iol::Packet_t::AcceptFrame(frame);
    data = frame.Bytes();
}

iol::Frame_t RawPacket_t::ProduceFrame() const {
    return iol::Frame_t(Id(), data);
}

IopCommandPacket_t::IopCommandPacket_t(unsigned short command, std::vector<unsigned char> arguments)
    : RawPacket_t(command, std::move(arguments)), mCommand(command) {}

}  // namespace ioa
