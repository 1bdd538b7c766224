// What the commands do beside the scenarios, in simulated time.
#include "cli/Journal.hpp"
#include "tests/cli/TwinWorld.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <tuple>

namespace twin_test {
namespace {

using simulator::BootState;
using simulator::Fault;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using twin::Cue;
using twin::Journal;
using twin::Scenario;
using twin::Stage;
using twin::Status;
using enum simulator::FaultKind;

/// So many devices without faults, with the unit ids 1, 2, ...
Scenario devices(std::size_t count) {
    Scenario scenario = *twin::scenarioNamed("reset");
    scenario.devices.resize(count, scenario.devices.front());
    for (std::size_t i = 0; i < count; ++i) scenario.devices[i].profile.unitId = static_cast<std::uint32_t>(i + 1);
    return scenario;
}

TEST(TwinCommand, SixteenTakeHardlyLongerThanOneAndAtMostSoManyAreAtWorkAtATime) {
    const std::tuple<std::vector<std::string>, int, int> rows[] = {
        {{"reset", "1-1", "--yes"}, 1, 1},
        {{"reset", "--all", "--yes"}, 16, 16},
        {{"reset", "--all", "--yes", "--jobs", "1"}, 16, 1},
        {{"reset", "--each", "--count", "2", "--yes", "--jobs", "1"}, 2, 1}};
    std::vector<simulator::Duration> taken;
    for (const auto& [arguments, wanted, mostAtATime] : rows) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const Scenario scenario = devices(16);
        TwinWorld twin(scenario);
        const auto start = twin.time.drive.now();
        EXPECT_EQ(twin.run(arguments), Status::Done);
        taken.push_back(twin.time.drive.now() - start);
        int cleared = 0, atWork = 0, most = 0;
        for (std::size_t port = 0; port < 16; ++port) cleared += twin.storeIsEmpty(port);
        for (const auto& event : twin.events()) {
            if (event["event"] == "stage" && event["stage"] == "quit" && event["state"] == "began") ++atWork;
            if (event["event"] == "device" && event["state"] == "ended") --atWork;
            most = std::max(most, atWork);
        }
        EXPECT_EQ(std::pair(cleared, most), std::pair(wanted, mostAtATime));
        EXPECT_TRUE(arguments[1] == "--each" || twin.people.str().find("let go of untouched") == std::string::npos);
    }
    EXPECT_LE(10 * taken[1], 11 * taken[0]);
}

TEST(TwinCommand, CancelBeforeTheQuestionLeavesItUnaskedAndMissesNoDevice) {
    for (const char* const name : {"1-1", "unit:1"}) {
        SCOPED_TRACE(name);
        Scenario scenario = devices(1);
        scenario.devices.front().profile.answerDelay = milliseconds(200);
        scenario.cues = {{{}, milliseconds(300), Cue::What::Cancel, 0}};
        TwinWorld twin(scenario);
        twin.answer = [](const auto&) { return "yes"; };
        EXPECT_EQ(twin.run({"reset", name}), Status::Cancelled);
        EXPECT_FALSE(twin.storeIsEmpty(0));
        EXPECT_THAT(twin.people.str(), AllOf(Not(HasSubstr("Type")), Not(HasSubstr("TRV-101"))));
    }
}

TEST(TwinCommand, CancelIsOverInTwoSecondsOrInEightWhereTheDeviceIsSilent) {
    for (const bool answers : {true, false}) {
        for (std::size_t stage = 0; stage < twin::kStages.size(); ++stage) {
            SCOPED_TRACE(twin::kStages[stage].name);
            Scenario scenario = devices(1);
            scenario.stationTakes = std::chrono::seconds(3);
            auto& device = scenario.devices.front();
            device.profile.answerDelay = milliseconds(200);
            // From its answer to "hold" on it says nothing any more.
            const auto silent = Fault::onPacket(simulator::kStartSession, Ignore).onLayer(0).committed(1000);
            if (!answers) device.faults = {Fault{silent}.inState(BootState::HeldInBootLoader)};
            scenario.cues = {{static_cast<Stage>(stage), milliseconds(150), Cue::What::Cancel, 0}};
            TwinWorld twin(scenario);
            std::optional<simulator::Time> cancelled;
            twin.onCancelled = [&] { cancelled = twin.time.drive.now(); };
            EXPECT_EQ(twin.run({"reset", "--yes"}), Status::Cancelled);
            ASSERT_TRUE(cancelled);
            EXPECT_LE(twin.time.drive.now() - *cancelled, std::chrono::seconds(answers ? 2 : 8));
            const bool isHeld = twin.boot(0) == BootState::HeldInBootLoader;
            EXPECT_FALSE(isHeld && answers);
            EXPECT_EQ(Journal(twin.folder / "journal").entries().empty(), !isHeld);
        }
    }
}

TEST(TwinCommand, CancelledResumeStillLetsTheDeviceStart) {
    for (const int after : {100, 300, 500, 700, 900}) {
        SCOPED_TRACE(after);
        Scenario scenario = devices(1);
        auto& device = scenario.devices.front();
        device.state = BootState::HeldInBootLoader;
        device.profile.answerDelay = milliseconds(200);
        scenario.cues = {{Stage::Resume, milliseconds(after), Cue::What::Cancel, 0}};
        TwinWorld twin(scenario);
        EXPECT_EQ(twin.run({"resume", "1-1"}), Status::Cancelled);
        EXPECT_NE(twin.boot(0), BootState::HeldInBootLoader);
    }
}

TEST(TwinCommand, WhatAKillLeavesBehindIsSaidAndCanBeLetStart) {
    Scenario scenario = devices(2);
    scenario.devices[1].state = BootState::HeldInBootLoader;
    TwinWorld twin(scenario);
    const Journal journal(twin.folder / "journal");
    EXPECT_TRUE(journal.held({"1-9", 2}));  // at another port by now
    // One that is not attached any more keeps the other from nothing, nor does one that a run is still at work on, or
    // one without a unit id, at whose port is another.
    EXPECT_TRUE(journal.held({"1-7", 7}));
    EXPECT_TRUE(journal.held({"1-8", 8}));
    EXPECT_TRUE(journal.held({"1-1", 0}));
    const platform::PlatformScope scope({.lockFolder = twin.folder.path()});
    const auto otherRun = DeviceLock::take("unit-8"), ofPort = DeviceLock::take("1-9");
    EXPECT_EQ(twin.run({"list"}), Status::Done);
    EXPECT_THAT(twin.people.str(), HasSubstr("1-9 (unit 2): The reset was stopped before it was complete."));
    EXPECT_EQ(twin.run({"resume"}), Status::TimedOut);
    EXPECT_THAT(twin.people.str(), AllOf(HasSubstr("1-8: "), HasSubstr("no unit:7."), Not(HasSubstr("no unit:8.")),
                                         HasSubstr("1-1 (unit 1): It is not a device that is waited for")));
    EXPECT_EQ(twin.boot(1), BootState::Running);
    EXPECT_EQ(journal.entries(), (std::vector<Journal::Entry>{{"1-1", 0}, {"1-7", 7}, {"1-8", 8}}));
}

TEST(TwinCommand, ResetThatFailsLetsStartWhatAKillLeftBehind) {
    for (const bool isCancelled : {true, false}) {
        SCOPED_TRACE(isCancelled);
        Scenario scenario = devices(1);
        scenario.devices[0].state = BootState::HeldInBootLoader;
        scenario.devices[0].faults = {Fault::onCommand(simulator::kReboot, NotTaken).committed(9)};
        if (isCancelled) scenario.cues = {{Stage::Reboot, milliseconds(500), Cue::What::Cancel, 0}};
        TwinWorld twin(scenario);
        EXPECT_TRUE(Journal(twin.folder / "journal").held({"1-1", 1}));
        const platform::PlatformScope scope({.lockFolder = twin.folder.path()});
        auto otherRun = DeviceLock::take("unit-1");
        EXPECT_EQ(twin.run({"reset", "1-1", "--yes"}), Status::OtherRun);
        EXPECT_EQ(twin.boot(0), BootState::HeldInBootLoader) << "it is the other's";
        otherRun.reset();
        const auto status = twin.run({"reset", "1-1", "--yes", "--limit", "reboot=1"});
        EXPECT_EQ(status, isCancelled ? Status::Cancelled : Status::TimedOut);
        EXPECT_EQ(twin.boot(0), BootState::Running);
        EXPECT_TRUE(Journal(twin.folder / "journal").entries().empty());
    }
}

/// In the middle of a question or of a wait, another device or the same is plugged in at the port.
TEST(TwinCommand, WhatIsPluggedInAtAPortIsTakenOnlyAsTheVeryDevice) {
    const std::tuple<std::uint32_t, std::uint32_t, bool, Status> rows[] = {
        {0, 5, false, Status::TimedOut}, {1, 5, true, Status::Failed}, {1, 1, true, Status::Done}};
    for (const auto& [unit, comes, isAtQuestion, status] : rows) {
        SCOPED_TRACE(testing::PrintToString(std::pair(unit, comes)));
        Scenario scenario = devices(2);
        scenario.devices[0].profile.unitId = unit;
        scenario.devices[1].profile.unitId = comes;
        scenario.devices[1].plugged = false;
        scenario.devices[1].state = isAtQuestion ? BootState::Running : BootState::Starting;
        TwinWorld twin(scenario);
        const auto swap = [&] {
            twin.world.bus().swap(0, 1);
            twin.world.bus().plug(0);
        };
        twin.answer = [&](const auto&) { return swap(), "yes"; };
        twin.onStage = [&, isWaiting = !isAtQuestion](Stage stage) {
            if (stage == Stage::Back && isWaiting) swap();
        };
        EXPECT_EQ(isAtQuestion ? twin.run({"reset", "1-1"}) : twin.run({"reset", "1-1", "--yes"}), status);
        EXPECT_EQ(twin.storeIsEmpty(0), status == Status::Done);
    }
}

TEST(TwinCommand, JournalThatCantBeWrittenIsSaid) {
    TwinWorld twin(*twin::scenarioNamed("another-port"));
    support::WriteFile(twin.folder / "journal", "not a folder");
    EXPECT_EQ(twin.run({"reset", "--yes"}), Status::Done);
    EXPECT_THAT(twin.people.str(), HasSubstr("1-2 (unit 3812345678): That it is held can't be written down"));
    EXPECT_THAT(twin.people.str(), HasSubstr("1-2 (unit 3812345678): holding the device in its boot loader ..."))
        << "the port it came back under";
}

TEST(TwinCommand, ArrivalThatAnotherRunWaitsForIsNotOpened) {
    for (const bool isLocked : {false, true}) {
        TwinWorld twin(*twin::scenarioNamed("another-device-first"));
        std::optional<DeviceLock> other;
        twin.onStage = [&](Stage stage) {
            if (stage == Stage::Back && isLocked) other = DeviceLock::take("1-2");
        };
        EXPECT_EQ(twin.run(twin.scenario.arguments), Status::Done);
        EXPECT_EQ(twin.wasOpened(1), !isLocked);
    }
}

TEST(TwinCommand, DeviceIsChosenByPortOrUnitIdAndNeverByChance) {
    // What a person answers is null where nobody is there.
    const std::tuple<std::vector<std::string>, const char*, Status, std::vector<bool>> rows[] = {
        {{"reset", "--yes", "--limit", "back=50", "1-2"}, nullptr, Status::Done, {false, true}},
        {{"reset", "unit:3", "--yes", "--wait", "3"}, nullptr, Status::NoneFound, {false, false}},
        {{"reset", "unit:2", "1-2", "--yes"}, nullptr, Status::Done, {false, true}},
        {{"reset", "1-1", "1-7", "--yes", "--wait", "2"}, nullptr, Status::NoneFound, {false, false}},
        {{"reset", "1-1"}, "no", Status::Cancelled, {false, false}},
        {{"reset", "1-1"}, "yes", Status::Done, {true, false}},
        {{"reset", "--all", "1-1"}, nullptr, Status::Usage, {false, false}},
        {{"reset", "--all", "--yes", "--limit", "back=inf"}, nullptr, Status::Usage, {false, false}},
        {{"reset", "--all", "--yes", "--wait", "nan"}, nullptr, Status::Usage, {false, false}},
        {{"reset", "unit:1x", "--yes"}, nullptr, Status::Usage, {false, false}},
        {{"reset", "unit:4294967297", "--yes"}, nullptr, Status::Usage, {false, false}},
        {{"reset", "unit:0", "--yes"}, nullptr, Status::Usage, {false, false}},
        {{"explain", "1-1"}, nullptr, Status::Done, {false, false}},
    };
    for (const auto& [arguments, answer, status, cleared] : rows) {
        SCOPED_TRACE(testing::PrintToString(arguments) + (answer ? answer : ""));
        const Scenario scenario = devices(2);
        TwinWorld twin(scenario);
        if (answer) twin.answer = [said = answer](const auto&) { return said; };
        EXPECT_EQ(twin.run(arguments), status);
        EXPECT_EQ((std::vector{twin.storeIsEmpty(0), twin.storeIsEmpty(1)}), cleared) << twin.people.str();
        EXPECT_TRUE(arguments[1] != "1-2" || !twin.wasOpened(0)) << "it was there and not chosen";
        EXPECT_TRUE(!answer || twin.people.str().find("1-1  Trailmate 300  unit 1") != std::string::npos);
    }
}

TEST(TwinCommand, NoDeviceIsSaidToBeMissingWhereTheListCannotBeRead) {
    const std::vector<std::string> rows[] = {
        {"list"}, {"check"}, {"reset", "1-1", "unit:1", "--yes"}, {"resume", "1-1"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row));
        TwinWorld twin(*twin::scenarioNamed("list-unreadable"));
        EXPECT_EQ(twin.run(row), Status::Failed);
        EXPECT_THAT(twin.people.str(),
                    AllOf(HasSubstr("The list of devices can't be read."), Not(HasSubstr("TRV-101"))));
    }
}

