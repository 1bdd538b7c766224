#include "IOA/IOA_Protocols.hpp"

#include "IOA/IOA_Exception.hpp"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

namespace ioa {
namespace {

constexpr std::size_t gcRecordSize = 3;

}  // namespace

std::string Protocol_t::Str() const {
    char digits[8];
    std::snprintf(digits, sizeof digits, "%03u", static_cast<unsigned int>(number));
    return tag + std::string(digits);
}

// The records are taken from, and put into, the payload as a whole: one pass, and no more entries than the frame holds.

void Protocols_t::AcceptFrame(const iol::Frame_t& frame) {
    iol::Packet_t::AcceptFrame(frame);
    const unsigned char* record = frame.Data();
    const std::size_t count = frame.Size() / gcRecordSize;
    mProtocols.reserve(mProtocols.size() + count);
    for (std::size_t i = 0; i < count; ++i, record += gcRecordSize) {
        mProtocols.push_back({static_cast<char>(record[0]), static_cast<unsigned short>(record[1] | record[2] << 8)});
    }
}

iol::Frame_t Protocols_t::ProduceFrame() const {
    std::vector<unsigned char> payload(mProtocols.size() * gcRecordSize);
    unsigned char* record = payload.data();
    for (const Protocol_t& protocol : mProtocols) {
        record[0] = static_cast<unsigned char>(protocol.tag);
        record[1] = static_cast<unsigned char>(protocol.number & 0xFF);
        record[2] = static_cast<unsigned char>(protocol.number >> 8);
        record += gcRecordSize;
    }
    return iol::Frame_t(Id(), std::move(payload));
}

Protocols_t::const_iterator Protocols_t::find(const Protocol_t& protocol) const {
    return std::ranges::find(mProtocols, protocol);
}

bool Protocols_t::Contains(const Protocol_t& protocol, const TypeSets_t& dataTypes) const {
    const_iterator entry = find(protocol);
    if (entry == mProtocols.end()) return false;
    for (const std::set<unsigned short>& types : dataTypes) {
        ++entry;
        if (entry == mProtocols.end() || entry->tag != 'D') throw Exception_t("libs/IOA/IOA_Protocols", __LINE__);
        if (!types.contains(entry->number)) return false;
    }
    return true;
}

}  // namespace ioa
