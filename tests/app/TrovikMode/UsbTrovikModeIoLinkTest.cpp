#include "ANT/ANT_Exception.hpp"
#include "IOA/IOA_Exception.hpp"
#include "app/TrovikMode/TrovikModeUtil.hpp"
#include "app/TrovikMode/UsbTrovikModeIoLink.hpp"
#include "tests/support/LogRecorder.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/UsbWorld.hpp"

#include <gmock/gmock.h>

#include <array>
#include <filesystem>
#include <sys/stat.h>
#include <tuple>
#include <utility>

namespace {

using namespace support;
using simulator::FaultKind;

TEST(IoLink, TellsTheClassesOfExceptionsApart) {
    const std::tuple<std::function<void()>, std::string, const char*> cases[] = {
        {[] { throw glo::Timeout_t("a/b/Here", 7); }, "issueCommand Timeout [File: Here at Line: 7]", "TRV-303"},
        {[] { throw ant::AuthenticateReject_t("Here", 8); },
         "issueCommand Authentication Rejected [File: Here at Line: 8]", "TRV-306"},
        {[] { throw ant::Exception_t("Here", 9, L"caf\u00e9"); },
         "issueCommand Failed [File: Here at Line: 9 Reason: caf\xC3\xA9]", "TRV-302"},
        {[] { throw ioa::Exception_t("Here", 10); }, "issueCommand Failed [File: Here at Line: 10]", "TRV-304"},
        {[] { throw ioa::InvalidProtocolInformation_t("Here", 11); }, "issueCommand Failed [File: Here at Line: 11]",
         "TRV-305"},
        {[] { throw glo::ExitThread_t(); }, "issueCommand Failed: Unknown Exception [File:  at Line: 0]", "TRV-901"},
        {[] { throw 1; }, "issueCommand Failed: Unknown Exception [File:  at Line: 0]", "TRV-901"},
    };
    for (const auto& [raise, description, id] : cases) {
        ScriptedDevice world;
        world.startsSession();
        const auto facade = UsbTrovikModeIoLink::initWithPath("scripted");
        LogRecorder log;
        Error error;
        error.userInfo["kept"] = "yes";
        world.usb.endsWrite({.raise = raise});
        EXPECT_TRUE(WaitsForItsLine(true, [&] { EXPECT_FALSE(facade->sendIopCommand(10, {}, false, &error)); }));
        EXPECT_EQ(error.description(), "TrovikModeIoLink: " + description);
        EXPECT_EQ(error.domain, "NonvolToolErrorDomain");
        EXPECT_EQ(error.code, 0);
        EXPECT_EQ(error.userInfo["kept"], "yes");
        world.usb.endsWrite({.raise = raise});
        EXPECT_FALSE(facade->sendIopCommand(10, {}, false, nullptr));
        const auto lines = log.take();
        ASSERT_EQ(lines.size(), 2U) << "without an error object nothing is logged";
        EXPECT_EQ(lines[0].logMsg, error.description());
        EXPECT_EQ(lines[0].logFlag, DDLogFlagError);
        EXPECT_EQ(lines[0].fileName() + " " + std::to_string(lines[0].lineNumber), "TrovikModeUtil 55");
        EXPECT_THAT(lines[1].logMsg, testing::StartsWith(id));
    }
}

TEST(IoLink, ThatCannotBeMadeIsLoggedWithTheRaiseSite) {
    SimulatedDevice world;
    world.addFault(simulator::Fault::onPacket(5, FaultKind::Ignore).onLayer(0).committed(100));
    LogRecorder log;
    const auto logsOf = [&log](const std::optional<std::string>& path) {
        EXPECT_TRUE(WaitsForItsLine(true, [&] { EXPECT_FALSE(UsbTrovikModeIoLink::initWithPath(path)); }));
        const auto lines = log.take();
        if (lines.size() != 2) return std::to_string(lines.size()) + " lines";
        EXPECT_EQ(lines[0].logFlag, DDLogFlagError);
        EXPECT_EQ(lines[1].logFlag, DDLogFlagWarning);
        return lines[0].logMsg + "\n" + lines[1].logMsg.substr(0, 7);
    };
    const std::string start = "Error creating UsbTrovikModeIoLink at path:";
    EXPECT_EQ(logsOf(std::nullopt), start + "(null)\napp/TrovikMode/UsbTrovikModeIoLink on line 81\nTRV-901");
    EXPECT_EQ(logsOf(world.path()), start + world.path() + "\nlibs/IOU/mac/IOU_Session on line 116\nTRV-303");
    EXPECT_THROW(UsbTrovikModeIoLink::initWithPath(world.path() + "x"), int);
    EXPECT_TRUE(log.take().empty()) << "the caller's to log";
    EXPECT_TRUE(world.isUntouched());
}

TEST(IoLink, SaysOnceInOneLineWhatTheDeviceSaysOfItselfWithoutAskingForIt) {
    simulator::Profile profile = simulator::Profile::instant();
    profile.softwareVersion = -205;
    profile.descriptions = {"Two\nlines\r\x1B[31m", "broken \xFF\xC3("};
    profile.extendedProductData = {{"größer\xE2\x80\xAE"}};
    const std::string line =
        R"(: unit id 3812345678, product 1000, version -2.05, "Two\x0Alines\x0D\x1B[31m", "broken )"
        "\uFFFD\uFFFD(\", \"größer\\xE2\\x80\\xAE\"";
    SimulatedDevice world(profile);
    const auto link = UsbTrovikModeIoLink::initWithPath(world.path());
    EXPECT_EQ(link->takeIdentification(), "");
    EXPECT_TRUE(link->sendIopCommand(10, std::array<unsigned char, 2>{0x27, 0}, false, nullptr));
    EXPECT_THAT(link->takeIdentification(), "Device at port 1-1" + line);
    const auto asked = world.device().record().received().size();
    EXPECT_TRUE(link->sendIopCommand(10, std::array<unsigned char, 2>{0x27, 0}, false, nullptr));
    EXPECT_EQ(link->takeIdentification(), "");
    EXPECT_EQ(asked, 2 + 3U) << "the session's start, and a command with its identification";
}

TEST(IoLink, NamesADeviceThatHasGoneAndAConnectionThatFailsApart) {
    for (const auto& [kind, id] : {std::pair(FaultKind::Unplug, "TRV-301"), std::pair(FaultKind::Stall, "TRV-302")}) {
        SimulatedDevice world;
        world.addFault(simulator::Fault::onPacket(113, kind));
        const auto link = UsbTrovikModeIoLink::initWithPath(world.path());
        LogRecorder log;
        Error error;
        EXPECT_FALSE(link->sendIopCommand(113, {}, true, &error));
        EXPECT_THAT(log.take().back().logMsg, testing::StartsWith(id));
    }
}

TEST(IoLink, OfADeviceThatAnotherProgramResetsIsNotMade) {
    SimulatedDevice world;
    const TemporaryFolder folder;
    const platform::PlatformScope scope(
        {.clock = &world.clock, .runLoops = &world.loops, .masterPort = &world.bus, .lockFolder = folder.path()});
    auto other = DeviceLock::takePort(world.path());
    EXPECT_TRUE(other && !UsbTrovikModeIoLink::initWithPath(world.path()));
    other.reset();
    const auto facade = UsbTrovikModeIoLink::initWithPath(world.path());
    EXPECT_TRUE(facade && !DeviceLock::takePort(world.path())) << "the window keeps it as long as its link";
    facade->giveUpLock();
    EXPECT_TRUE(DeviceLock::takePort(world.path())) << "the device may be back before its link is closed";

    ASSERT_EQ(::mkfifo((folder / "trovik-reset-1-8.lock").c_str(), 0600), 0);
    LogRecorder log;
    const mode_t before = ::umask(077);
    EXPECT_TRUE(DeviceLock::take("1-8") && DeviceLock::take("1-9")) << "without a wait for the FIFO's writer";
    ::umask(before);
    EXPECT_THAT(log.take().back().logMsg, testing::HasSubstr("1-8.lock: Invalid argument"));
    const auto mode = std::filesystem::status(folder / "trovik-reset-1-9.lock").permissions();
    EXPECT_EQ(mode, std::filesystem::perms(0644)) << "another user's run has to open it";
}

}  // namespace
