#include "GLO/GLO_Exception.hpp"
#include "IOU/IOU_Exception.hpp"
#include "libs/IOU/mac/IOU_Session.hpp"
#include "tests/support/UsbWorld.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace support;

const std::string kSessionFile = "libs/IOU/mac/IOU_Session";
constexpr auto kInterrupt = ScriptedUsb::kInterruptIn;
constexpr win::Duration_t kLimit{3000};

iol::Frame_t frameOf(std::uint16_t id, std::size_t size) {
    return {id, std::vector<unsigned char>(size, 0x5A)};
}

/// Each act answers where it raised, or nothing.
struct StartedSession : StartedDevice, testing::Test {
    std::string gets(win::Duration_t limit = kLimit) {
        return raisedAt<glo::Timeout_t>([&] { link.GetFrameWithTimeout(limit); });
    }
    std::string sends(std::size_t size = 2, win::Duration_t limit = kLimit) {
        return raisedAt<glo::Timeout_t>([&] { link.SendFrameWithTimeout(frameOf(0x01FF, size), limit); });
    }
};

TEST(Session, StartLearnsTheUnitIdFromPipesInAnyOrderAsksForThePacketSizeAndLeavesNothingBehind) {
    auto profile = simulator::Profile::instant();
    std::swap(profile.pipes.front(), profile.pipes.back());
    profile.configurationValue = 7;
    SimulatedDevice world(profile);
    {
        auto link = world.openLink();
        EXPECT_EQ(link.UnitId(), 3812345678U);
        EXPECT_EQ(world.device().record().received(0), (std::vector<simulator::UsbPacket>{{0, 5, {}}, {0, 16, {}}}));
    }
    const auto modeOfSession = [&] { return iou::Session_t(world.path(), kLimit).RunLoopMode(); };
    EXPECT_NE(modeOfSession(), modeOfSession());
    EXPECT_TRUE(world.isUntouched());
    EXPECT_FALSE(world.loops.hasReadyBlocks());
    EXPECT_FALSE(world.clock.nextDue());
    EXPECT_TRUE(world.log().empty());
}

TEST(Session, StartIsAskedForEachHalfSecondUntilAnsweredOrTheTimeFromBeforeTheOpenIsUp) {
    // How long the open takes, whether the device takes the question, how long after the first one it answers; how
    // often it is asked, how long that takes, whether the session starts.
    const std::tuple<int, bool, int, unsigned, long long, bool> cases[] = {
        {0, true, 0, 1, 0, true},           {0, true, 499, 1, 499, true},     {0, true, 500, 1, 500, true},
        {0, true, 501, 2, 501, true},       {0, true, 2501, 6, 2501, true},   {0, true, 3000, 6, 3000, true},
        {0, true, 3001, 6, 3000, false},    {0, false, 3001, 6, 3000, false}, {2000, true, 1001, 2, 3000, false},
        {3500, false, 501, 1, 4000, false},
    };
    for (const auto& [opensIn, isTaken, answersIn, asked, waited, starts] : cases) {
        SCOPED_TRACE(testing::Message() << opensIn << ", " << isTaken << ", " << answersIn);
        ScriptedDevice world;
        world.usb.opensIn = milliseconds(opensIn);
        for (int i = 0; i < 6; ++i) world.usb.endsWrite({.ends = isTaken});
        const auto answered = milliseconds(opensIn + answersIn);
        world.usb.brings(kInterrupt, world.packet(0, 6, {1, 2, 3, 4}), {}, answered);
        world.usb.brings(kInterrupt, world.packet(0, 17, {12, 16, 0, 0}));
        std::string raised;
        EXPECT_EQ(world.timed([&] { raised = raisedAt<glo::Timeout_t>([&] { world.openLink(); }); }), waited);
        EXPECT_EQ(raised, starts ? "" : kSessionFile + " 116");
        EXPECT_EQ(world.usb.writes.size(), asked + (starts ? 1 : 0)) << "and the question for the size";
        EXPECT_TRUE(world.usb.isIdle());
    }
}

TEST(Session, OtherPacketsBeforeTheStartCostAnAttemptEach) {
    ScriptedDevice world;
    for (const auto& other : {world.packet(20, 6, {9, 9, 9, 9}), world.packet(0, 7, {9, 9, 9, 9}),
                              world.packet(0, 6, {9, 9, 9}), world.packet(0, 6, {9, 9, 9, 9, 9})})
        world.usb.brings(kInterrupt, other);
    world.startsSession();
    auto link = world.openLink();
    EXPECT_EQ(link.UnitId(), 0x04030201U);
    EXPECT_EQ(world.usb.writes.size(), 6U);  // five starts and the question for the size
}

