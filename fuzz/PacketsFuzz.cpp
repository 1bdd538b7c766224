// Any payload under any id: every packet takes it, or throws what its header says. What it has taken is what the
// plainest reading of the payload gives.

#include "GLO/GLO_Exception.hpp"
#include "GLO/GLO_String.hpp"
#include "IOA/IOA_Candidates.hpp"
#include "IOA/IOA_Exception.hpp"
#include "IOA/IOA_Packet.hpp"
#include "IOA/IOA_ProductData.hpp"
#include "IOA/IOA_Protocols.hpp"
#include "IOA/IOA_PvtData.hpp"
#include "IOA/IOA_RawPackets.hpp"
#include "IOA/IOA_Records.hpp"
#include "IOL/IOL_Exception.hpp"
#include "IOL/IOL_Frame.hpp"
#include "fuzz/Harness.hpp"
#include "fuzz/Input.hpp"
#include "libs/IOU/IOU_UsbPacket.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

using fuzz::require;
using Payload = std::vector<unsigned char>;

/// Fills the packet; what it then produces must be a frame that another one of its kind takes.
/// @return false when the payload does not fit
bool accepts(iol::Packet_t& packet, iol::Packet_t& second, const Payload& payload) {
    try {
        packet.AcceptFrame(iol::Frame_t(packet.Id(), payload));
    } catch (const iol::BadFrame_t&) {
        return false;
    }
    second.AcceptFrame(packet.ProduceFrame());
    require(second.ProduceFrame().Bytes() == packet.ProduceFrame().Bytes(), "a packet is not what it was written from");
    return true;
}

/// Whether a packet produces the first bytes of a payload.
bool isFirstOf(const Payload& payload, const iol::Packet_t& packet) {
    const Payload bytes = packet.ProduceFrame().Bytes();
    return bytes.size() <= payload.size() && std::equal(bytes.begin(), bytes.end(), payload.begin());
}

/// A record of fixed size: taken from that many bytes and from more, of which the surplus is ignored.
template <typename Packet>
void take(const Payload& payload) {
    Packet packet;
    Packet second;
    const bool fits = payload.size() >= packet.ProduceFrame().Size();
    require(accepts(packet, second, payload) == fits, "a record of another size");
    require(!fits || isFirstOf(payload, packet), "a record with other bytes");
}

void takePvt(const Payload& given) {
    Payload payload = given;
    ioa::PvtData_t packet;
    ioa::PvtData_t second;
    const std::size_t size = packet.ProduceFrame().Size();
    if (payload.size() < size) return take<ioa::PvtData_t>(payload);
    // Fixes that mean something, and now and then a number that is none.
    payload[16] %= 8;
    payload[17] = 0;
    const std::size_t doubles[] = {18, 26, 34};
    if (payload[0] % 6 < std::size(doubles)) std::memset(&payload[doubles[payload[0] % 6]], 0xFF, sizeof(double));
    bool isFinite = true;
    double numbers[std::size(doubles)];
    for (std::size_t i = 0; i < std::size(doubles); ++i) {
        std::memcpy(&numbers[i], &payload[doubles[i]], sizeof(double));
        isFinite = isFinite && std::isfinite(numbers[i]);
    }
    const unsigned fix = payload[16];
    require(accepts(packet, second, payload) == (isFinite || fix < 2), "taken with a fix that is no place or time");
    if (!isFinite) return;
    require(isFirstOf(payload, packet), "a record with other bytes");
    if (fix < 2) return;
    packet.Time();
    require(packet.Position() == geo::Position_t(numbers[1], numbers[2]), "another position");
    const auto altitude = packet.Alt();
    require(altitude.IsKnown() == (fix == 3 || fix == 5), "an altitude that is not in the fix");
    if (!altitude.IsKnown()) return;
    const float value = altitude.Value();
    require(std::isnan(value) || value == packet.floats1To4[0], "another altitude");
}

/// The texts that a payload ends with: each is closed by a 0 byte, or dropped.
std::vector<std::wstring> textsBehind(std::size_t offset, const Payload& payload) {
    std::vector<std::wstring> texts;
    auto begin = payload.begin() + static_cast<long>(offset);
    for (auto end = begin; (end = std::find(begin, payload.end(), 0)) != payload.end(); begin = end + 1)
        texts.push_back(glo::wstring(std::string(begin, end), glo::gcUtf8Encoding));
    return texts;
}

void takeTexts(const Payload& payload) {
    ioa::ProductDataExt_t packet;
    ioa::ProductDataExt_t second;
    require(accepts(packet, second, payload) && packet.descriptions == textsBehind(0, payload), "other texts");
}

