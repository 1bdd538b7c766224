// The controller's state table, on a simulated device that misbehaves and in simulated time.
#include "GLO/GLO_Exception.hpp"
#include "app/AppDelegate.hpp"
#include "app/TrovikMode/UsbTrovikModeIoLink.hpp"
#include "platform/CFRunLoop.hpp"
#include "platform/Platform.hpp"
#include "tests/app/AppWorld.hpp"
#include "tests/support/LogRecorder.hpp"

#include <gmock/gmock.h>

#include <stdexcept>
#include <utility>
#include <vector>

namespace app_test {
namespace {

using simulator::BusOperation;
using simulator::Fault;
using std::chrono::milliseconds;
using testing::ElementsAre;
using Lines = std::vector<std::string>;

const Lines kFound = {"I Device found, rebooting"};
const Lines kRebooted = {"I Device rebooted"};
const Lines kCleared = {"I Hold in bootloader sent", "I Nonvol cleared", "I Boot resumed"};

Lines operator+(Lines left, const Lines& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// How a command fails on the device's part, or without a description.
Lines failed(const std::string& what, const std::string& how = {}) {
    return {"I " + what + ": " + (how.empty() ? how : "TrovikModeIoLink: issueCommand " + how + "]")};
}

const std::string kReboots = "Reboot failed", kHolds = "Hold in bootloader failed", kClears = "Nonvol clear failed",
                  kResumes = "Resume boot failed";
const std::string kGone = "Failed [File: IOU_InPipe at Line: 178";       ///< a read ended with an error
const std::string kHalted = "Failed [File: IOU_OutPipe at Line: 126";    ///< a write ended with an error
const std::string kNotBegun = "Failed [File: IOU_OutPipe at Line: 110";  ///< a write could not begin
const Lines kUnopened = {"E Unknown exception caught"};

TEST(AppDelegate, ResetsTheAttachedDeviceAndNothingElseReachesIt) {
    AppWorld app;
    app.attach();
    EXPECT_THAT(app.log.take(), ElementsAre("I Device detected but no action taken"));
    EXPECT_EQ(app.controller.nextAction(), NextAction::None);
    EXPECT_TRUE(app.shows(app.outlets.notStartedView));

    app.confirmReset();
    EXPECT_TRUE(app.shows(app.outlets.inProgressView));
    std::vector<bool> unfinished;  // before each command leaves
    UsbTrovikModeIoLink::setIdentificationObserver(
        [&](auto&&...) { unfinished.push_back(app.controller.isResetUnfinished()); });
    app.runWorker();
    EXPECT_EQ(app.controller.nextAction(), NextAction::ClearOnAttach);
    EXPECT_THAT(app.world.scripts.calls, ElementsAre("tell application \"Trovik Station\" to quit",
                                                     "tell application \"Trovik Station Service\" to quit"));
    EXPECT_FALSE(app.storeIsEmpty());

    platform::CFRunLoopGetCurrent()->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, 60, false);
    EXPECT_TRUE(app.storeIsEmpty() && app.shows(app.outlets.inProgressView));
    EXPECT_EQ(app.world.mainQueue.waiting(), 1U) << "what shows that it is complete";
    app.run();
    UsbTrovikModeIoLink::setIdentificationObserver({});
    EXPECT_EQ(unfinished, std::vector<bool>(4, true));
    app.expectReset();
    EXPECT_EQ(app.world.device().bootState(), simulator::BootState::Running);
    EXPECT_EQ(app.log.take(), kFound + kRebooted + kCleared);
    EXPECT_THAT(app.world.device().record().received(), testing::ElementsAreArray(expectedTrafficOfAReset()));
    EXPECT_THAT(app.world.device().record().refused(), testing::IsEmpty());
}

TEST(AppDelegate, WaitsForADeviceWhereThereIsNoneOrNoAnswerFromTheRegistry) {
    for (const bool attached : {false, true}) {
        AppWorld app;
        app.world.scripts.succeeds = false;  // companions that do not quit are killed, both under the first one's name
        if (attached) {
            app.attach();
            app.log.take();
            app.world.bus.addFault(
                Fault::onOperation(BusOperation::IOServiceGetMatchingServices, platform::kIOReturnError));
        }
        app.confirmReset();
        app.runWorker();
        EXPECT_EQ(app.controller.nextAction(), NextAction::RebootOnAttach);
        EXPECT_THAT(app.log.take(), ElementsAre("I No device found, waiting for connection"));
        EXPECT_THAT(
            app.world.scripts.calls,
            ElementsAre("tell application \"Trovik Station\" to quit", "/usr/bin/killall \"Trovik Station\"",
                        "tell application \"Trovik Station Service\" to quit", "/usr/bin/killall \"Trovik Station\""));

        app.controller.returnToMainMenuButtonClicked();  // changes the screen and nothing else
        EXPECT_TRUE(app.shows(app.outlets.notStartedView));

        app.world.unplug();
        app.world.plug();
        app.world.runUntilQuiet(milliseconds(1500));  // it is off the bus for two seconds
        EXPECT_EQ(app.controller.nextAction(), NextAction::ClearOnAttach);
        EXPECT_EQ(app.log.take(), kRebooted);
        app.run();
        app.expectReset();
        EXPECT_EQ(app.log.take(), kCleared);
    }
}

// ---- failures

/// One way in which a reset goes wrong, and what becomes of it before anybody does anything.
struct Failure {
    const char* name;
    Fault fault;
    Lines log;  ///< from the confirmation on

