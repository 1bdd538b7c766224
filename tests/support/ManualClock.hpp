#pragma once

#include "platform/Clock.hpp"

#include <cstdint>
#include <vector>

namespace support {

/// A clock that moves only when it is told to, or when somebody sleeps on it: a wait takes no real time. Any thread may
/// read it; one moves it, while nobody reads.
class ManualClock : public platform::Clock {
  public:
    platform::CFAbsoluteTime CFAbsoluteTimeGetCurrent() override { return mNow; }

    bool MPDelayUntil(platform::CFAbsoluteTime wakeUp) override {
        mSleeps.push_back(wakeUp - mNow);
        if (wakeUp > mNow) mNow = wakeUp + kStep;
        return mSleepSucceeds;
    }

    /// Moves the clock. Each move ends a microsecond late, so that a stopwatch, which cuts to whole milliseconds, shows
    /// the number asked for whatever the rounding of the seconds.
    void Advance(std::uint64_t milliseconds) {
        if (milliseconds > 0) mNow += static_cast<double>(milliseconds) / 1000.0 + kStep;
    }

    void FailSleeps() { mSleepSucceeds = false; }

    /// Every sleep so far, in seconds.
    const std::vector<double>& Sleeps() const { return mSleeps; }

  private:
    static constexpr double kStep = 1e-6;

    double mNow = 1000.0;
    std::vector<double> mSleeps;
    bool mSleepSucceeds = true;
};

}  // namespace support
