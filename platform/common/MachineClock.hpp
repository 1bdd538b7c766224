#pragma once

#include "platform/Clock.hpp"

#include <chrono>

namespace platform {

/// Moments of CFAbsoluteTime count from here, in the seconds that the system counts from 1970.
inline constexpr std::chrono::seconds kUnixTimeOfAbsoluteZero{978307200};  ///< 2001-01-01 00:00:00 UTC

/// The machine's clock. Any thread.
class MachineClock : public Clock {
  public:
    MachineClock();
    CFAbsoluteTime CFAbsoluteTimeGetCurrent() override;
    bool MPDelayUntil(CFAbsoluteTime wakeUp) override;

  private:
    CFAbsoluteTime mAnchor;  ///< wall clock minus monotonic clock when this object was made, in seconds
};

}  // namespace platform
