#include "app/TrovikMode/UsbTrovikModeIoLink.hpp"

#include <gtest/gtest.h>

#include "ANT/ANT_Exception.hpp"
#include "app/TrovikMode/TrovikModeUtil.hpp"
#include "tests/support/LogRecorder.hpp"
#include "tests/support/UsbWorld.hpp"

namespace {

using namespace support;
using simulator::Fault;
using simulator::FaultKind;

/// The one line that was logged.
std::string onlyText(LogRecorder& log) {
    auto const logged = log.take();
    return logged.size() == 1 ? logged[0].logMsg : std::to_string(logged.size()) + " lines";
}

Bytes const kKeepAlive = {0xAC, 0x02};  // as an argument of command 10
constexpr char kPrefix[] = "TrovikModeIoLink: ";

TEST(IoLink, HoldsOneSessionAndIdentifiesTheDeviceForEachCommand) {
    SimulatedDevice world;
    {
        auto const facade = UsbTrovikModeIoLink::initWithPath(world.path());
        ASSERT_TRUE(facade);
        EXPECT_EQ(facade->ioPath(), world.path());
        EXPECT_EQ(facade->unitId(), 0U);
        Error error;
        EXPECT_TRUE(facade->sendIopCommand(10, kKeepAlive, false, &error));
        EXPECT_TRUE(facade->sendIopCommand(10, kKeepAlive, false, nullptr));
        EXPECT_EQ(error, Error{});
        EXPECT_EQ(world.received(0).size(), 2U) << "one start of a session and one question for the size";
        auto const packets = world.received(20);
        ASSERT_EQ(packets.size(), 6U);
        for (std::size_t i = 0; i < 6; i += 3) {
            EXPECT_EQ(packets[i], (simulator::UsbPacket{20, 254, {}}));
            EXPECT_EQ(packets[i + 1], (simulator::UsbPacket{20, 28, {0, 0}}));
            EXPECT_EQ(packets[i + 2], (simulator::UsbPacket{20, 10, kKeepAlive}));
        }
    }
    EXPECT_TRUE(world.isUntouched());
}

TEST(IoLink, DescribesAndLogsEachFailure) {
    struct {
        char const* what;
        Fault fault;
        std::string start, end;
        long long milliseconds;
    } const cases[] = {
        {"no reply to the command", Fault::onAnswer(113, FaultKind::NoAnswer), "issueCommand Timeout [",
         "File: IOU_Session at Line: 258]", 3000},
        {"product data too short",
         Fault::onAnswer(255, FaultKind::Garbage).withBytes(ScriptedDevice::packet(20, 255, {1})),
         "issueCommand Failed [File: IOA_ProductData at Line: ",
         "\nID: 255\n0000: 01 " + std::string(45, ' ') + "  .\n]", 0},
    };
    for (auto const& c : cases) {
        SimulatedDevice world;

        world.device().setBootState(simulator::BootState::Starting, world.clock.now());
        world.addFault(c.fault);
        auto const facade = UsbTrovikModeIoLink::initWithPath(world.path());
        LogRecorder log;
        Error error;
        error.userInfo["kept"] = "yes";
        EXPECT_EQ(world.timed([&] { EXPECT_FALSE(facade->sendIopCommand(113, {}, true, &error)); }), c.milliseconds)
            << c.what;
        EXPECT_TRUE(error.description().starts_with(kPrefix + c.start)) << error.description();
        EXPECT_TRUE(error.description().ends_with(c.end)) << error.description();
        EXPECT_EQ(error.domain, "NonvolToolErrorDomain");
        EXPECT_EQ(error.code, 0);
        EXPECT_EQ(error.userInfo["kept"], "yes");
        auto const lines = log.take();
        ASSERT_EQ(lines.size(), 1U) << c.what;
        EXPECT_EQ(lines[0].logMsg, error.description());
        EXPECT_EQ(lines[0].logFlag, DDLogFlagError);
        EXPECT_EQ(lines[0].fileName() + " " + std::to_string(lines[0].lineNumber), "TrovikModeUtil 55");
    }
}

TEST(IoLink, TellsTheClassesOfExceptionsApart) {
    struct {
        std::function<void()> raise;
        char const* description;
    } const cases[] = {
        {[] { throw glo::Timeout_t("a/b/Here", 7); }, "issueCommand Timeout [File: Here at Line: 7]"},
        {[] { throw ant::AuthenticateReject_t("Here", 8); },
         "issueCommand Authentication Rejected [File: Here at Line: 8]"},
        {[] { throw ant::Exception_t("Here", 9, L"caf\u00e9"); },
         "issueCommand Failed [File: Here at Line: 9 Reason: caf\xC3\xA9]"},
        {[] { throw glo::ExitThread_t(); }, "issueCommand Failed: Unknown Exception [File:  at Line: 0]"},
        {[] { throw 1; }, "issueCommand Failed: Unknown Exception [File:  at Line: 0]"},
    };
    for (auto const& c : cases) {
        ScriptedDevice world;
        world.startsSession();
        auto const facade = UsbTrovikModeIoLink::initWithPath("scripted");
        LogRecorder log;
        Error error;
        world.usb.endsWrite({.raise = c.raise});
        EXPECT_FALSE(facade->sendIopCommand(10, {}, false, &error));
        EXPECT_EQ(error.description(), kPrefix + std::string(c.description));
        world.usb.endsWrite({.raise = c.raise});
        EXPECT_FALSE(facade->sendIopCommand(10, {}, false, nullptr));
        EXPECT_EQ(onlyText(log), error.description()) << "without an error object nothing is logged";
    }
}

TEST(IoLink, ThatCannotBeMadeIsLoggedWithTheRaiseSite) {
    SimulatedDevice world;
    auto const path = world.path();
    world.addFault(Fault::onPacket(5, FaultKind::Ignore).onLayer(0).committed(100));
    {
        LogRecorder log;
        EXPECT_FALSE(UsbTrovikModeIoLink::initWithPath(std::nullopt));
        EXPECT_EQ(onlyText(log),
                  "Error creating UsbTrovikModeIoLink at path:(null)\napp/TrovikMode/UsbTrovikModeIoLink on line 81");
    }
    {
        LogRecorder log;
        EXPECT_FALSE(UsbTrovikModeIoLink::initWithPath(path));
        EXPECT_EQ(onlyText(log),
                  "Error creating UsbTrovikModeIoLink at path:" + path + "\nlibs/IOU/mac/IOU_Session on line 116");
    }
    {
        LogRecorder log;
        EXPECT_THROW(UsbTrovikModeIoLink::initWithPath(path + "x"), int);
        EXPECT_TRUE(log.take().empty()) << "the caller's to log";
    }
    EXPECT_TRUE(world.isUntouched());
}

}  // namespace
