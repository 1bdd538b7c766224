#pragma once

#include "platform/Dispatch.hpp"
#include "simulator/world/SimulatedClock.hpp"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace simulator {

/// A queue whose blocks wait until somebody drains it. Timers become due with the simulated clock and then wait as
/// blocks do. Blocks may be submitted on any thread; all else belongs to the one thread that moves the clock.
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

}  // namespace simulator
