#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Dispatch.hpp"
#include "platform/NSExceptionHandler.hpp"
#include "platform/NSUserDefaults.hpp"
#include "platform/Platform.hpp"
#include "platform/ScriptRunner.hpp"
#include "simulator/InProcessBus.hpp"
#include "simulator/SimulatedClock.hpp"
#include "simulator/SimulatedRunLoops.hpp"

namespace simulator {

/// A queue whose blocks wait until the test drains it. Timers become due with the simulated clock and then wait as
/// blocks do. Blocks may be submitted on any thread; all else belongs to the test's thread.
class ManualQueue final : public platform::MainQueue, public TimedWork {
  public:
    explicit ManualQueue(SimulatedClock& clock);
    ~ManualQueue() override;
    ManualQueue(const ManualQueue&) = delete;
    ManualQueue& operator=(const ManualQueue&) = delete;

    /// Runs one block. @return false when none waits
    bool drainOne();

    /// Runs what waits and what that submits. @return the number of blocks
    std::size_t drain();
    std::size_t waiting() const;

    // platform::MainQueue
    void dispatch_async(std::function<void()> block) override;
    void dispatch_sync(const std::function<void()>& block) override;  ///< drains the queue first
    std::shared_ptr<platform::NSTimer> scheduledTimerWithTimeInterval(platform::CFTimeInterval seconds, bool repeats,
                                                                      std::function<void()> handler) override;

    // TimedWork
    std::optional<Time> nextDue() override;
    void run(Time now) override;

  private:
    class Timer;

    SimulatedClock& mClock;
    mutable std::mutex mMutex;
    std::deque<std::function<void()>> mBlocks;  ///< under mMutex
    std::vector<std::shared_ptr<Timer>> mTimers;
};

/// Answers what it is told to and keeps what it was asked.
class RecordingScriptRunner final : public platform::ScriptRunner {
  public:
    bool executeAndReturnError(const std::string& source) override {
        calls.push_back(source);
        return succeeds;
    }
    int system(const std::string& command) override {
        calls.push_back(command);
        return status;
    }

    std::vector<std::string> calls;
    bool succeeds = true;
    int status = 0;
};

/// Preferences in memory: the application domain by key, the others whole.
class MemoryDefaults final : public platform::NSUserDefaults {
  public:
    std::optional<platform::PropertyList> objectForKey(const std::string& key) const override;
    bool boolForKey(const std::string& key) const override;
    std::int64_t integerForKey(const std::string& key) const override;
    platform::PropertyList::Dictionary persistentDomainForName(const std::string& domain) const override;
    bool setPersistentDomain(const platform::PropertyList::Dictionary& contents, const std::string& domain) override;

    platform::PropertyList::Dictionary values;
    std::map<std::string, platform::PropertyList::Dictionary> domains;
};

/// Keeps what it was given.
class RecordingExceptionHandler final : public platform::NSExceptionHandler {
  public:
    void setDelegate(platform::NSExceptionHandlerDelegate* value) override { delegate = value; }
    void setExceptionHandlingMask(std::uint32_t value) override { mask = value; }
    std::vector<std::string> callStackSymbols() override { return {"frame one", "frame two"}; }

    platform::NSExceptionHandlerDelegate* delegate = nullptr;
    std::uint32_t mask = 0;
};

/// Everything that the library and the application ask of a system, with simulated devices, simulated time and one
/// thread, installed as the process's platform for the life of this object. One world at a time.
///
/// The first device sits on port 0 from the start, its cable not yet in.
class SimulatedWorld {
  public:
    explicit SimulatedWorld(Profile profile = {}, SettingsStore store = SettingsStore::wellUsed());
    ~SimulatedWorld();
    SimulatedWorld(const SimulatedWorld&) = delete;
    SimulatedWorld& operator=(const SimulatedWorld&) = delete;

    void plug(std::size_t port = 0) { bus.plug(port); }
    void unplug(std::size_t port = 0) { bus.unplug(port); }
    std::string path(std::size_t port = 0) const { return bus.registryPath(port); }

    /// The device of a port. There is one thread, so nothing has to be locked; but what the device wants because of a
    /// change made through this is done only at the bus's next call.
    Device& device(std::size_t port = 0);
    void addFault(const Fault& fault, std::size_t port = 0) { device(port).addFault(fault); }

    /// Drains both queues and runs the default mode until nothing is ready or due any more.
    /// @param most  simulated time after which it stops all the same
    void runUntilQuiet(Duration most = std::chrono::minutes(10));

    /// The same for just that much simulated time.
    void runFor(Duration span);

    /// Simulated time since the world was made.
    Duration elapsed() { return clock.now() - mStart; }

    /// Lines written to the system log so far.
    static std::vector<std::string> log();

    SimulatedClock clock;
    SimulatedRunLoops loops{clock};
    InProcessBus bus{clock};
    ManualQueue mainQueue{clock};
    ManualQueue globalQueue{clock};
    RecordingScriptRunner scripts;
    MemoryDefaults defaults;
    RecordingExceptionHandler exceptions;

  private:
    Time mStart;
    std::optional<platform::PlatformScope> mScope;
};

}  // namespace simulator
