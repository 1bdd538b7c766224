#pragma once

#include <cstdint>

namespace platform {

/// Seconds, as a span.
using CFTimeInterval = double;

/// Seconds since 2001-01-01 00:00:00 UTC. Anchored to the wall clock once at start-up, then advanced by the monotonic
/// clock: a step of the wall clock neither ends nor stretches a wait.
using CFAbsoluteTime = double;

/// What tells the time and sleeps. One per process, chosen by the composition root: the machine's clock, or a simulated
/// one on which a wait takes no real time. All operations may be called from any thread.
class Clock {
  public:
    virtual ~Clock() = default;

    /// Now.
    virtual CFAbsoluteTime CFAbsoluteTimeGetCurrent() = 0;

    /// Sleeps until the given moment; a moment that has passed returns at once.
    /// @return false when the sleep could not be carried out (never because it was interrupted)
    /// Blocks.
    virtual bool MPDelayUntil(CFAbsoluteTime wakeUp) = 0;
};

}  // namespace platform
