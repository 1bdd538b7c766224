// Every scenario of the table, in simulated time: the status that follows, what the events say, and what has become of
// the devices.
#include "tests/cli/TwinWorld.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <optional>
#include <set>

namespace twin_test {
namespace {

using nlohmann::json;
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

TEST(Scenario, EndsWithItsStatusAndItsDevicesAsItSays) {
    std::set<std::string> known;
    std::set<twin::Status> statuses;
    std::set<twin::Stage> failed;
    for (const Scenario& scenario : twin::scenarios()) {
        SCOPED_TRACE(scenario.name);
        EXPECT_TRUE(known.insert(scenario.name).second);
        statuses.insert(scenario.status);
        if (scenario.stage) failed.insert(*scenario.stage);
        TwinWorld twin(scenario);
        std::optional<simulator::Time> cancelled;
        twin.onCancelled = [&] { cancelled = twin.time.drive.now(); };
        const twin::Status status = twin.run(scenario.arguments);
        SCOPED_TRACE(twin.out.str() + twin.people.str());
        EXPECT_EQ(twin::nameOf(status), twin::nameOf(scenario.status));
        const auto events = twin.events();
        ASSERT_FALSE(events.empty());
        EXPECT_EQ(events.front()["event"], "hello");
        EXPECT_EQ(events.back()["event"], "result");
        EXPECT_EQ(events.back()["status"], static_cast<int>(status));
        EXPECT_EQ(lastFailed(events), scenario.stage);
        EXPECT_TRUE(scenario.cause.empty() || names(events, scenario.cause)) << scenario.cause;
        ASSERT_EQ(scenario.cleared.size(), scenario.devices.size());
        for (std::size_t port = 0; port < scenario.devices.size(); ++port) {
            EXPECT_EQ(twin.storeIsEmpty(port), scenario.cleared[port]) << "port " << port + 1;
        }
        EXPECT_TRUE(!cancelled || twin.time.drive.now() - *cancelled <= std::chrono::seconds(2));
        EXPECT_EQ(cancelled.has_value(), status == twin::Status::Cancelled);
        EXPECT_EQ(twin.world.bus().openDevices(), 0U);
        EXPECT_EQ(twin.world.bus().pendingTransfers(), 0U);
    }
    EXPECT_EQ(statuses.size(), 11U) << "each way to end";
    EXPECT_EQ(failed.size(), twin::kStages.size()) << "each stage";
}

}  // namespace
}  // namespace twin_test
