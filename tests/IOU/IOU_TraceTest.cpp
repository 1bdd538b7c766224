#include "IOL/IOL_Packet.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/UsbWorld.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
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
    static const std::regex kStamp("^[0-9]{2}:[0-9]{2}:[0-9]{2}: ", std::regex::ECMAScript | std::regex::multiline);
    return std::regex_replace(behindBanner, kStamp, "");
}

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
    for (const std::string name : {"IoLinkDebug.txt.log", "IouUsbDebug.log"})
        EXPECT_EQ(traced(folder / ("Trovik/" + name)), ReadFile(TROVIK_SOURCE_DIR "/tests/IOU/" + name)) << name;
}

}  // namespace