void takeProduct(const Payload& payload) {
    ioa::ProductData_t packet;
    ioa::ProductData_t second;
    require(accepts(packet, second, payload) == (payload.size() >= 4), "product data of another size");
    if (payload.size() < 4) return;
    require(packet.descriptions == textsBehind(4, payload), "other descriptions");
    require(packet.productId == payload[0] + 256 * payload[1], "another product");
    require(packet.softwareVersion == static_cast<short>(payload[2] + 256 * payload[3]), "another version");
}

void takeUnitName(const Payload& payload) {
    ioa::UnitNamePacket_t packet;
    ioa::UnitNamePacket_t second;
    const auto texts = textsBehind(0, payload);
    require(accepts(packet, second, payload) == !texts.empty(), "a name without its end, or none with one");
    require(texts.empty() || packet.name == texts.front(), "another name");
}

void takeProtocols(const Payload& payload) {
    ioa::Protocols_t packet;
    ioa::Protocols_t second;
    require(accepts(packet, second, payload) && packet.size() == payload.size() / 3, "another number of protocols");
    require(isFirstOf(payload, packet), "other protocols");
}

/// The identification's first two records, and questions about them.
void takeIdentification(const Payload& payload) {
    fuzz::Input input(payload.data(), payload.size());
    ioa::ProductData_t product;
    ioa::ProductData_t otherProduct;
    if (!accepts(product, otherProduct, input.bytes(input.byte()))) return;
    product.DisplayName();

    ioa::Protocols_t protocols;
    ioa::Protocols_t otherProtocols;
    accepts(protocols, otherProtocols, input.rest());
    if (protocols.empty()) {
        ioa::SynthesizeMissingPcp(product, protocols);
    } else {
        ioa::AppendMissingProtocols(product, protocols);
    }
    using Query = bool (ioa::Protocols_t::*)() const;
    using P = ioa::Protocols_t;
    static constexpr Query cQueries[] = {
        &P::SupportsPCP,
        &P::SupportsCommands,
        &P::SupportsWaypointTransfer,
        &P::SupportsProxWaypointTransfer,
        &P::SupportsRouteTransfer,
        &P::SupportsTrackTransfer,
        &P::SupportsTimeTransfer,
        &P::SupportsNaming,
        &P::SupportsFlightTransfer,
        &P::SupportsPVT,
        &P::SupportsRegionSizeQuery,
        &P::SupportsDeviceDisconnectTimeout,
        &P::SupportsSendActivityGoals,
        &P::SupportsWorkoutTransfer,
        &P::SupportsUserProfileTransfer,
        &P::Supports305UserProfileTransfer,
        &P::Supports405UserProfileSend,
        &P::SupportsFitnessCourseTransfer,
        &P::SupportsFitnessHistoryTransfer,
        &P::Supports301FitnessHistoryTransfer,
        &P::Supports405FitnessHistoryTransfer,
    };
    for (const Query query : cQueries) {
        try {
            (protocols.*query)();
        } catch (const ioa::Exception_t&) {
        }
    }
}

void takeUsbPacket(const Payload& payload) {
    const auto packet = iou::MakeUsbPacket(payload);
    require(!packet || packet->data.size() + iou::gcUsbPacketHeaderSize == payload.size(), "a packet of another size");
}

void dump(const Payload& payload) {
    std::wostringstream text;
    iol::Frame_t(1, payload).Write(text);
}

void takeRaw(const Payload& payload) {
    ioa::IopCommandPacket_t packet(10, {});
    ioa::IopCommandPacket_t second(10, {});
    require(accepts(packet, second, payload) && packet.data == payload, "a raw packet keeps what it is given");
}

constexpr void (*gcTakers[])(const Payload&) = {
    take<ioa::Packet_t<10, unsigned short>>,
    take<ioa::Packet_t<47, short>>,
    take<ioa::Packet_t<91, unsigned int>>,
    take<ioa::Packet_t<980, unsigned char>>,
    take<ioa::UnitIdPacket_t>,
    take<ioa::DeviceDisconnectTimeout_t>,
    takeUnitName,
    take<ioa::TimeData_t>,
    take<ioa::DataRqst_t>,
    take<ioa::RgnSize_t>,
    takeProduct,
    takeTexts,
    takeProtocols,
    takePvt,
    takeIdentification,
    takeUsbPacket,
    takeRaw,
    dump,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::traceIntoNothing();
    fuzz::Input input(data, size);
    const auto taker = gcTakers[input.byte() % std::size(gcTakers)];
    taker(input.rest());
    return 0;
}