TEST(TwinCommand, UnitIdThatTwoDevicesReportNamesNeither) {
    Scenario scenario = devices(2);
    scenario.devices[1].profile.unitId = 1;
    TwinWorld twin(scenario);
    EXPECT_EQ(twin.run({"reset", "unit:1", "--yes"}), Status::Ambiguous);
    EXPECT_EQ(twin.run({"reset", "unit:1", "1-7", "--yes"}), Status::Ambiguous) << "though another name is missing";
    EXPECT_FALSE(twin.storeIsEmpty(0) || twin.storeIsEmpty(1));
}

TEST(TwinCommand, DeviceThatCannotBeOpenedIsTriedAgainAndMayBeTheUnitThatIsMeant) {
    const std::tuple<unsigned, bool, Status> rows[] = {
        {2, false, Status::Done}, {1000, false, Status::Busy}, {0, true, Status::OtherRun}};
    for (const auto& [failures, otherRun, status] : rows) {
        SCOPED_TRACE(twin::nameOf(status));
        Scenario scenario = devices(1);
        const auto fails =
            Fault::onOperation(simulator::BusOperation::USBDeviceOpen, platform::kIOReturnExclusiveAccess, 1);
        if (failures > 0) scenario.devices.front().faults = {Fault{fails}.committed(failures)};
        scenario.otherRun = otherRun;
        TwinWorld twin(scenario);
        EXPECT_EQ(twin.run({"reset", "unit:1", "--yes", "--wait", "5"}), status) << twin.people.str();
    }
}

