#pragma once

#include "cli/Outcome.hpp"
#include "platform/ScriptRunner.hpp"
#include "simulator/bus/InProcessBus.hpp"
#include "simulator/engine/Fault.hpp"
#include "simulator/engine/Profile.hpp"
#include "simulator/engine/Types.hpp"

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace twin {

/// A device of a scenario. The first is on port 1-1, and so on.
struct ScenarioDevice {
    simulator::Profile profile;
    std::vector<simulator::Fault> faults = {};
    bool plugged = true;
    simulator::BootState state = simulator::BootState::Running;
};

/// Something that happens by itself: so long after the first time that a stage begins, or after the start.
struct Cue {
    enum class What { Plug, Unplug, Cancel };

    std::optional<Stage> stage;
    simulator::Duration after{0};
    What what = What::Cancel;
    std::size_t device = 0;
};

/// One situation: what is attached, what goes wrong and when, and the exit status that must follow. The same table is
/// what tests run, what --simulate shows, and what the documentation lists.
struct Scenario {
    std::string name;
    std::string text;                    ///< one sentence
    std::vector<std::string> arguments;  ///< that lead to the status
    std::vector<ScenarioDevice> devices;
    std::vector<simulator::Fault> busFaults = {};
    std::vector<Cue> cues = {};
    simulator::Duration stationTakes{0};  ///< each of the companion programs, to quit
    bool otherRun = false;                ///< another run of the program works on the first device
    Status status = Status::Done;
    std::string cause = {};              ///< the id that an event carries; empty for none
    std::optional<Stage> stage = {};     ///< the last one that failed, where one does
    std::vector<bool> cleared = {true};  ///< each device's store, in the end
};

[[nodiscard]] std::span<const Scenario> scenarios();
[[nodiscard]] const Scenario* scenarioNamed(std::string_view name);

/// Stands in for the companion programs: each takes its time to quit, and nothing of this computer is touched.
class ScenarioScripts final : public platform::ScriptRunner {
  public:
    explicit ScenarioScripts(simulator::Duration takes) : mTakes(takes) {}
    bool executeAndReturnError(const std::string& source) override;
    int system(const std::string&) override { return 0; }

  private:
    const simulator::Duration mTakes;
};

/// A scenario under way: the bus with its devices, and what happens by itself. Driven like any timed work, in real time
/// or in simulated time.
class ScenarioWorld final : public simulator::TimedWork {
  public:
    /// @param drive  must outlive this; started after it, and joined before it goes
    ScenarioWorld(const Scenario& scenario, simulator::Drive& drive);

    simulator::InProcessBus& bus() { return mBus; }

    /// What a cue's cancel calls.
    void setCancel(std::function<void()> cancel);

    /// To be told when a stage begins; the first of each counts. Any thread.
    void stageBegan(Stage stage);

    // simulator::TimedWork
    std::optional<simulator::Time> nextDue() override;
    void run(simulator::Time now) override;

  private:
    simulator::Drive& mDrive;
    simulator::InProcessBus mBus;
    std::mutex mMutex;
    std::vector<Cue> mWaiting;                     ///< under mMutex
    std::multimap<simulator::Time, Cue> mPending;  ///< under mMutex
    std::function<void()> mCancel;                 ///< under mMutex
};

}  // namespace twin
