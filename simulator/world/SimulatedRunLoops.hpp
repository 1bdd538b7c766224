#pragma once

#include "platform/CFRunLoop.hpp"
#include "simulator/world/SimulatedClock.hpp"

#include <memory>

namespace simulator {

class SimulatedRunLoop;

/// The run loop of a test that has one thread and simulated time. Running a mode serves what is ready in it; when
/// nothing is, the clock moves to whatever comes first: a timer of the mode, a device's due moment, or the end of the
/// slice. At one and the same moment devices come first, then blocks, then timers, so that an answer at the very moment
/// of a time-out is in time. Serving takes no time here: what is ready again and again keeps a run from its end.
///
/// It differs from a real loop in two ways: CFRunLoopRun also returns once nothing is ready or due any more, since
/// nobody is left who could wake it, and a stop with no run under way ends the next run of any kind.
class SimulatedRunLoops final : public platform::CFRunLoops {
  public:
    explicit SimulatedRunLoops(SimulatedClock& clock);
    ~SimulatedRunLoops() override;

    /// The one loop. Only the thread that made this object may ask; another one is a mistake of the test and ends it.
    std::shared_ptr<platform::CFRunLoop> CFRunLoopGetCurrent() override;

    /// True while a block waits in any mode.
    bool hasReadyBlocks() const;

  private:
    std::shared_ptr<SimulatedRunLoop> mLoop;
};

}  // namespace simulator
