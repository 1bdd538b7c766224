#include "IOL/IOL_Link.hpp"

#include "GLO/GLO_Assert.hpp"
#include "GLO/GLO_Exception.hpp"
#include "IOL/IOL_Packet.hpp"
#include "IOL_DebugServer.hpp"
#include "WIN/WIN_Timer.hpp"
#include "WIN/WIN_Trace.hpp"

#include <algorithm>

namespace iol {
namespace {

constexpr char gcFile[] = "libs/IOL/IOL_Link";

// Stable identifiers that support knows, not lines of this file.
constexpr unsigned short gcPacketTimedOutLine = 51;
constexpr unsigned short gcEmptyListLine = 77;
constexpr unsigned short gcNullPacketLine = 80;
constexpr unsigned short gcListTimedOutLine = 89;

bool IsOver(const win::Timer_t& stopwatch, win::Duration_t timeout) {
    return timeout != win::gcDurationInfinite && stopwatch.ElapsedTime() > timeout;
}

}  // namespace

Link_t::~Link_t() = default;

void Link_t::SendPacket(const Packet_t& packet, win::Duration_t timeout) {
    SendFrameWithTimeout(packet.ProduceFrame(), timeout);
}

void Link_t::GetPacket(Packet_t& packet, win::Duration_t timeout) {
    const win::Timer_t stopwatch;
    const auto elapsed = [&stopwatch] { return win::Duration_t(stopwatch.ElapsedTime()); };
    const auto trace = [](const auto&... pieces) { win::Trace(DebugServer(), pieces...); };

    trace("\n", "iol::Link_t: Entering Get Packet looking for packet id: ", packet.Id(), ": Timeout = ", timeout, "\n");
    for (;;) {
        trace("iol::Link_t: Start receive frame loop at time: ", elapsed, "\n");
        if (IsOver(stopwatch, timeout)) break;
        trace("iol::Link_t: Start GetFrame with timeout at time ", elapsed, "\n");
        const Frame_t frame = GetFrameWithTimeout(timeout);
        trace("iol::Link_t: End GetFrame with timeout at time ", elapsed, " found Frame id: ", frame.Id(), "\n");
        if (frame.Id() == packet.Id()) {
            trace("iol::Link_t: Found the frame we were looking for start accept frame\n");
            packet.AcceptFrame(frame);
            trace("iol::Link_t: End accept frame\n");
            return;
        }
        trace("iol::Link_t: Wrong frame repeat loop\n");
    }
    trace("iol::Link_t: Timed out trying to get packet ", elapsed, "\n");
    throw glo::Timeout_t(gcFile, gcPacketTimedOutLine);
}

std::size_t Link_t::GetPacket(const std::vector<Packet_t*>& packets, win::Duration_t timeout) {
    glo::Assert(!packets.empty(), gcFile, gcEmptyListLine);
    glo::Assert(std::ranges::find(packets, nullptr) == packets.end(), gcFile, gcNullPacketLine);
    const win::Timer_t stopwatch;
    for (;;) {
        if (IsOver(stopwatch, timeout)) throw glo::Timeout_t(gcFile, gcListTimedOutLine);
        const Frame_t frame = GetFrameWithTimeout(timeout);
        const auto match = std::ranges::find(packets, frame.Id(), &Packet_t::Id);
        if (match == packets.end()) continue;
        (*match)->AcceptFrame(frame);
        return static_cast<std::size_t>(match - packets.begin());
    }
}

}  // namespace iol
