#include <gtest/gtest.h>
#include <stdlib.h>

#include <regex>

#include "GLO/GLO_Exception.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/UsbWorld.hpp"

// A program of its own: the trace is switched on or off once in the life of a process.
namespace {

using namespace support;

TEST(Trace, SwitchedOnTellsTheWholeSessionInOrder) {
    TemporaryFolder const folder;
    {
        ScriptedDevice world;
        ASSERT_EQ(setenv("XDG_CACHE_HOME", folder.path().c_str(), 1), 0);
        world.defaults.values["ShowUsbDebug"].value = true;
        EXPECT_THROW(world.openLink(), glo::Timeout_t);
        world.startsSession();
        auto link = world.openLink();
        world.usb.brings(ScriptedUsb::kInterruptIn, Bytes(3, 1));
        world.usb.brings(ScriptedUsb::kInterruptIn, {20, 0, 0, 0, 9, 0, 0, 0, 5, 0, 0, 0, 0x41});
        world.usb.brings(ScriptedUsb::kInterruptIn, world.packet(1, 9));
        world.usb.brings(ScriptedUsb::kInterruptIn, world.packet(20, 9, {0x41}));
        link.GetFrameWithTimeout(1000);
        link.SendFrameWithTimeout(iol::Frame_t(10, Bytes(52)), 1000);
        EXPECT_THROW(link.GetFrameWithTimeout(1), glo::Timeout_t);
        world.usb.endsWrite({.ends = false});
        EXPECT_THROW(link.SendFrameWithTimeout(iol::Frame_t(11, Bytes(1)), 1), glo::Timeout_t);
    }
    std::string const opening = "Constructing Session\nConstructing Out Pipe.\nOut Pipe Constructed.\n";
    std::string const reads = "Interrupt ReadPipeAsync IOResult: 0\n";
    std::string const closing = "Out AbortPipe\nOut Pipe Destructed.\nInterrupt AbortPipe\nBulk AbortPipe\n";
    auto const got = [](int size) {
        return "Interrupt CompleteReadOfSize Bytes: " + std::to_string(size) + " IOResult: 0\n";
    };
    auto const writes = [](int size) { return "Out WriteAsync Bytes: " + std::to_string(size) + " IOResult: 0\n"; };
    auto const wrote = [](int size) {
        return "Out CompleteWriteAsyncOfSize Bytes: " + std::to_string(size) + " IOReturn: 0\n";
    };
    std::string const start = "SendFrameWithTimeout complete. Layer: 0 Id: 5 Size: 0\n";
    std::string expected = opening + reads;
    for (int attempt = 0; attempt < 6; ++attempt) expected += writes(12) + wrote(12) + start;
    expected +=
        "iou::Session_t::Session_t timed out waiting for start session response\n"
        "iou::Session_t::Session_t - Failed\n" +
        closing;
    expected += opening + reads + writes(12) + got(16) + reads + wrote(12) + start;
    expected += writes(12) + got(16) + reads + wrote(12) + "SendFrameWithTimeout complete. Layer: 0 Id: 16 Size: 0\n";
    expected += "Session constructed.\n" + got(3) +
                "Failed to make packet!\nBuffer size: 3, packet size: 12\nBad packet:\n"
                "0000: 01 01 01                                          ...\n" +
                reads;
    expected += got(13) +
                "Packet discarded!\nBad size - packet: 5, buffer: 1\nBad packet:\n"
                "0000: 14 00 00 00 09 00 00 00 05 00 00 00 41            ............A\n" +
                reads;
    expected += got(12) +
                "Packet discarded!\nBad layer: 1\nBad packet:\n"
                "0000: 01 00 00 00 09 00 00 00 00 00 00 00               ............\n" +
                reads;
    expected += got(13) + reads + "GetFrameWithTimeout complete. Id: 9 Size: 1\n";
    expected +=
        writes(64) + wrote(64) + writes(0) + wrote(0) + "SendFrameWithTimeout complete. Layer: 20 Id: 10 Size: 52\n";
    expected += "Session_t::GetFrameWithTimeout - Timed out waiting to receive frame\n" + writes(13) +
                "iou::Session_t::SendFrameWithTimeout - Timed out waiting to send frame\n" + closing +
                "Session ended.\n";

    std::string const trace = ReadFile(folder / "Trovik/IouUsbDebug.log");
    std::string const behindBanner = trace.substr(trace.find('\n', trace.find('\n') + 1) + 1);
    std::regex const stamp("^[0-9:]+ *: ", std::regex::multiline);
    EXPECT_EQ(std::regex_replace(behindBanner, stamp, ""), expected);
}

}  // namespace