TEST(Session, PacketSizeIsWhatTheDeviceSaysElse255) {
    // The layer and the payload of the answer, how long it takes, and the size.
    // clang-format off
    const std::tuple<std::uint8_t, Bytes, int, std::uint32_t> cases[] = {
        {0, {12, 16, 0, 0}, 0, 4096}, {0, {12, 16, 0, 0}, 3000, 4096}, {0, {12, 16, 0, 0}, 3001, 255},
        {0, {13, 0, 0, 0}, 0, 1}, {0, {12, 0, 0, 0}, 0, 255}, {0, {4, 0, 0, 0}, 0, 255},
        {0, {255, 255, 255, 255}, 0, 4294967283}, {20, {12, 16, 0, 0}, 0, 255}};
    // clang-format on
    for (const auto& [layer, answer, delay, size] : cases) {
        SCOPED_TRACE(testing::PrintToString(std::tie(layer, answer, delay)));
        ScriptedDevice world;
        world.usb.brings(kInterrupt, world.packet(0, 6, {1, 2, 3, 4}));
        world.usb.brings(kInterrupt, world.packet(layer, 17, answer), 0, milliseconds(delay));
        unsigned told = 0;
        EXPECT_EQ(world.timed([&] { told = world.openLink().MaxPacketSize(); }), std::min(delay, 3000));
        EXPECT_EQ(told, size);
    }
}

TEST_F(StartedSession, AnswersAndWritesCountUpToTheLimitAndNotBeyond) {
    for (const int delay : {2999, 3000, 3001}) {
        SCOPED_TRACE(delay);
        const bool inTime = delay <= 3000;
        usb.brings(kInterrupt, packet(20, 10), 0, milliseconds(delay));
        EXPECT_EQ(timed([&] { EXPECT_EQ(gets(), inTime ? "" : kSessionFile + " 258"); }), std::min(delay, 3000));
        EXPECT_TRUE(inTime || gets().empty()) << "the session stays usable";
        usb.endsWrite({.delay = milliseconds(delay)});
        EXPECT_EQ(sends(), inTime ? "" : kSessionFile + " 230");
    }
}

TEST_F(StartedSession, WithoutALimitWaitsForAYear) {
    EXPECT_NEAR(iou::ConvertDurationToAbsoluteTime(win::gcDurationInfinite),
                clock.CFAbsoluteTimeGetCurrent() + 31536000, 1e-3);
    usb.endsWrite({.delay = std::chrono::hours(1)});
    EXPECT_EQ(timed([&] { EXPECT_EQ(sends(2, win::gcDurationInfinite), ""); }), 3600000);
}

TEST(Session, FirstErrorStaysWhateverHasBeenReceivedAndNothingIsWrittenAfterIt) {
    constexpr auto cError = platform::kIOReturnIOError;
    const std::pair<void (*)(ScriptedDevice&), std::string> cases[] = {
        {[](auto& world) { world.usb.brings(kInterrupt, {}, cError); }, "libs/IOU/mac/IOU_InPipe 178"},
        {[](auto& world) { world.usb.endsWrite({.result = cError}); }, "libs/IOU/mac/IOU_OutPipe 126"},
    };
    for (const auto& [fails, site] : cases) {
        SCOPED_TRACE(site);
        ScriptedDevice world;
        world.startsSession();
        iou::Session_t session("scripted", kLimit);
        world.usb.brings(kInterrupt, world.packet(20, 10));
        fails(world);
        world.usb.endsWrite({.ends = false});
        const auto send = [&] { session.SendFrameWithTimeout(frameOf(10, 2), iou::Layer_t::Application, kLimit); };
        EXPECT_EQ(raisedAt<iou::BadUsbDevice_t>(send), site);
        session.ReportErrorWithCode(2, "second", 2);
        const auto get = [&] { session.GetFrameWithTimeout(kLimit); };
        EXPECT_EQ(raisedAt<iou::BadUsbDevice_t>(get), site);
        EXPECT_EQ(world.timed([&] { raisedAt<iou::BadUsbDevice_t>(send); }), 0);
        EXPECT_EQ(world.usb.writes.size(), 3U) << "two of them those of the start";
    }
}

}  // namespace