    /// The last line says what comes next.
    NextAction afterwards() const {
        if (log.back() == kCleared.back()) return NextAction::None;
        return log.back() == kRebooted.back() ? NextAction::ClearOnAttach : NextAction::RebootOnAttach;
    }
};

const Lines kBegun = kFound + kRebooted;
const Lines kDone = kBegun + kCleared;
const Lines kAgain = kRebooted + kCleared;
const Lines kHeld = kBegun + Lines{"I Hold in bootloader sent"};
const Lines kEmptied = kHeld + Lines{"I Nonvol cleared"};
const Lines kNoReboot = kUnopened + failed(kReboots);  ///< the reboot after a failure finds no device

using enum simulator::FaultKind;

Fault openDenied(unsigned occurrence) {
    return Fault::onOperation(BusOperation::USBDeviceOpen, platform::kIOReturnNotPermitted, occurrence);
}

const std::vector<Failure> kFailures = {
    {"RebootCommandTakenJustInTime", Fault::onCommand(0xAE, NotTaken).withDelay(milliseconds(3000)), kDone},
    {"RebootCommandTakenJustTooLate", Fault::onCommand(0xAE, NotTaken).withDelay(milliseconds(3001)),
     kFound + failed(kReboots, "Timeout [File: IOU_Session at Line: 230")},
    {"AnswerToHoldJustInTime", Fault::onAnswer(113, LateAnswer).withDelay(milliseconds(3000)), kDone},
    {"AnswerToHoldJustTooLate", Fault::onAnswer(113, LateAnswer).withDelay(milliseconds(3001)),
     kBegun + failed(kHolds, "Timeout [File: IOU_Session at Line: 258") + kAgain},

    {"OutPipeStallsAtClear", Fault::onCommand(0x27, Stall), kHeld + failed(kClears, kHalted) + kAgain},
    {"OutPipeStallsAtResume", Fault::onPacket(1500, Stall), kEmptied + failed(kResumes, kHalted) + kAgain},

    {"CableOutAtTheStartBeforeHold", Fault::onPacket(5, Unplug).onLayer(0).inState(simulator::BootState::Starting),
     kBegun + failed(kHolds) + kNoReboot},
    {"CableOutWithTheClearCommand", Fault::onCommand(0x27, Unplug), kEmptied + failed(kResumes, kNotBegun) + kNoReboot},
    {"CableOutAtHoldAndInAgain", Fault::onPacket(113, Unplug).comingBackAfter(milliseconds(10'000)),
     kBegun + failed(kHolds, kGone) + kNoReboot + kAgain},

    {"RebootFindsTheDeviceDenied", openDenied(1), kFound + kNoReboot},
    {"ClearFindsTheDeviceDenied", openDenied(2), kBegun + kUnopened + failed(kHolds) + kAgain},
};

TEST(AppDelegate, FailureLeadsToAnotherRebootAndTheNextAttachGoesOn) {
    for (const Failure& failure : kFailures) {
        SCOPED_TRACE(failure.name);
        AppWorld app;
        app.world.addFault(failure.fault);
        app.attach();
        app.log.take();
        support::LogRecorder all;
        app.confirmReset();
        app.run();
        EXPECT_EQ(app.world.device().record().faults().size(), failure.fault.times) << "the fault was met";
        bool isNamed = false;
        for (const auto& message : all.take()) isNamed |= message.logMsg.starts_with("TRV-401 ");
        EXPECT_EQ(isNamed, failure.name == std::string("OutPipeStallsAtClear"));
        EXPECT_EQ(app.log.take(), failure.log);
        EXPECT_EQ(app.controller.nextAction(), failure.afterwards());
        EXPECT_TRUE(app.isAtRest());

        // The person does what the window says: pulls the cable and puts it in again.
        if (failure.afterwards() != NextAction::None) {
            EXPECT_TRUE(app.shows(app.outlets.inProgressView));
            app.attach();
        }
        app.expectReset();
    }
}

// ---- attaching

TEST(AppDelegate, OfDevicesAtOnceTheWorkerTakesTheFirstAndANotificationTheLastPathIfItHoldsAnId) {
    constexpr auto kPath = BusOperation::IORegistryEntryGetPath, kId = BusOperation::IORegistryEntryGetRegistryEntryID;
    const std::pair<std::vector<std::pair<std::size_t, BusOperation>>, std::size_t> cases[] = {
        {{}, 1}, {{{1, kPath}}, 0}, {{{1, kId}}, 1}, {{{0, kId}, {1, kId}}, 9}};
    for (const auto& [unreadable, taken] : cases) {
        SCOPED_TRACE(testing::Message() << unreadable.size() << " unreadable, takes " << taken);
        AppWorld app;
        simulator::Profile lookalike;
        lookalike.releaseNumber = 2;
        app.world.bus.addDevice(simulator::Profile::wearable());
        app.world.bus.addDevice(lookalike);
        for (const auto& [port, operation] : unreadable)
            app.world.addFault(Fault::onOperation(operation, platform::kIOReturnError), port);
        app.confirmReset();
        app.runWorker();
        app.world.bus.plug({0, 1, 2});
        app.run();
        for (std::size_t port = 0; port < 3; ++port) {
            EXPECT_EQ(app.world.device(port).store().empty(), port == taken) << port;
            EXPECT_EQ(app.world.device(port).record().received().empty(), port != taken) << port;
        }

        app.controller.returnToMainMenuButtonClicked();
        app.confirmReset();
        app.run();
        EXPECT_TRUE(app.storeIsEmpty());
        app.log.take();
        app.controller.runTrovikModeListenLoop();
        EXPECT_THAT(app.log.take(), testing::IsEmpty()) << "what is there already is not an attachment";
    }
}

TEST(AppDelegate, CompanionHasQuitBeforeTheLookForDevices) {
    AppWorld app;
    app.world.scripts.onScript = [&] { app.world.plug(); };  // it held the device
    app.confirmReset();
    app.runWorker();
    EXPECT_EQ(app.log.take(), kFound + kRebooted);
    support::LogRecorder end;
    app.controller.quitButtonClicked();
    EXPECT_TRUE(end.take().back().logMsg.starts_with("TRV-403 "));
}

TEST(AppDelegate, WhatTheWorkerOrTheListenerThrowsIsLoggedAndTheNextAttachGoesOn) {
    AppWorld app;
    app.world.scripts.onScript = [] { throw glo::Timeout_t("libs/X", 5); };
    app.confirmReset();
    app.runWorker();
    EXPECT_THAT(app.log.take(), ElementsAre("E Exception thrown at libs/X, 5; caught"));
    EXPECT_EQ(app.controller.nextAction(), NextAction::RebootOnAttach);

    app.world.bus.addFault(
        Fault::onOperation(BusOperation::IOServiceAddMatchingNotification, platform::kIOReturnError));
    platform::CFRunLoopGetCurrent()->CFRunLoopPerformBlock(platform::kCFRunLoopDefaultMode,
                                                           [] { throw std::runtime_error("text"); });
    AppDelegate other;  // whose listener hears of no device
    other.runTrovikModeListenLoop();
    EXPECT_THAT(app.log.take(),
                ElementsAre("I Could not start observing Trovik-mode device attaches.", kUnopened.front()));
    app.attach();
    app.expectReset();
}

// ---- what nobody caught

TEST(AppDelegate, UncaughtExceptionIsLoggedWithItsStackAndNotHandled) {
    AppWorld app;
    const std::string first = "E Exception: name: std::runtime_error reason: no more";
    platform::NSException exception{"std::runtime_error", "no more", {"raise", "main"}};
    EXPECT_TRUE(app.controller.exceptionHandlerShouldLogException(exception, 255));
    EXPECT_FALSE(app.controller.exceptionHandlerShouldHandleException(exception, 255));
    EXPECT_THAT(app.log.take(), ElementsAre(first, "E Stack:\nraise\nmain\n"));

    exception.callStackSymbols.clear();  // the current one is told in its place
    EXPECT_TRUE(app.controller.exceptionHandlerShouldLogException(exception, 255));
    EXPECT_THAT(app.log.take(), ElementsAre(first, "E Stack:\nframe one\nframe two\n"));
}

}  // namespace
}  // namespace app_test
