// Any payload under any id: every packet takes it, or throws what its header says.

#include "GLO/GLO_Exception.hpp"
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

#include <sstream>

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

template <typename Packet>
void take(const Payload& payload) {
    Packet packet;
    Packet second;
    accepts(packet, second, payload);
}

void takePvt(const Payload& payload) {
    ioa::PvtData_t packet;
    ioa::PvtData_t second;
    if (!accepts(packet, second, payload) || packet.fix < 2) return;
    packet.Position();
    packet.Alt();
    packet.Time();
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
    take<ioa::UnitNamePacket_t>,
    take<ioa::TimeData_t>,
    take<ioa::DataRqst_t>,
    take<ioa::RgnSize_t>,
    take<ioa::ProductData_t>,
    take<ioa::ProductDataExt_t>,
    take<ioa::Protocols_t>,
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
