#include "ANT/ANT_Exception.hpp"
#include "app/TrovikMode/TrovikModeUtil.hpp"
#include "app/TrovikMode/UsbTrovikModeIoLink.hpp"
#include "tests/support/LogRecorder.hpp"
#include "tests/support/UsbWorld.hpp"

#include <gtest/gtest.h>

namespace {

using namespace support;
using simulator::Fault;
using simulator::FaultKind;

TEST(IoLink, TellsTheClassesOfExceptionsApart) {
    struct {
        std::function<void()> raise;
        const char* description;
    } const cases[] = {
        {[] { throw glo::Timeout_t("a/b/Here", 7); }, "issueCommand Timeout [File: Here at Line: 7]"},
        {[] { throw ant::AuthenticateReject_t("Here", 8); },
         "issueCommand Authentication Rejected [File: Here at Line: 8]"},
        {[] { throw ant::Exception_t("Here", 9, L"caf\u00e9"); },
         "issueCommand Failed [File: Here at Line: 9 Reason: caf\xC3\xA9]"},
        {[] { throw glo::ExitThread_t(); }, "issueCommand Failed: Unknown Exception [File:  at Line: 0]"},
        {[] { throw 1; }, "issueCommand Failed: Unknown Exception [File:  at Line: 0]"},
    };
    for (const auto& c : cases) {
        ScriptedDevice world;
        world.startsSession();
        const auto facade = UsbTrovikModeIoLink::initWithPath("scripted");
        LogRecorder log;
        Error error;
        error.userInfo["kept"] = "yes";
        world.usb.endsWrite({.raise = c.raise});
        EXPECT_TRUE(WaitsForItsLine(true, [&] { EXPECT_FALSE(facade->sendIopCommand(10, {}, false, &error)); }));
        EXPECT_EQ(error.description(), "TrovikModeIoLink: " + std::string(c.description));
        EXPECT_EQ(error.domain, "NonvolToolErrorDomain");
        EXPECT_EQ(error.code, 0);
        EXPECT_EQ(error.userInfo["kept"], "yes");
        world.usb.endsWrite({.raise = c.raise});
        EXPECT_FALSE(facade->sendIopCommand(10, {}, false, nullptr));
        const auto lines = log.take();
        ASSERT_EQ(lines.size(), 1U) << "without an error object nothing is logged";
        EXPECT_EQ(lines[0].logMsg, error.description());
        EXPECT_EQ(lines[0].logFlag, DDLogFlagError);
        EXPECT_EQ(lines[0].fileName() + " " + std::to_string(lines[0].lineNumber), "TrovikModeUtil 55");
    }
}

TEST(IoLink, ThatCannotBeMadeIsLoggedWithTheRaiseSite) {
    SimulatedDevice world;
    world.addFault(Fault::onPacket(5, FaultKind::Ignore).onLayer(0).committed(100));
    LogRecorder log;
    const auto logsOf = [&log](const std::optional<std::string>& path) {
        EXPECT_TRUE(WaitsForItsLine(true, [&] { EXPECT_FALSE(UsbTrovikModeIoLink::initWithPath(path)); }));
        const auto lines = log.take();
        return lines.size() == 1 ? lines[0].logMsg : std::to_string(lines.size()) + " lines";
    };
    const std::string start = "Error creating UsbTrovikModeIoLink at path:";
    EXPECT_EQ(logsOf(std::nullopt), start + "(null)\napp/TrovikMode/UsbTrovikModeIoLink on line 81");
    EXPECT_EQ(logsOf(world.path()), start + world.path() + "\nlibs/IOU/mac/IOU_Session on line 116");
    EXPECT_THROW(UsbTrovikModeIoLink::initWithPath(world.path() + "x"), int);
    EXPECT_TRUE(log.take().empty()) << "the caller's to log";
    EXPECT_TRUE(world.isUntouched());
}

}  // namespace
