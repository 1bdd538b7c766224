#pragma once

#include "cli/Commands.hpp"
#include "cli/Scenario.hpp"
#include "cli/UsbGate.hpp"
#include "platform/Platform.hpp"
#include "simulator/world/SimulatedClock.hpp"
#include "simulator/world/SimulatedRunLoops.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace twin_test {

/// The program on simulated devices, in simulated time and on one thread.
class TwinWorld {
  public:
    explicit TwinWorld(const twin::Scenario& played) : scenario(played), world(played, clock) {
        clock.add(world);
        if (scenario.otherRun) otherRun = twin::DeviceLock::take(folder.path(), "1-1");
    }

    /// Runs one command line.
    twin::Status run(std::vector<std::string> arguments) {
        out.str({});
        people.str({});
        arguments.emplace_back("--json");
        twin::Status status = twin::Status::Done;
        const auto options = twin::parse(arguments, people, people, status);
        if (!options) return status;
        platform::Platform all;
        all.clock = &clock;
        all.runLoops = &loops;
        all.masterPort = &registry;
        twin::ScenarioScripts scripts(scenario.stationTakes);
        all.scriptRunner = &scripts;
        all.log = [](const std::string&) {};
        const platform::PlatformScope scope(all);
        return twin::run(*options, {.in = in,
                                    .out = out,
                                    .people = people,
                                    .isTerminal = isTerminal,
                                    .workers = workers,
                                    .lockFolder = folder.path(),
                                    .journalFolder = folder / "journal",
                                    .version = "1.0",
                                    .diagnosis = twin::plainDiagnosis,
                                    .stageBegan = [this](twin::Stage stage) { world.stageBegan(stage); },
                                    .onCancel = [this](auto cancel) { world.setCancel(std::move(cancel)); }});
    }

    /// What the last command wrote, line by line.
    std::vector<nlohmann::json> events() const {
        std::vector<nlohmann::json> events;
        std::istringstream lines(out.str());
        for (std::string line; std::getline(lines, line);) events.push_back(nlohmann::json::parse(line));
        return events;
    }

    bool storeIsEmpty(std::size_t port) {
        bool isEmpty = false;
        world.bus().withDevice(port, [&](auto& device, auto) { isEmpty = device.store().empty(); });
        return isEmpty;
    }
    simulator::BootState boot(std::size_t port) {
        auto state = simulator::BootState::Running;
        world.bus().withDevice(port, [&](auto& device, auto) { state = device.bootState(); });
        return state;
    }

    const twin::Scenario& scenario;
    support::TemporaryFolder folder;
    std::optional<twin::DeviceLock> otherRun;
    simulator::SimulatedClock clock;
    simulator::SimulatedRunLoops loops{clock};
    twin::ScenarioWorld world;
    twin::GatedRegistry registry{world.bus()};
    twin::LoopWorkers workers;
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream people;
    bool isTerminal = false;
};

}  // namespace twin_test
