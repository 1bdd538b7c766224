// The controller's state table, on a simulated device that misbehaves and in simulated time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/AppDelegate.hpp"
#include "app/TrovikMode/USBTrovikModeFinderUtils.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "tests/app/AppWorld.hpp"

namespace app_test {
namespace {

using simulator::BootState;
using simulator::BusOperation;
using simulator::Bytes;
using simulator::Fault;
using simulator::FaultKind;
using simulator::Pipe;
using simulator::Profile;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

const Lines kFound = {"I Device found, rebooting"};
const Lines kRebooted = {"I Device rebooted"};
const Lines kCleared = {"I Hold in bootloader sent", "I Nonvol cleared", "I Boot resumed"};

Lines operator+(Lines left, const Lines& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// The three ways in which a command fails on the device's part, and the one without a description.
std::string timedOut(const std::string& what, int line) {
    return "I " + what +
           ": TrovikModeIoLink: issueCommand Timeout [File: IOU_Session at Line: " + std::to_string(line) + "]";
}
std::string broke(const std::string& what, const std::string& place) {
    return "I " + what + ": TrovikModeIoLink: issueCommand Failed [File: " + place + "]";
}
std::string silently(const std::string& what) {
    return "I " + what + ": ";
}

const std::string kReboots = "Reboot failed", kHolds = "Hold in bootloader failed", kClears = "Nonvol clear failed",
                  kResumes = "Resume boot failed";
const std::string kGone = "IOU_InPipe at Line: 178";       ///< a read ended with an error
const std::string kHalted = "IOU_OutPipe at Line: 126";    ///< a write ended with an error
const std::string kNotBegun = "IOU_OutPipe at Line: 110";  ///< a write could not begin
const std::string kUnopened = "E Unknown exception caught at AppDelegate, LINE";

/// The line's number in the boundary's message moves with the source.
Lines withoutLine(Lines lines) {
    const std::string stem = kUnopened.substr(0, kUnopened.size() - 4);
    for (std::string& line : lines) {
        if (line.starts_with(stem)) line = kUnopened;
    }
    return lines;
}

TEST(AppDelegate, ResetsTheAttachedDeviceAndNothingElseReachesIt) {
    AppWorld app;
    app.world.plug();
    app.run();
    EXPECT_THAT(app.log.take(), ElementsAre("I Device detected but no action taken"));
    EXPECT_EQ(app.controller.nextAction(), NextAction::None);
    EXPECT_TRUE(app.shows(app.controller.outlets().notStartedView));

    app.confirmReset();
    EXPECT_TRUE(app.shows(app.controller.outlets().inProgressView));
    app.runWorker();
    EXPECT_EQ(app.controller.nextAction(), NextAction::ClearOnAttach);
    EXPECT_THAT(app.world.scripts.calls, ElementsAre("tell application \"Trovik Station\" to quit",
                                                     "tell application \"Trovik Station Service\" to quit"));
    EXPECT_FALSE(app.storeIsEmpty());

    app.run();
    EXPECT_EQ(app.controller.nextAction(), NextAction::None);
    EXPECT_TRUE(app.shows(app.controller.outlets().completeView));
    EXPECT_TRUE(app.storeIsEmpty());
    EXPECT_EQ(app.world.device().bootState(), BootState::Running);
    EXPECT_EQ(app.log.take(), kFound + kRebooted + kCleared);

    const auto traffic = expectedTrafficOfAReset();
    EXPECT_THAT(app.world.device().record().received(), ElementsAreArray(traffic));
    EXPECT_THAT(app.world.device().record().refused(), IsEmpty());
    EXPECT_TRUE(app.isAtRest());

    // Once done, a device that attaches is left alone.
    app.world.unplug();
    app.world.plug();
    app.run();
    EXPECT_THAT(app.log.take(), ElementsAre("I Device detected but no action taken"));
    EXPECT_EQ(app.world.device().record().received().size(), traffic.size());
}

TEST(AppDelegate, WaitsForADeviceWhereThereIsNone) {
    AppWorld app;
    app.confirmReset();
    app.runWorker();
    EXPECT_EQ(app.controller.nextAction(), NextAction::RebootOnAttach);
    EXPECT_THAT(app.log.take(), ElementsAre("I No device found, waiting for connection"));

    app.world.plug();
    app.world.runUntilQuiet(milliseconds(1500));  // it is off the bus for two seconds
    EXPECT_EQ(app.controller.nextAction(), NextAction::ClearOnAttach);
    EXPECT_EQ(app.log.take(), kRebooted);
    app.run();
    EXPECT_EQ(app.controller.nextAction(), NextAction::None);
    EXPECT_EQ(app.log.take(), kCleared);
    EXPECT_TRUE(app.storeIsEmpty());
    EXPECT_TRUE(app.shows(app.controller.outlets().completeView));
}

TEST(AppDelegate, QueryOfTheRegistryThatFailsCountsAsNoDevice) {
    AppWorld app;
    app.world.plug();
    app.run();
    app.world.bus.addFault(Fault::onOperation(BusOperation::IOServiceGetMatchingServices, platform::kIOReturnError));
    app.confirmReset();
    app.runWorker();
    EXPECT_EQ(app.controller.nextAction(), NextAction::RebootOnAttach);
    EXPECT_EQ(app.log.take().back(), "I No device found, waiting for connection");
}

TEST(AppDelegate, CompanionProgramsThatDoNotQuitAreKilledUnderTheApplicationsName) {
    AppWorld app;
    app.world.scripts.succeeds = false;
    app.controller.stopStation();
    EXPECT_THAT(
        app.world.scripts.calls,
        ElementsAre("tell application \"Trovik Station\" to quit", "/usr/bin/killall \"Trovik Station\"",
                    "tell application \"Trovik Station Service\" to quit", "/usr/bin/killall \"Trovik Station\""));
    EXPECT_THAT(app.log.take(), IsEmpty());
}

// ---- failures

/// One way in which a reset goes wrong, and what becomes of it before anybody does anything.
struct Failure {
    const char* name;
    Fault fault;
    Lines log;  ///< from the confirmation on
    NextAction afterwards;
    Profile profile = {};
};

void PrintTo(const Failure& failure, std::ostream* stream) {
    *stream << failure.name;
}

class AppDelegateFailure : public testing::TestWithParam<Failure> {};

TEST_P(AppDelegateFailure, LeadsToAnotherRebootAndTheNextAttachGoesOn) {
    const Failure& failure = GetParam();
    const bool completes = failure.afterwards == NextAction::None;
    AppWorld app(failure.profile);
    app.world.addFault(failure.fault);
    app.world.plug();
    app.run();
    app.log.take();
    app.confirmReset();
    app.run();
    EXPECT_EQ(app.world.device().record().faults().size(), failure.fault.times) << "the fault was met";
    EXPECT_EQ(withoutLine(app.log.take()), failure.log);
    EXPECT_EQ(app.controller.nextAction(), failure.afterwards);
    EXPECT_EQ(app.shows(app.controller.outlets().completeView), completes);
    EXPECT_EQ(app.shows(app.controller.outlets().inProgressView), !completes);
    EXPECT_TRUE(app.isAtRest());

    // The person does what the window says: pulls the cable and puts it in again.
    if (!completes) {
        app.world.unplug();
        app.world.plug();
        app.run();
    }
    EXPECT_TRUE(app.storeIsEmpty());
    EXPECT_TRUE(app.shows(app.controller.outlets().completeView));
    EXPECT_EQ(app.controller.nextAction(), NextAction::None);
    EXPECT_TRUE(app.isAtRest());
}

const Lines kBegun = kFound + kRebooted;
const Lines kDone = kBegun + kCleared;
const Lines kAgain = kRebooted + kCleared;
const Lines kHeld = kBegun + Lines{"I Hold in bootloader sent"};
const Lines kEmptied = kHeld + Lines{"I Nonvol cleared"};
const Lines kNoReboot = {kUnopened, silently(kReboots)};  ///< the reboot after a failure finds no device

constexpr NextAction kNone = NextAction::None, kReboot1 = NextAction::RebootOnAttach,
                     kClear2 = NextAction::ClearOnAttach;

Fault onUsb(std::uint16_t id, FaultKind kind) {
    return Fault::onPacket(id, kind).onLayer(0);
}
Fault late(std::uint16_t id, int delay) {
    return Fault::onAnswer(id, FaultKind::LateAnswer).withDelay(milliseconds(delay));
}
Fault identification(BootState state, unsigned occurrence, FaultKind kind = FaultKind::Unplug) {
    return Fault::onPacket(254, kind).inState(state).atOccurrence(occurrence);
}
Fault openDenied(unsigned occurrence) {
    return Fault::onOperation(BusOperation::USBDeviceOpen, platform::kIOReturnNotPermitted, occurrence);
}

const std::vector<Failure> kAnswers = {
    {"NoAnswerToHold", Fault::onPacket(113, FaultKind::Ignore), kBegun + Lines{timedOut(kHolds, 258)} + kAgain, kNone},
    {"AnswerToHoldJustInTime", late(113, 3000), kDone, kNone},
    {"AnswerToHoldJustTooLate", late(113, 3001), kBegun + Lines{timedOut(kHolds, 258)} + kAgain, kNone},
    {"AnswerToHoldUnderAnotherId", Fault::onAnswer(113, FaultKind::WrongAnswer).withNumber(114),
     kBegun + Lines{timedOut(kHolds, 258)} + kAgain, kNone},
    {"AnswerToHoldOnAnotherLayer", Fault::onAnswer(113, FaultKind::WrongLayer).withNumber(1),
     kBegun + Lines{timedOut(kHolds, 258)} + kAgain, kNone},
    {"GarbageForTheAnswerToHold", Fault::onAnswer(113, FaultKind::Garbage).withBytes(Bytes(50, 0x5A)),
     kBegun + Lines{timedOut(kHolds, 258)} + kAgain, kNone},
    {"ForeignPacketsBeforeTheAnswerToHold", Fault::onAnswer(113, FaultKind::ForeignFrames).withNumber(50), kDone,
     kNone},
    {"AnswerToHoldRepeated", Fault::onAnswer(113, FaultKind::Repeated).withNumber(20), kDone, kNone},
    {"ProductDataJustInTime", late(255, 3000), kDone, kNone},
    {"ProductDataJustTooLate", late(255, 3001), kFound + Lines{timedOut(kReboots, 258)}, kReboot1},
    {"ProductDataCutShort",
     Fault::onAnswer(255, FaultKind::Garbage).withBytes({20, 0, 0, 0, 255, 0, 0, 0, 1, 0, 0, 0, 9}),
     kFound + Lines{broke(kReboots, "IOA_ProductData at Line: 36 Reason: Frame: (ID,DATA)\nID: 255\n0000: 09 " +
                                        std::string(45, ' ') + "  .\n")},
     kReboot1},
    {"ProtocolsJustInTime", late(253, 1000), kDone, kNone},
    {"ProtocolsOfAnUnknownProductJustTooLate", late(253, 1001),
     kFound + Lines{broke(kReboots, "IOA_Channel at Line: 86")}, kReboot1},
    {"NoProtocolsForAnUnknownProduct", Fault::onAnswer(253, FaultKind::NoAnswer),
     kFound + Lines{broke(kReboots, "IOA_Channel at Line: 86")}, kReboot1},
    {"FirstStartOfASessionUnanswered", onUsb(5, FaultKind::Ignore), kDone, kNone},
    {"NoSessionAtAll", onUsb(5, FaultKind::Ignore).committed(6), kFound + Lines{silently(kReboots)}, kReboot1},
    {"LargestPacketNotTold", onUsb(16, FaultKind::Ignore), kDone, kNone},
};

const std::vector<Failure> kPipes = {
    {"InterruptPipeStalls", Fault::onAnswer(255, FaultKind::Stall), kFound + Lines{broke(kReboots, kGone)}, kReboot1},
    {"BulkInPipeStalls", Fault::onAnswer(255, FaultKind::Stall), kFound + Lines{broke(kReboots, kGone)}, kReboot1,
     Profile::wearable()},
    {"OutPipeStallsAtTheStart", onUsb(5, FaultKind::Stall), kFound + Lines{silently(kReboots)}, kReboot1},
    {"OutPipeStallsAtIdentification", Fault::onPacket(254, FaultKind::Stall), kFound + Lines{broke(kReboots, kHalted)},
     kReboot1},
    {"OutPipeStallsAtReboot", Fault::onCommand(0xAE, FaultKind::Stall), kFound + Lines{broke(kReboots, kHalted)},
     kReboot1},
    {"OutPipeStallsAtHold", Fault::onPacket(113, FaultKind::Stall), kBegun + Lines{broke(kHolds, kHalted)} + kAgain,
     kNone},
    {"OutPipeStallsAtClear", Fault::onCommand(0x27, FaultKind::Stall), kHeld + Lines{broke(kClears, kHalted)} + kAgain,
     kNone},
    {"OutPipeStallsAtResume", Fault::onPacket(1500, FaultKind::Stall),
     kEmptied + Lines{broke(kResumes, kHalted)} + kAgain, kNone},
    {"RebootCommandTakenJustInTime", Fault::onCommand(0xAE, FaultKind::NotTaken).withDelay(milliseconds(3000)), kDone,
     kNone},
    {"RebootCommandTakenJustTooLate", Fault::onCommand(0xAE, FaultKind::NotTaken).withDelay(milliseconds(3001)),
     kFound + Lines{timedOut(kReboots, 230)}, kReboot1},
    {"RebootCommandNotTaken", Fault::onCommand(0xAE, FaultKind::NotTaken), kFound + Lines{timedOut(kReboots, 230)},
     kReboot1},
};

const std::vector<Failure> kCables = {
    {"CableOutAtTheStart", onUsb(5, FaultKind::Unplug), kFound + Lines{silently(kReboots)}, kReboot1},
    {"CableOutAtTheQuestionForTheSize", onUsb(16, FaultKind::Unplug), kFound + Lines{silently(kReboots)}, kReboot1},
    {"CableOutAtIdentification", Fault::onPacket(254, FaultKind::Unplug), kFound + Lines{broke(kReboots, kGone)},
     kReboot1},
    {"CableOutBeforeReboot", Fault::onPacket(28, FaultKind::Unplug), kFound + Lines{broke(kReboots, kNotBegun)},
     kReboot1},
    {"CableOutWithTheRebootCommand", Fault::onCommand(0xAE, FaultKind::Unplug), kBegun, kClear2},
    {"CableOutAtTheStartBeforeHold", onUsb(5, FaultKind::Unplug).inState(BootState::Starting),
     kBegun + Lines{silently(kHolds)} + kNoReboot, kReboot1},
    {"CableOutAtTheQuestionForTheSizeBeforeHold", onUsb(16, FaultKind::Unplug).inState(BootState::Starting),
     kBegun + Lines{silently(kHolds)} + kNoReboot, kReboot1},
    {"CableOutAtIdentificationBeforeHold", identification(BootState::Starting, 1),
     kBegun + Lines{broke(kHolds, kGone)} + kNoReboot, kReboot1},
    {"CableOutAtHold", Fault::onPacket(113, FaultKind::Unplug), kBegun + Lines{broke(kHolds, kGone)} + kNoReboot,
     kReboot1},
    {"CableOutAtIdentificationBeforeClear", identification(BootState::HeldInBootLoader, 1),
     kHeld + Lines{broke(kClears, kGone)} + kNoReboot, kReboot1},
    {"CableOutWithTheClearCommand", Fault::onCommand(0x27, FaultKind::Unplug),
     kEmptied + Lines{broke(kResumes, kNotBegun)} + kNoReboot, kReboot1},
    {"CableOutAtIdentificationBeforeResume", identification(BootState::HeldInBootLoader, 2),
     kEmptied + Lines{broke(kResumes, kGone)} + kNoReboot, kReboot1},
    {"CableOutWithTheResumeCommand", Fault::onPacket(1500, FaultKind::Unplug), kDone, kNone},
    {"CableOutAtHoldAndInAgain", Fault::onPacket(113, FaultKind::Unplug).comingBackAfter(milliseconds(10'000)),
     kBegun + Lines{broke(kHolds, kGone)} + kNoReboot + kAgain, kNone},
};

const std::vector<Failure> kOpening = {
    {"RebootFindsTheDeviceDenied", openDenied(1), kFound + kNoReboot, kReboot1},
    {"ClearFindsTheDeviceDenied", openDenied(2), kBegun + Lines{kUnopened, silently(kHolds)} + kAgain, kNone},
    {"TheRebootAfterItFindsTheDeviceDeniedToo", openDenied(2).committed(2),
     kBegun + Lines{kUnopened, silently(kHolds)} + kNoReboot, kReboot1},
};

std::string nameOf(const testing::TestParamInfo<Failure>& row) {
    return row.param.name;
}
INSTANTIATE_TEST_SUITE_P(Answers, AppDelegateFailure, testing::ValuesIn(kAnswers), nameOf);
INSTANTIATE_TEST_SUITE_P(Pipes, AppDelegateFailure, testing::ValuesIn(kPipes), nameOf);
INSTANTIATE_TEST_SUITE_P(Cables, AppDelegateFailure, testing::ValuesIn(kCables), nameOf);
INSTANTIATE_TEST_SUITE_P(Opening, AppDelegateFailure, testing::ValuesIn(kOpening), nameOf);

TEST(AppDelegate, GarbageBeforeAnyAnswerIsPassedOver) {
    Bytes tooLong = simulator::encodePacket({20, 113, Bytes(100)});
    tooLong[8] = 99;
    for (const Bytes& garbage :
         {Bytes(11, 0), Bytes(64, 0xFF), Bytes(4097, 20), simulator::encodePacket({1, 113, {}}), tooLong}) {
        AppWorld app;
        for (const std::uint16_t answer : std::vector<std::uint16_t>{6, 17, 255, 253, 248, 113}) {
            app.world.addFault(Fault::onAnswer(answer, FaultKind::GarbageBefore).withBytes(garbage).committed(100));
        }
        app.world.plug();
        app.run();
        app.log.take();
        app.confirmReset();
        app.run();
        EXPECT_EQ(app.log.take(), kDone) << garbage.size();
        EXPECT_TRUE(app.storeIsEmpty());
        EXPECT_EQ(app.world.device().record().faults().size(), 17U) << "before every answer";
    }
}

// ---- attaching

TEST(AppDelegate, OfTwoDevicesAtOnceTheWorkerTakesTheFirstAndANotificationTheLast) {
    AppWorld app;
    const std::size_t second = app.world.bus.addDevice();
    app.confirmReset();
    app.runWorker();
    app.world.bus.plug({0, second});
    app.world.runUntilQuiet(milliseconds(1500));
    EXPECT_THAT(app.world.device(0).record().received(), IsEmpty());
    EXPECT_THAT(app.world.device(second).record().received(), ElementsAreArray(expectedTraffic({kReboot})));
    app.run();
    EXPECT_THAT(app.world.device(0).record().received(), IsEmpty());
    EXPECT_TRUE(app.world.device(second).store().empty());
    EXPECT_EQ(app.controller.nextAction(), NextAction::None);

    app.controller.returnToMainMenuButtonClicked();
    app.confirmReset();
    app.run();
    EXPECT_TRUE(app.storeIsEmpty());
}

TEST(AppDelegate, AttachedDeviceThatCannotBeNamedIsLeftAlone) {
    for (const auto operation :
         {BusOperation::IORegistryEntryGetPath, BusOperation::IORegistryEntryGetRegistryEntryID}) {
        AppWorld app;
        app.world.addFault(Fault::onOperation(operation, platform::kIOReturnError));
        app.world.plug();
        app.run();
        EXPECT_THAT(app.log.take(), IsEmpty());
        EXPECT_EQ(app.world.device().faults().size(), 0U);
        app.world.unplug();
        app.world.plug();
        app.run();
        EXPECT_THAT(app.log.take(), ElementsAre("I Device detected but no action taken"));
    }
}

TEST(AppDelegate, RegistryThatRefusesToReportIsLoggedAndTheFirstPhaseStillWorks) {
    AppWorld app;
    app.world.bus.addFault(
        Fault::onOperation(BusOperation::IOServiceAddMatchingNotification, platform::kIOReturnError));
    AppDelegate other;
    other.runTrovikModeListenLoop();
    EXPECT_THAT(app.log.take(), ElementsAre("I Could not start observing Trovik-mode device attaches."));
    app.world.plug();
    const auto devices = USBTrovikModeFinderUtils::connectedPaths();
    ASSERT_EQ(devices.value().size(), 1U);
    other.rebootDevice(devices->front());
    EXPECT_EQ(other.nextAction(), NextAction::ClearOnAttach);
}

// ---- what nobody caught

TEST(AppDelegate, UncaughtExceptionIsLoggedWithItsStackAndNotHandled) {
    AppWorld app;
    platform::NSException exception{"std::runtime_error", "no more", {"raise", "main"}};
    EXPECT_TRUE(app.controller.exceptionHandlerShouldLogException(exception, 255));
    EXPECT_FALSE(app.controller.exceptionHandlerShouldHandleException(exception, 255));
    EXPECT_THAT(app.log.take(),
                ElementsAre("E Exception: name: std::runtime_error reason: no more", "E Stack:\nraise\nmain\n"));

    // Without a stack of its own the current one is told; and it is told even where information is switched off.
    exception.callStackSymbols.clear();
    ddLogLevel = 1;
    EXPECT_TRUE(app.controller.exceptionHandlerShouldLogException(exception, 255));
    app.controller.trovikModeDeviceDetected({});
    ddLogLevel = 7;
    EXPECT_THAT(app.log.take(), ElementsAre("E Exception: name: std::runtime_error reason: no more",
                                            "E Stack:\nframe one\nframe two\n"));
}

}  // namespace
}  // namespace app_test