TEST(TwinThreads, ResetsBesideEachOtherAndCancelsAtAnyMoment) {
    for (const int cancelAfter : {0, 25, 60}) {  // milliseconds; 0: never
        SCOPED_TRACE(cancelAfter);
        Scenario scenario = devices(8);
        for (auto& device : scenario.devices) {
            device.profile.rebootTime = *(device.profile.bootTime = milliseconds(20));
            device.profile.answerDelay = milliseconds(cancelAfter > 0 ? 3 : 0);
        }
        if (cancelAfter > 0) scenario.cues = {{Stage::Hold, milliseconds(cancelAfter), Cue::What::Cancel, 0}};
        World<RealTime> twin(scenario);
        const Status status = twin.run({"reset", "--all", "--yes"});
        EXPECT_EQ(status, cancelAfter > 0 ? Status::Cancelled : Status::Done) << twin.people.str();
        for (std::size_t port = 0; port < scenario.devices.size(); ++port) {
            EXPECT_NE(twin.boot(port), BootState::HeldInBootLoader);
            EXPECT_TRUE(twin.storeIsEmpty(port) || cancelAfter > 0);
        }
        EXPECT_EQ(twin.world.bus().openDevices(), 0U);
    }
}

TEST(TwinReporter, DrawsWhatFitsTheTerminalAndNothingThatActsOnIt) {
    std::ostringstream json, people;
    twin::Reporter reporter(json, people, {false, true, {}});
    reporter.line("named \x1b[2J\n");
    EXPECT_EQ(people.str(), "named \\x1B[2J\\x0A\n");
    for (int number = 1; number <= 500; ++number)
        reporter.tell({{"event", "stage"}, {"number", number}, {"port", "1-1"}, {"stage", "back"}, {"state", "began"}});
    people.str({});
    reporter.redraw(1);
    const auto drawn = people.str();
    EXPECT_THAT(std::ranges::count(drawn, '\n'), testing::AllOf(testing::Gt(0), testing::Lt(500)));
}

}  // namespace
}  // namespace twin_test
