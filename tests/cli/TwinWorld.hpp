#pragma once

#include "cli/Commands.hpp"
#include "cli/Scenario.hpp"
#include "cli/UsbGate.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "simulator/engine/RealTimeDrive.hpp"
#include "simulator/world/SimulatedClock.hpp"
#include "simulator/world/SimulatedRunLoops.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

namespace twin_test {

/// Every line of JSON that the program's tests have written. As the process's last test ends, the lines are checked
/// against the schema.
class Written final : public testing::Environment {
  public:
    static inline std::string all;
    void TearDown() override {
        if (all.empty()) return;
        const support::TemporaryFolder folder;
        support::WriteFile(folder / "events", all);
        const std::string command = std::string("python3 ") + TROVIK_CHECK_EVENTS + " " + (folder / "events");
        EXPECT_EQ(std::system(command.c_str()), 0);
    }
};
inline auto* const gWritten = testing::AddGlobalTestEnvironment(new Written);

/// Time that only moves when somebody waits, and one thread.
struct SimulatedTime {
    void start(twin::ScenarioWorld& world) { drive.add(world); }
    void stop() {}
    platform::Clock* clock() { return &drive; }

    simulator::SimulatedClock drive;
    simulator::SimulatedRunLoops loops{drive};
    twin::LoopWorkers workers;
};

/// The machine's time, and a thread for each opening.
struct RealTime {
    void start(twin::ScenarioWorld& world) { drive.start(world); }
    void stop() {
        drive.requestStop();
        drive.join();
    }
    static platform::Clock* clock() { return nullptr; }

    simulator::RealTimeDrive drive;
    platform::AsioRunLoops loops;
    twin::ThreadWorkers workers;
};

/// The program on the simulated devices of a scenario.
template <typename Time>
class World {
  public:
    explicit World(const twin::Scenario& played) : scenario(played), world(played, time.drive) { time.start(world); }
    ~World() { time.stop(); }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// Runs one command line.
    twin::Status run(std::vector<std::string> arguments) {
        out.str({});
        people.str({});
        arguments.emplace_back("--json");
        twin::Status status = twin::Status::Done;
        const auto options = twin::parse(arguments, "1.0", out, people, status);
        if (!options) {
            Written::all += out.str();
            return status;
        }
        twin::ScenarioScripts scripts(scenario.stationTakes);
        const platform::PlatformScope scope({.clock = time.clock(),
                                             .runLoops = &time.loops,
                                             .masterPort = &registry,
                                             .scriptRunner = &scripts,
                                             .log = [](const std::string&) {},
                                             .lockFolder = folder.path()});
        std::optional<DeviceLock> otherRun;
        if (scenario.otherRun) otherRun = DeviceLock::take("1-1");
        const auto stageBegan = [this](twin::Stage stage) {
            world.stageBegan(stage);
            onStage(stage);
        };
        const auto onCancel = [this](const auto& cancel) {
            world.setCancel([this, cancel] {
                onCancelled();
                cancel();
            });
        };
        constexpr bool kDrawsLines = false;
        status = twin::run(*options, {out, people, kDrawsLines, answer, time.workers, folder / "journal", "1.0",
                                      twin::plainDiagnosis, stageBegan, onCancel});
        Written::all += out.str();
        return status;
    }

    /// What the last command wrote, line by line.
    std::vector<nlohmann::json> events() const {
        std::vector<nlohmann::json> events;
        std::istringstream lines(out.str());
        for (std::string line; std::getline(lines, line);) events.push_back(nlohmann::json::parse(line));
        return events;
    }

    bool storeIsEmpty(std::size_t port) {
        return of(port, [](auto& device) { return device.store().empty(); });
    }
    bool wasOpened(std::size_t port) {
        return of(port, [](auto& device) { return !device.record().received().empty(); });
    }
    simulator::BootState boot(std::size_t port) {
        return of(port, [](auto& device) { return device.bootState(); });
    }

    const twin::Scenario& scenario;
    support::TemporaryFolder folder;
    Time time;
    twin::ScenarioWorld world;
    twin::GatedRegistry registry{world.registry()};
    std::ostringstream out;
    std::ostringstream people;
    std::function<void(twin::Stage)> onStage = [](twin::Stage) {};
    std::function<void()> onCancelled = [] {};
    std::function<std::string(const std::stop_token&)> answer;  ///< of a person; empty where nobody is there

  private:
    auto of(std::size_t port, const auto& question) {
        decltype(question(std::declval<simulator::Device&>())) answered{};
        world.bus().withDevice(port, [&](auto& device, auto) { answered = question(device); });
        return answered;
    }
};

using TwinWorld = World<SimulatedTime>;

}  // namespace twin_test
