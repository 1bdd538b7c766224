#pragma once

#include "platform/Clock.hpp"

namespace platform {

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
