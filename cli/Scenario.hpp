#pragma once

#include "cli/Outcome.hpp"
#include "platform/IORegistry.hpp"
#include "platform/IOReturn.hpp"
#include "platform/ScriptRunner.hpp"
#include "simulator/bus/InProcessBus.hpp"
#include "simulator/engine/Fault.hpp"
#include "simulator/engine/Profile.hpp"
#include "simulator/engine/Types.hpp"

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
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

/// What the bus tells of arrivals and departures; or not even what is attached.
enum class BusTells { All, ArrivalsOnly, Nothing, AllTwice, Refuses };

/// One situation: what is attached, what goes wrong and when, and the exit status that must follow. The same table is
/// what tests run, what --simulate shows, and what the documentation lists.
struct Scenario {
    std::string name;
    std::string text;                    ///< one sentence
    std::vector<std::string> arguments;  ///< that lead to the status
    std::vector<ScenarioDevice> devices;
    BusTells tells = BusTells::All;
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

/// What a device of a scenario can be, by the names that files use.
[[nodiscard]] std::span<const std::pair<std::string_view, simulator::Profile (*)()>> scenarioProfiles();

/// The scenario of that name, else the one that a file describes.
/// @param error  a sentence, where there is neither
[[nodiscard]] std::optional<Scenario> findScenario(const std::string& nameOrFile, std::string& error);
/// @param error  the line and what is wrong there, where nothing is returned
[[nodiscard]] std::optional<Scenario> scenarioFromText(const std::string& text, std::string& error);

/// The scenarios as the documentation shows them: docs/SCENARIOS.md is what this returns.
[[nodiscard]] std::string scenarioPage();

/// Stands in for the companion programs: each takes its time to quit, and nothing of this computer is touched.
class ScenarioScripts final : public platform::ScriptRunner {
  public:
    explicit ScenarioScripts(simulator::Duration takes) : mTakes(takes) {}
    bool executeAndReturnError(const std::string& source, const std::stop_token& stop) override;
    int system(const std::string&) override { return 0; }

  private:
    const simulator::Duration mTakes;
};

/// A bus that does not tell all, or tells it twice.
class ScenarioRegistry final : public platform::IORegistry {
  public:
    ScenarioRegistry(platform::IORegistry& inner, BusTells tells) : mInner(inner), mTells(tells) {}

    platform::IOReturn IOServiceGetMatchingServices(const platform::MatchingDictionary& matching,
                                                    std::unique_ptr<platform::IOIterator>& iterator) override {
        if (mTells == BusTells::Refuses) return platform::kIOReturnError;
        return mInner.IOServiceGetMatchingServices(matching, iterator);
    }
    std::unique_ptr<platform::IONotificationPort> IONotificationPortCreate() override {
        return mInner.IONotificationPortCreate();
    }
    platform::IOReturn IOServiceAddMatchingNotification(platform::IONotificationPort& port, const std::string& type,
                                                        const platform::MatchingDictionary& matching,
                                                        platform::IOServiceMatchingCallback callback, void* refCon,
                                                        std::unique_ptr<platform::IOIterator>& iterator) override;
    std::unique_ptr<platform::IOService> IORegistryEntryFromPath(const std::string& path) override {
        return mInner.IORegistryEntryFromPath(path);
    }

  private:
    platform::IORegistry& mInner;
    const BusTells mTells;
};

/// A scenario under way: the bus with its devices, and what happens by itself. Driven like any timed work, in real time
/// or in simulated time.
class ScenarioWorld final : public simulator::TimedWork {
  public:
    /// @param drive  must outlive this; started after it, and joined before it goes
    ScenarioWorld(const Scenario& scenario, simulator::Drive& drive);

    simulator::InProcessBus& bus() { return mBus; }
    platform::IORegistry& registry() { return mRegistry; }

    /// What a cue's cancel calls. What was set before is not under way any more when this returns.
    void setCancel(std::function<void()> cancel);

    /// To be told when a stage begins; the first of each counts. Any thread.
    void stageBegan(Stage stage);

    // simulator::TimedWork
    std::optional<simulator::Time> nextDue() override;
    void run(simulator::Time now) override;

  private:
    simulator::Drive& mDrive;
    simulator::InProcessBus mBus;
    ScenarioRegistry mRegistry;
    std::mutex mMutex;
    std::vector<Cue> mWaiting;                     ///< under mMutex
    std::multimap<simulator::Time, Cue> mPending;  ///< under mMutex
    std::mutex mCancelMutex;                       ///< held while it is called; nothing else is locked before it
    std::function<void()> mCancel;                 ///< under mCancelMutex
};

}  // namespace twin
