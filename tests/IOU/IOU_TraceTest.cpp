#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>

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
    std::vector<std::string> expected = {"Constructing Session", "Constructing Out Pipe.", "Out Pipe Constructed.",
                                         "Interrupt ReadPipeAsync IOResult: 0"};
    for (int attempt = 0; attempt < 6; ++attempt) {
        for (char const* const line :
             {"Out WriteAsync Bytes: 12 IOResult: 0", "Out CompleteWriteAsyncOfSize Bytes: 12 IOReturn: 0",
              "SendFrameWithTimeout complete. Layer: 0 Id: 5 Size: 0"})
            expected.push_back(line);
    }
    for (char const* const line : {
             "iou::Session_t::Session_t timed out waiting for start session response",
             "iou::Session_t::Session_t - Failed",
             "Out AbortPipe",
             "Out Pipe Destructed.",
             "Interrupt AbortPipe",
             "Bulk AbortPipe",
             "Constructing Session",
             "Constructing Out Pipe.",
             "Out Pipe Constructed.",
             "Interrupt ReadPipeAsync IOResult: 0",
             "Out WriteAsync Bytes: 12 IOResult: 0",
             "Interrupt CompleteReadOfSize Bytes: 16 IOResult: 0",
             "Interrupt ReadPipeAsync IOResult: 0",
             "Out CompleteWriteAsyncOfSize Bytes: 12 IOReturn: 0",
             "SendFrameWithTimeout complete. Layer: 0 Id: 5 Size: 0",
             "Out WriteAsync Bytes: 12 IOResult: 0",
             "Interrupt CompleteReadOfSize Bytes: 16 IOResult: 0",
             "Interrupt ReadPipeAsync IOResult: 0",
             "Out CompleteWriteAsyncOfSize Bytes: 12 IOReturn: 0",
             "SendFrameWithTimeout complete. Layer: 0 Id: 16 Size: 0",
             "Session constructed.",
             "Interrupt CompleteReadOfSize Bytes: 3 IOResult: 0",
             "Failed to make packet!",
             "Buffer size: 3, packet size: 12",
             "Bad packet:",
             "0000: 01 01 01                                          ...",
             "Interrupt ReadPipeAsync IOResult: 0",
             "Interrupt CompleteReadOfSize Bytes: 13 IOResult: 0",
             "Packet discarded!",
             "Bad size - packet: 5, buffer: 1",
             "Bad packet:",
             "0000: 14 00 00 00 09 00 00 00 05 00 00 00 41            ............A",
             "Interrupt ReadPipeAsync IOResult: 0",
             "Interrupt CompleteReadOfSize Bytes: 12 IOResult: 0",
             "Packet discarded!",
             "Bad layer: 1",
             "Bad packet:",
             "0000: 01 00 00 00 09 00 00 00 00 00 00 00               ............",
             "Interrupt ReadPipeAsync IOResult: 0",
             "Interrupt CompleteReadOfSize Bytes: 13 IOResult: 0",
             "Interrupt ReadPipeAsync IOResult: 0",
             "GetFrameWithTimeout complete. Id: 9 Size: 1",
             "Out WriteAsync Bytes: 64 IOResult: 0",
             "Out CompleteWriteAsyncOfSize Bytes: 64 IOReturn: 0",
             "Out WriteAsync Bytes: 0 IOResult: 0",
             "Out CompleteWriteAsyncOfSize Bytes: 0 IOReturn: 0",
             "SendFrameWithTimeout complete. Layer: 20 Id: 10 Size: 52",
             "Session_t::GetFrameWithTimeout - Timed out waiting to receive frame",
             "Out WriteAsync Bytes: 13 IOResult: 0",
             "iou::Session_t::SendFrameWithTimeout - Timed out waiting to send frame",
             "Out AbortPipe",
             "Out Pipe Destructed.",
             "Interrupt AbortPipe",
             "Bulk AbortPipe",
             "Session ended.",
         })
        expected.push_back(line);

    std::ifstream file(folder / "Trovik/IouUsbDebug.log");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    constexpr std::size_t cBanner = 2;
    ASSERT_EQ(lines.size(), cBanner + expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_TRUE(lines[cBanner + i].ends_with(": " + expected[i])) << lines[cBanner + i] << " for " << expected[i];
}

}  // namespace
