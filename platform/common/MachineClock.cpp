#include "platform/common/MachineClock.hpp"

#include <cerrno>
#include <cmath>
#include <ctime>

namespace platform {
namespace {

constexpr double kNanosecondsPerSecond = 1e9;

double secondsOf(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / kNanosecondsPerSecond;
}

}  // namespace

MachineClock::MachineClock()
    : mAnchor(secondsOf(CLOCK_REALTIME) - static_cast<double>(kUnixTimeOfAbsoluteZero.count()) -
              secondsOf(CLOCK_MONOTONIC)) {}

CFAbsoluteTime MachineClock::CFAbsoluteTimeGetCurrent() {
    return mAnchor + secondsOf(CLOCK_MONOTONIC);
}

bool MachineClock::MPDelayUntil(CFAbsoluteTime wakeUp) {
    const double monotonic = wakeUp - mAnchor;
    if (!(monotonic > 0)) return true;
    const double whole = std::floor(monotonic);
    const timespec until{static_cast<time_t>(whole), static_cast<long>((monotonic - whole) * kNanosecondsPerSecond)};
    int result = 0;
    do {
        result = clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
    } while (result == EINTR);
    return result == 0;
}

}  // namespace platform
