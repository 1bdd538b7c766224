// The controller's state table, on a simulated device that misbehaves and in simulated time.
#include "GLO/GLO_Exception.hpp"
#include "app/AppDelegate.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "platform/CFRunLoop.hpp"
#include "platform/Platform.hpp"
#include "platform/common/IOServiceList.hpp"
#include "tests/app/AppWorld.hpp"

#include <gmock/gmock.h>

#include <set>
#include <stdexcept>

namespace app_test {
namespace {

using simulator::BootState;
using simulator::BusOperation;
using simulator::Fault;
using simulator::FaultKind;
using std::chrono::milliseconds;
using testing::Contains;
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

/// How a command fails on the device's part, or without a description.
Lines failed(const std::string& what, const std::string& how = {}) {
    return {"I " + what + ": " + (how.empty() ? how : "TrovikModeIoLink: issueCommand " + how + "]")};
}

const std::string kReboots = "Reboot failed", kHolds = "Hold in bootloader failed", kClears = "Nonvol clear failed",
                  kResumes = "Resume boot failed";
const std::string kGone = "Failed [File: IOU_InPipe at Line: 178";       ///< a read ended with an error
const std::string kHalted = "Failed [File: IOU_OutPipe at Line: 126";    ///< a write ended with an error
const std::string kNotBegun = "Failed [File: IOU_OutPipe at Line: 110";  ///< a write could not begin
const std::string kNotObserving = "I Could not start observing Trovik-mode device attaches.";
const Lines kUnopened = {"E Unknown exception caught"};

TEST(AppDelegate, ResetsTheAttachedDeviceAndNothingElseReachesIt) {
    AppWorld app;
    app.attach();
    EXPECT_THAT(app.log.take(), ElementsAre("I Device detected but no action taken"));
    EXPECT_EQ(app.controller.nextAction(), NextAction::None);
    EXPECT_TRUE(app.shows(app.outlets.notStartedView));

    app.confirmReset();
    EXPECT_TRUE(app.shows(app.outlets.inProgressView));
    app.runWorker();
    EXPECT_EQ(app.controller.nextAction(), NextAction::ClearOnAttach);
    EXPECT_THAT(app.world.scripts.calls, ElementsAre("tell application \"Trovik Station\" to quit",
                                                     "tell application \"Trovik Station Service\" to quit"));
    EXPECT_FALSE(app.storeIsEmpty());

    platform::CFRunLoopGetCurrent()->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, 60, false);
    EXPECT_TRUE(app.storeIsEmpty() && app.shows(app.outlets.inProgressView));
    EXPECT_EQ(app.world.mainQueue.waiting(), 1U) << "what shows that it is complete";
    app.run();
    app.expectReset();
    EXPECT_EQ(app.world.device().bootState(), BootState::Running);
    EXPECT_EQ(app.log.take(), kFound + kRebooted + kCleared);
    const auto traffic = expectedTrafficOfAReset();
    EXPECT_THAT(app.world.device().record().received(), ElementsAreArray(traffic));
    EXPECT_THAT(app.world.device().record().refused(), IsEmpty());

    // Once done, a device that attaches is left alone.
    app.attach();
    EXPECT_THAT(app.log.take(), ElementsAre("I Device detected but no action taken"));
    EXPECT_EQ(app.world.device().record().received().size(), traffic.size());
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

using enum FaultKind;

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

    {"OutPipeStallsAtHold", Fault::onPacket(113, Stall), kBegun + failed(kHolds, kHalted) + kAgain},
    {"OutPipeStallsAtClear", Fault::onCommand(0x27, Stall), kHeld + failed(kClears, kHalted) + kAgain},
    {"OutPipeStallsAtResume", Fault::onPacket(1500, Stall), kEmptied + failed(kResumes, kHalted) + kAgain},

