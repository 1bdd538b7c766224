// Every scenario of the table, in simulated time: the status that follows, what the events say, and what has become of
// the devices.
#include "simulator/engine/Record.hpp"
#include "tests/cli/TwinWorld.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <optional>
#include <set>

namespace twin_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using twin::Scenario;

/// The stage that failed last.
std::optional<twin::Stage> lastFailed(const std::vector<json>& events) {
    std::optional<twin::Stage> failed;
    for (const json& event : events) {
        if (event["event"] == "stage" && event["state"] == "failed")
            failed = twin::stageNamed(event["stage"].get<std::string>());
    }
    return failed;
}

bool names(const std::vector<json>& events, const std::string& cause) {
    return std::ranges::any_of(events, [&](const json& event) { return event.value("cause", "") == cause; });
}

TEST(Scenario, EndsWithItsStatusAndItsDevicesAsItSaysAndNothingIsNeverReached) {
    std::set<std::string> known, events, statuses, wanted, wantedStatuses;
    for (const char* const name : {"hello", "note", "result", "device attached", "device departed", "device identified",
                                   "device failed", "device ended"})
        wanted.insert(name);
    for (const auto& stage : twin::kStages) {
        for (const char* const state : {" began", " ended", " failed"}) wanted.insert(std::string(stage.name) + state);
    }
    for (const auto status : twin::kStatuses) wantedStatuses.emplace(twin::nameOf(status));
    for (const Scenario& scenario : twin::scenarios()) {
        SCOPED_TRACE(scenario.name);
        EXPECT_TRUE(known.insert(scenario.name).second);
        EXPECT_NE(scenario.text, ".") << "the catalogue's fault that it plays has no sentence";
        TwinWorld twin(scenario);
        std::optional<simulator::Time> cancelled;
        twin.onCancelled = [&] { cancelled = twin.time.drive.now(); };
        const twin::Status status = twin.run(scenario.arguments);
        SCOPED_TRACE(twin.out.str() + twin.people.str());
        EXPECT_EQ(twin::nameOf(status), twin::nameOf(scenario.status));
        statuses.emplace(twin::nameOf(status));
        const auto written = twin.events();
        ASSERT_FALSE(written.empty());
        EXPECT_EQ(written.front()["event"], "hello");
        EXPECT_EQ(written.back()["event"], "result");
        EXPECT_EQ(written.back()["status"], static_cast<int>(status));
        const auto last = written.back()["text"].get<std::string>();
        EXPECT_EQ(last.ends_with("."), status == twin::Status::Cancelled && scenario.arguments.front() == "reset")
            << "in which state the devices are: " << last;
        EXPECT_EQ(lastFailed(written), scenario.stage);
        EXPECT_TRUE(scenario.cause.empty() || names(written, scenario.cause)) << scenario.cause;
        for (const json& event : written) {
            const std::string state = event.value("state", ""), kind = event["event"];
            const bool isTimeOut = kind != "note" && kind != "result" &&
                                   (event.value("cause", "") == "TRV-303" || event.value("status", 0) == 7);
            const std::string_view failed = scenario.stage ? twin::info(*scenario.stage).name : "opening";
            const std::string quoted = '"' + event.value("stage", std::string(failed)) + '"';
            EXPECT_TRUE(!isTimeOut || event.value("text", "").find(quoted) != std::string::npos) << event;
            events.insert(event.value("stage", kind) + (state.empty() ? "" : " " + state));
        }
        ASSERT_EQ(scenario.cleared.size(), scenario.devices.size());
        for (std::size_t port = 0; port < scenario.devices.size(); ++port) {
            EXPECT_EQ(twin.storeIsEmpty(port), scenario.cleared[port]) << "port " << port + 1;
            const auto& faults = scenario.devices[port].faults;
            twin.world.bus().withDevice(port, [&](auto& device, auto) {
                EXPECT_EQ(device.record().faults().empty(), faults.empty()) << "it can happen";
                for (const auto& entry : device.record().entries())
                    EXPECT_THAT(simulator::inWords(entry), Not(HasSubstr("Received"))) << "has no words of its own";
            });
            const bool mayBeHeld = scenario.arguments.front() == "resume" && status != twin::Status::Done;
            EXPECT_TRUE(mayBeHeld || !twin.world.bus().isAttached(port) ||
                        twin.boot(port) != simulator::BootState::HeldInBootLoader);
        }
        EXPECT_TRUE(!cancelled || twin.time.drive.now() - *cancelled <= std::chrono::seconds(2));
        EXPECT_EQ(cancelled.has_value(), status == twin::Status::Cancelled);
        EXPECT_EQ(twin.world.bus().openDevices(), 0U);
        EXPECT_EQ(twin.world.bus().pendingTransfers(), 0U);
    }
    EXPECT_EQ(events, wanted);
    EXPECT_EQ(statuses, wantedStatuses);
}

TEST(ScenarioFile, IsPlayedLikeOneOfTheTable) {
    std::string error;
    const auto scenario = twin::scenarioFromText(R"({
        "devices": [
            {"unit": 7, "profile": "wearable", "rebootTime": 2, "faults": ["hold-late", {"fault": "reboot-ignored", "times": 2}]},
            {"plugged": false}
        ],
        "cues": [{"stage": "gone", "after": 0.5, "do": "plug", "device": 2}],
        "stationTakes": 0.5, "tells": "nothing"
    })",
                                                 error);
    ASSERT_TRUE(scenario) << error;
    TwinWorld twin(*scenario);
    EXPECT_EQ(twin.run({"reset", "unit:7", "--yes"}), twin::Status::TimedOut);
    EXPECT_EQ(lastFailed(twin.events()), twin::Stage::Gone);
    EXPECT_TRUE(twin.world.bus().isAttached(1));
}

TEST(ScenarioFile, SaysInWhichLineSomethingIsWrong) {
    const std::pair<const char*, const char*> rows[] = {
        {"{\n\"devices\": [{}],\n\"dovices\": 1}", "line 3: \"dovices\": unknown; known here are: devices, "},
        {"{\"devices\": [{},\n{\n\"faults\": [\n\"lunch\"]}]}",
         "line 4: \"0\": there is no \"lunch\"; there are: hold-"},
        {"{\"devices\": [{}],\n\"cues\": [{\"do\": \"plug\",\n\"device\": 2}]}",
         "line 3: \"device\": a whole number from 1 to 1 "},
        {"{\"devices\": [{\n\"rebootTime\":\n-1}]}", "line 2: \"rebootTime\": a number of seconds"},
        {"{\"devices\": [],\n\"devices\": [{}]}", "line 2: \"devices\" stands here twice"},
        {"{\"devices\": [{}],\n}", "line 2: syntax error"},
        {"[]", "line 1: an object is wanted"},
        {"{}", "line 1: \"devices\" is missing"},
    };
    for (const auto& [text, expected] : rows) {
        std::string error;
        EXPECT_FALSE(twin::scenarioFromText(text, error)) << text;
        EXPECT_THAT(error, testing::StartsWith(expected));
    }
}

}  // namespace
}  // namespace twin_test
