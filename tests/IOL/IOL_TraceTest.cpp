#include <gtest/gtest.h>
#include <stdlib.h>

#include <regex>

#include "IOL/IOL_Packet.hpp"
#include "platform/Platform.hpp"
#include "simulator/world/SimulatedServices.hpp"
#include "tests/support/ScriptedLink.hpp"
#include "tests/support/TemporaryFolder.hpp"

// A program of its own: the trace is switched on or off once in the life of a process.
namespace {

using platform::PropertyList;

constexpr char kExpected[] = R"(
iol::Link_t: Entering Get Packet looking for packet id: 10: Timeout = 20
iol::Link_t: Start receive frame loop at time: 0
iol::Link_t: Start GetFrame with timeout at time 0
iol::Link_t: End GetFrame with timeout at time 20 found Frame id: 12
iol::Link_t: Wrong frame repeat loop
iol::Link_t: Start receive frame loop at time: 20
iol::Link_t: Start GetFrame with timeout at time 20
iol::Link_t: End GetFrame with timeout at time 31 found Frame id: 12
iol::Link_t: Wrong frame repeat loop
iol::Link_t: Start receive frame loop at time: 31
iol::Link_t: Timed out trying to get packet 31

iol::Link_t: Entering Get Packet looking for packet id: 10: Timeout = 20
iol::Link_t: Start receive frame loop at time: 0
iol::Link_t: Start GetFrame with timeout at time 0
iol::Link_t: End GetFrame with timeout at time 2 found Frame id: 10
iol::Link_t: Found the frame we were looking for start accept frame
iol::Link_t: End accept frame
)";

TEST(LinkTrace, SwitchedOnTellsEveryStepOfTheExchangeInOrder) {
    support::TemporaryFolder const folder;
    ASSERT_EQ(setenv("XDG_CACHE_HOME", folder.path().c_str(), 1), 0);
    support::ManualClock clock;
    simulator::MemoryDefaults defaults;
    PropertyList tree{PropertyList::Dictionary{{"ShowDebug", {PropertyList::Data{1}}}}};
    for (char const* element : {"Settings", "Trovik", "Software"}) tree = {PropertyList::Dictionary{{element, tree}}};
    defaults.values["RegistryRoot"] = tree;
    platform::PlatformScope const scope({.clock = &clock, .standardUserDefaults = &defaults});
    support::ScriptedLink link(clock);
    iol::Packet_t packet(10);
    link.Arrives(12, {}, 20).Arrives(12, {}, 11).Arrives(10, {}, 2);
    EXPECT_THROW(link.GetPacket(packet, 20), glo::Timeout_t);
    link.GetPacket(packet, 20);
    link.SendPacket(packet, 20);
    EXPECT_THROW(link.GetPacket({&packet}, 5), glo::Timeout_t);

    std::string const trace = support::ReadFile(folder / "Trovik/IoLinkDebug.txt.log");
    std::string const behindBanner = trace.substr(trace.find('\n', trace.find('\n') + 1) + 1);
    std::regex const stamp("^[0-9:]+ *: ", std::regex::multiline);
    EXPECT_EQ(std::regex_replace(behindBanner, stamp, ""), kExpected);
}

}  // namespace
