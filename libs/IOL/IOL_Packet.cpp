#include "IOL/IOL_Packet.hpp"

namespace iol {

Packet_t::~Packet_t() = default;

Frame_t Packet_t::ProduceFrame() const {
    return Frame_t(mId, nullptr, 0);
}

}  // namespace iol
