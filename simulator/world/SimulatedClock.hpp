#pragma once

#include "platform/Clock.hpp"
#include "simulator/engine/Types.hpp"

#include <atomic>
#include <functional>
#include <optional>
#include <vector>

namespace simulator {

/// A clock that only moves when somebody waits: every wait takes no real time. Work due on the way is done at its very
/// moment. Reading it is free for any thread; moving it belongs to one thread, the test's.
class SimulatedClock : public platform::Clock, public Drive {
  public:
    /// Starts at 2026-01-01 00:00:00 UTC, so that dates made from it look like dates.
    explicit SimulatedClock(platform::CFAbsoluteTime start = 788918400.0);

    platform::CFAbsoluteTime CFAbsoluteTimeGetCurrent() override;

    /// What a run loop with nothing to serve does: has time go on until there is something, but not beyond that moment.
    /// Where several threads take turns, this is where one hands over to the next.
    /// @param isReady  whether somebody else has brought something to serve
    /// @return false when nothing is due any more, and nobody is left who could bring anything
    virtual bool wait(Time moment, const std::function<bool()>& isReady);

    /// Moves the clock. Test thread only.
    bool MPDelayUntil(platform::CFAbsoluteTime wakeUp) override;

    // Drive
    Time now() override { return Time(mNow.load()); }
    void dueChanged() override {}  // whoever moves the clock asks anew

    /// Adds work that becomes due as the clock moves; it must outlive the clock's last move, or be removed before.
    void add(TimedWork& work) { mWork.push_back(&work); }
    void remove(TimedWork& work);

    /// The earliest due moment of all work.
    std::optional<Time> nextDue();

    /// Does all work due by now.
    void runDue();

    /// Moves the clock forward to that moment, doing the work due on the way in its order. Test thread only.
    void advanceTo(Time moment);
    void advanceBy(Duration span) { advanceTo(now() + span); }

    /// The moment of an absolute time, rounded to the microsecond: a double has no exact 3.001 seconds.
    static Time momentOf(platform::CFAbsoluteTime absolute);

  private:
    std::atomic<Time::rep> mNow;
    std::vector<TimedWork*> mWork;
};

}  // namespace simulator
