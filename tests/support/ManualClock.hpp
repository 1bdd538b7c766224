#pragma once

#include "platform/Clock.hpp"

#include <cstdint>
#include <mutex>
#include <vector>

namespace support {

/// A clock that moves only when it is told to, or when somebody sleeps on it: a wait takes no real time. Any thread.
class ManualClock : public platform::Clock {
  public:
    platform::CFAbsoluteTime CFAbsoluteTimeGetCurrent() override {
        const std::lock_guard lock(mMutex);
        return mNow;
    }

    bool MPDelayUntil(platform::CFAbsoluteTime wakeUp) override {
        const std::lock_guard lock(mMutex);
        mSleeps.push_back(wakeUp - mNow);
        if (wakeUp > mNow) mNow = wakeUp + kStep;
        return mSleepSucceeds;
    }

    /// Moves the clock. Each move ends a microsecond late, so that a stopwatch, which cuts to whole milliseconds, shows
    /// the number asked for whatever the rounding of the seconds.
    void Advance(std::uint64_t milliseconds) {
        const std::lock_guard lock(mMutex);
        if (milliseconds > 0) mNow += static_cast<double>(milliseconds) / 1000.0 + kStep;
    }

    void FailSleeps() {
        const std::lock_guard lock(mMutex);
        mSleepSucceeds = false;
    }

    /// Every sleep so far, in seconds.
    std::vector<double> Sleeps() const {
        const std::lock_guard lock(mMutex);
        return mSleeps;
    }

  private:
    static constexpr double kStep = 1e-6;

    mutable std::mutex mMutex;
    double mNow = 1000.0;         ///< guarded by mMutex
    std::vector<double> mSleeps;  ///< guarded by mMutex
    bool mSleepSucceeds = true;   ///< guarded by mMutex
};

}  // namespace support
