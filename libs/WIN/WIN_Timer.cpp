#include "WIN/WIN_Timer.hpp"

#include "platform/Platform.hpp"

namespace win {

Timer_t::Timer_t() : mStartTime(platform::CFAbsoluteTimeGetCurrent()) {}

void Timer_t::Start() {
    mStartTime = platform::CFAbsoluteTimeGetCurrent();
    mIsRunning = true;
}

void Timer_t::Stop() {
    if (!mIsRunning) return;
    mStopTime = platform::CFAbsoluteTimeGetCurrent();
    mIsRunning = false;
}

void Timer_t::Continue() {
    if (mIsRunning) return;
    mStartTime = platform::CFAbsoluteTimeGetCurrent() - static_cast<double>(ElapsedTime()) / 1000.0;
    mIsRunning = true;
}

std::uint64_t Timer_t::ElapsedTime() const {
    const double elapsed = ((mIsRunning ? platform::CFAbsoluteTimeGetCurrent() : mStopTime) - mStartTime) * 1000.0;
    // A negative number has no unsigned one; a clock that ran back shows as no time at all.
    return elapsed > 0 ? static_cast<std::uint64_t>(elapsed) : 0;
}

}  // namespace win
