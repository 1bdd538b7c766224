#pragma once

#include "cli/Workers.hpp"
#include "explore/Dice.hpp"
#include "platform/CFRunLoop.hpp"
#include "platform/Dispatch.hpp"
#include "simulator/world/SimulatedClock.hpp"
#include "simulator/world/SimulatedRunLoops.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace explore {

/// Has the threads of one world run one at a time, on one simulated clock. A thread, here a flow, gives the baton away
/// where it would block, in a wait of its run loop or of the clock, and nowhere else; which of the flows that have
/// something to do gets it next is thrown with the dice. Only when none has, time goes on.
///
/// They are real threads, since the library keeps what belongs to a thread in variables of the thread. The flow that
/// makes this object is the first; it must outlive the others' last turn.
class Baton final : public simulator::SimulatedClock,
                    public platform::CFRunLoops,
                    public platform::DispatchQueue,
                    public twin::Workers {
  public:
    /// @param shuffles  else the flow that has waited longest goes first
    Baton(std::uint64_t seed, bool shuffles);
    ~Baton() override;
    Baton(const Baton&) = delete;
    Baton& operator=(const Baton&) = delete;

    /// Adds a flow, whose first turn comes later.
    void flow(std::string name, std::function<void()> work);
    /// Waits until something holds. @return false when nobody is left who could bring it about
    bool until(const std::function<bool()>& holds);
    /// The flows but the first get no further turn, as when their process is killed.
    void abandon() { mFlows.resize(1); }
    [[nodiscard]] std::size_t flows() const { return mFlows.size() - 1; }  ///< beside the first, and not over
    [[nodiscard]] static bool isFlow() { return mCurrent != nullptr; }     ///< the calling thread
    [[nodiscard]] std::size_t steps() const { return mSteps; }

    /// Called between two turns: by whoever has the baton, in no flow's name.
    std::function<void()> onStep;

    // simulator::SimulatedClock
    bool wait(simulator::Time moment, const std::function<bool()>& isReady) override;
    bool MPDelayUntil(platform::CFAbsoluteTime wakeUp) override;
    // platform::CFRunLoops
    std::shared_ptr<platform::CFRunLoop> CFRunLoopGetCurrent() override;
    // twin::Workers
    void start(std::function<void()> work) override { flow("opening", std::move(work)); }
    void join() override;
    // platform::DispatchQueue: the global queue
    void dispatch_async(std::function<void()> block) override { flow("block", std::move(block)); }
    void dispatch_sync(const std::function<void()>& block) override { block(); }

  private:
    struct Flow;

    Flow* next();

    static thread_local std::shared_ptr<Flow> mCurrent;  ///< the thread's own
    Dice mDice;
    const bool mShuffles;
    const simulator::Time mStart = now();
    std::vector<std::shared_ptr<Flow>> mFlows;  ///< in the order of their beginning; those that are over go
    std::size_t mBegun = 0;
    std::size_t mSteps = 0;
};

}  // namespace explore
