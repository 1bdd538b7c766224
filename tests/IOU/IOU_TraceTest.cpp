#include "IOL/IOL_Packet.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/UsbWorld.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <stdlib.h>
#include <string>

// A program of its own: the traces are switched on or off once in the life of a process.
namespace {

using namespace support;
using platform::PropertyList;
using std::chrono::microseconds;

constexpr auto kInterrupt = ScriptedUsb::kInterruptIn;

/// What a trace says behind its banner, without the time stamps.
std::string traced(const std::string& file) {
    const std::string trace = ReadFile(file);
    const std::string behindBanner = trace.substr(trace.find('\n', trace.find('\n') + 1) + 1);
    std::istringstream lines(behindBanner);
    std::string text;
    for (std::string line; std::getline(lines, line); text += line + '\n')
        if (const auto end = line.find(": "); end != line.npos && line.find_first_not_of("0123456789: ") >= end)
            line.erase(0, end + 2);
    return text;
}

constexpr char kExchange[] = R"(
iol::Link_t: Entering Get Packet looking for packet id: 9: Timeout = 20
iol::Link_t: Start receive frame loop at time: 0
iol::Link_t: Start GetFrame with timeout at time 0
iol::Link_t: End GetFrame with timeout at time 15 found Frame id: 8
iol::Link_t: Wrong frame repeat loop
iol::Link_t: Start receive frame loop at time: 15
iol::Link_t: Start GetFrame with timeout at time 15
iol::Link_t: End GetFrame with timeout at time 31 found Frame id: 8
iol::Link_t: Wrong frame repeat loop
iol::Link_t: Start receive frame loop at time: 31
iol::Link_t: Timed out trying to get packet 31

iol::Link_t: Entering Get Packet looking for packet id: 9: Timeout = 20
iol::Link_t: Start receive frame loop at time: 0
iol::Link_t: Start GetFrame with timeout at time 0
iol::Link_t: End GetFrame with timeout at time 2 found Frame id: 9
iol::Link_t: Found the frame we were looking for start accept frame
iol::Link_t: End accept frame
)";

/// Goes through all that a session and its link say of themselves.
void useALink(const std::string& caches) {
    ScriptedDevice world;
    const platform::PlatformScope scope(platform::withLinuxFiles({.clock = &world.clock,
                                                                  .runLoops = &world.loops,
                                                                  .masterPort = &world.usb,
                                                                  .standardUserDefaults = &world.defaults}));
    ASSERT_EQ(setenv("XDG_CACHE_HOME", caches.c_str(), 1), 0);
    PropertyList tree{PropertyList::Dictionary{{"ShowDebug", {PropertyList::Data{1}}}}};
    for (const char* key : {"Settings", "Trovik", "Software"}) tree = {PropertyList::Dictionary{{key, tree}}};
    world.defaults.values["RegistryRoot"] = tree;
    world.defaults.values["ShowUsbDebug"].value = true;
    EXPECT_THROW(world.openLink(), glo::Timeout_t);
    world.startsSession();
    auto link = world.openLink();
    world.usb.brings(kInterrupt, Bytes(3, 1));
    world.usb.brings(kInterrupt, {20, 0, 0, 0, 9, 0, 0, 0, 5, 0, 0, 0, 0x41});
    world.usb.brings(kInterrupt, world.packet(1, 9));
    for (int i = 0; i < 2; ++i) world.usb.brings(kInterrupt, world.packet(20, 8), {}, microseconds(15500));
    iol::Packet_t packet(9);
    EXPECT_THROW(link.GetPacket(packet, 20), glo::Timeout_t);
    world.usb.brings(kInterrupt, world.packet(20, 9, {0x41}), {}, microseconds(2500));
    link.GetPacket(packet, 20);
    link.SendFrameWithTimeout(iol::Frame_t(10, Bytes(52)), 1000);
    EXPECT_THROW(link.GetPacket({&packet}, 1), glo::Timeout_t);
    world.usb.endsWrite({.ends = false});
    EXPECT_THROW(link.SendPacket(iol::Packet_t(11), 1), glo::Timeout_t);
}

TEST(Trace, SwitchedOnTellsTheWholeSessionAndItsExchangesInOrder) {
    const TemporaryFolder folder;
    // In a process of its own: the traces are switched on or off once in the life of one.
    EXPECT_EXIT((useALink(folder.path()), std::exit(HasFailure())), testing::ExitedWithCode(0), "");
    EXPECT_EQ(traced(folder / "Trovik/IoLinkDebug.txt.log"), kExchange);

    const std::string reads = "Interrupt ReadPipeAsync IOResult: 0\n";
    const std::string opening = "Constructing Session\nConstructing Out Pipe.\nOut Pipe Constructed.\n" + reads;
    const std::string closing = "Out AbortPipe\nOut Pipe Destructed.\nInterrupt AbortPipe\nBulk AbortPipe\n";
    const auto bytes = [](const char* what, int size) { return what + (" Bytes: " + std::to_string(size)); };
    const auto got = [&](int size) { return bytes("Interrupt CompleteReadOfSize", size) + " IOResult: 0\n"; };
    const auto writes = [&](int size) { return bytes("Out WriteAsync", size) + " IOResult: 0\n"; };
    const auto wrote = [&](int size) { return bytes("Out CompleteWriteAsyncOfSize", size) + " IOReturn: 0\n"; };
    const auto bad = [&](int size, const std::string& reason, const char* dump) {
        return got(size) + reason + "\nBad packet:\n0000: " + dump + "\n" + reads;
    };
    const std::string sent = "SendFrameWithTimeout complete. Layer: ";
    std::string expected = opening;
    for (int attempt = 0; attempt < 6; ++attempt) expected += writes(12) + wrote(12) + sent + "0 Id: 5 Size: 0\n";
    expected +=
        "iou::Session_t::Session_t timed out waiting for start session response\n"
        "iou::Session_t::Session_t - Failed\n" +
        closing + opening;
    for (const char* id : {"5", "16"})
        expected += writes(12) + got(16) + reads + wrote(12) + sent + "0 Id: " + id + " Size: 0\n";
    expected += "Session constructed.\n";
    expected += bad(3, "Failed to make packet!\nBuffer size: 3, packet size: 12",
                    "01 01 01                                          ...");
    expected += bad(13, "Packet discarded!\nBad size - packet: 5, buffer: 1",
                    "14 00 00 00 09 00 00 00 05 00 00 00 41            ............A");
    expected +=
        bad(12, "Packet discarded!\nBad layer: 1", "01 00 00 00 09 00 00 00 00 00 00 00               ............");
    for (const auto& [id, size] : {std::pair(8, 0), {8, 0}, {9, 1}})
        expected += got(12 + size) + reads + "GetFrameWithTimeout complete. Id: " + std::to_string(id) +
                    " Size: " + std::to_string(size) + "\n";
    expected += writes(64) + wrote(64) + writes(0) + wrote(0) + sent + "20 Id: 10 Size: 52\n" +
                "Session_t::GetFrameWithTimeout - Timed out waiting to receive frame\n" + writes(12) +
                "iou::Session_t::SendFrameWithTimeout - Timed out waiting to send frame\n" + closing +
                "Session ended.\n";
    EXPECT_EQ(traced(folder / "Trovik/IouUsbDebug.log"), expected);
}

}  // namespace