    {"CableOutWithTheRebootCommand", Fault::onCommand(0xAE, Unplug), kBegun},
    {"CableOutAtTheStartBeforeHold", Fault::onPacket(5, Unplug).onLayer(0).inState(BootState::Starting),
     kBegun + failed(kHolds) + kNoReboot},
    {"CableOutWithTheClearCommand", Fault::onCommand(0x27, Unplug), kEmptied + failed(kResumes, kNotBegun) + kNoReboot},
    {"CableOutWithTheResumeCommand", Fault::onPacket(1500, Unplug), kDone},
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
        app.confirmReset();
        app.run();
        EXPECT_EQ(app.world.device().record().faults().size(), failure.fault.times) << "the fault was met";
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

TEST(AppDelegate, GetsOverEveryFaultOfTheCatalogueWhoseNamesAreUnique) {
    std::set<std::string> names;
    for (const Fault& fault : simulator::faultCatalogue()) {
        SCOPED_TRACE(fault.name);
        EXPECT_TRUE(names.insert(fault.name).second);
        AppWorld app;
        app.world.addFault(fault);
        app.attach();
        app.confirmReset();
        app.run();
        EXPECT_THAT(app.world.device().record().faults(), Contains(fault.name)) << "it can happen in a reset";
        app.world.device().faults().clear();
        for (int i = 0; i < 3 && app.controller.nextAction() != NextAction::None; ++i) app.attach();
        app.expectReset();
    }
    EXPECT_GE(names.size(), 20U);
}

// ---- attaching

TEST(AppDelegate, OfTwoDevicesAtOnceTheWorkerTakesTheFirstAndANotificationTheLast) {
    AppWorld app;
    simulator::Profile lookalike;
    lookalike.releaseNumber = 2;
    const std::size_t second = app.world.bus.addDevice(simulator::Profile::wearable());
    const std::size_t other = app.world.bus.addDevice(lookalike);
    app.confirmReset();
    app.runWorker();
    app.world.bus.plug({0, second, other});
    app.run();
    EXPECT_THAT(app.world.device(0).record().received(), IsEmpty());
    EXPECT_THAT(app.world.device(other).record().received(), IsEmpty());
    EXPECT_TRUE(app.world.device(second).store().empty());
    EXPECT_EQ(app.controller.nextAction(), NextAction::None);

    app.controller.returnToMainMenuButtonClicked();
    app.confirmReset();
    app.run();
    EXPECT_TRUE(app.storeIsEmpty());
    app.log.take();
    app.controller.runTrovikModeListenLoop();
    EXPECT_THAT(app.log.take(), IsEmpty()) << "what is there already is not an attachment";
}

/// An entry whose path or id can't be read, or both.
struct Entry final : platform::IOService {
    Entry(const char* path, bool hasId) : mPath(path), mHasId(hasId) {}
    platform::IOReturn IORegistryEntryGetPath(const std::string&, std::string& path) override {
        path = mPath;
        return mPath.empty() ? platform::kIOReturnError : platform::kIOReturnSuccess;
    }
    platform::IOReturn IORegistryEntryGetRegistryEntryID(std::uint64_t&) override {
        return mHasId ? platform::kIOReturnSuccess : platform::kIOReturnError;
    }
    platform::IOReturn IOCreatePlugInInterfaceForService(platform::IOUserClientType,
                                                         std::unique_ptr<platform::IOCFPlugInInterface>&) override {
        return {};
    }
    std::string mPath;
    bool mHasId;
};

TEST(AppDelegate, OfWhatANotificationHoldsTheLastPathAndTheLastIdCountEvenOfDifferentEntries) {
    AppWorld app;
    const std::string device = app.world.path(), longest(511, '/'), tooLong(512, '/');
    const char* const real = device.c_str();
    const std::vector<std::pair<std::vector<Entry>, Lines>> notifications = {
        {{}, {}},
        {{{"", true}}, {}},
        {{{real, false}}, {}},
        {{{tooLong.c_str(), true}}, {}},
        {{{longest.c_str(), true}}, kNoReboot},
        {{{real, true}, {"/nowhere", true}}, kNoReboot},
        {{{real, true}, {"/nowhere", false}}, kNoReboot},
        {{{"/nowhere", true}, {real, false}}, kRebooted},
        {{{real, true}, {"", true}}, kRebooted},
        {{{real, true}, {tooLong.c_str(), true}}, kRebooted},
    };
    for (std::size_t i = 0; i < notifications.size(); ++i) {
        SCOPED_TRACE(i);
        app.attach();
        app.controller.rebootDevice({});  // fails: what is told of next is to be rebooted
        app.log.take();
        std::vector<std::unique_ptr<platform::IOService>> entries;
        for (const Entry& entry : notifications[i].first) entries.push_back(std::make_unique<Entry>(entry));
        platform::IOServiceList iterator(std::move(entries));
        trovikModeDeviceAttached(&app.controller, iterator);
        EXPECT_EQ(app.log.take(), notifications[i].second);
    }
}

TEST(AppDelegate, CompanionHasQuitBeforeTheLookForDevices) {
    AppWorld app;
    app.world.scripts.onScript = [&] { app.world.plug(); };  // it held the device
    app.confirmReset();
    app.runWorker();
    EXPECT_EQ(app.log.take(), kFound + kRebooted);
}

TEST(AppDelegate, WhatTheWorkerOrTheListenerThrowsIsLoggedAndTheNextAttachGoesOn) {
    const std::vector<std::pair<std::function<void()>, std::string>> exceptions = {
        {[] { throw glo::Timeout_t("libs/X", 5); }, "E Exception thrown at libs/X, 5; caught"},
        {[] { throw std::runtime_error("text"); }, "E Unknown exception caught"}};
    for (const auto& [raise, line] : exceptions) {
        SCOPED_TRACE(line);
        AppWorld app;
        app.world.scripts.onScript = raise;
        app.confirmReset();
        app.runWorker();
        EXPECT_THAT(app.log.take(), ElementsAre(line));
        EXPECT_EQ(app.controller.nextAction(), NextAction::RebootOnAttach);

        app.world.bus.addFault(
            Fault::onOperation(BusOperation::IOServiceAddMatchingNotification, platform::kIOReturnError));
        platform::CFRunLoopGetCurrent()->CFRunLoopPerformBlock(platform::kCFRunLoopDefaultMode, raise);
        AppDelegate other;  // whose listener hears of no device
        other.runTrovikModeListenLoop();
        EXPECT_THAT(app.log.take(), ElementsAre(kNotObserving, line));
        app.attach();
        app.expectReset();
    }
}

TEST(AppDelegate, ListenerThatGetsNoLoopIsNotWaitedFor) {
    struct NoLoops final : platform::CFRunLoops {
        std::shared_ptr<platform::CFRunLoop> CFRunLoopGetCurrent() override { throw std::runtime_error("none"); }
    } noLoops;
    const platform::PlatformScope scope({.runLoops = &noLoops});
    ControllerLog log;
    AppDelegate().applicationWillFinishLaunching();
    EXPECT_EQ(log.take(), kUnopened);
}

// ---- what nobody caught

TEST(AppDelegate, UncaughtExceptionIsLoggedWithItsStackAndNotHandled) {
    AppWorld app;
    const std::string first = "E Exception: name: std::runtime_error reason: no more";
    platform::NSException exception{"std::runtime_error", "no more", {"raise", "main"}};
    EXPECT_TRUE(app.controller.exceptionHandlerShouldLogException(exception, 255));
    EXPECT_FALSE(app.controller.exceptionHandlerShouldHandleException(exception, 255));
    EXPECT_THAT(app.log.take(), ElementsAre(first, "E Stack:\nraise\nmain\n"));

    // Without a stack of its own the current one is told; and it is told even where information is switched off.
    exception.callStackSymbols.clear();
    ddLogLevel = 1;
    EXPECT_TRUE(app.controller.exceptionHandlerShouldLogException(exception, 255));
    app.controller.trovikModeDeviceDetected({});
    ddLogLevel = 7;
    EXPECT_THAT(app.log.take(), ElementsAre(first, "E Stack:\nframe one\nframe two\n"));
}

}  // namespace
}  // namespace app_test
