#include "simulator/world/SimulatedClock.hpp"

#include <algorithm>
#include <cmath>

namespace simulator {

SimulatedClock::SimulatedClock(platform::CFAbsoluteTime start) : mNow(momentOf(start).count()) {}

Time SimulatedClock::momentOf(platform::CFAbsoluteTime absolute) {
    return Time(static_cast<Time::rep>(std::llround(absolute * 1e6)));
}

platform::CFAbsoluteTime SimulatedClock::CFAbsoluteTimeGetCurrent() {
    return static_cast<double>(mNow.load()) / 1e6;
}

bool SimulatedClock::MPDelayUntil(platform::CFAbsoluteTime wakeUp) {
    advanceTo(momentOf(wakeUp));
    return true;
}

bool SimulatedClock::wait(Time moment, const std::function<bool()>&) {
    if (const auto due = nextDue()) moment = std::min(moment, *due);
    if (moment == Time::max()) return false;
    advanceTo(moment);
    return true;
}

void SimulatedClock::remove(TimedWork& work) {
    std::erase(mWork, &work);
}

std::optional<Time> SimulatedClock::nextDue() {
    std::optional<Time> earliest;
    for (auto* work : mWork) bringForward(earliest, work->nextDue());
    return earliest;
}

void SimulatedClock::runDue() {
    for (auto* work : mWork) {
        const auto due = work->nextDue();
        if (due && *due <= now()) work->run(now());
    }
}

void SimulatedClock::advanceTo(Time moment) {
    for (auto due = nextDue(); due && *due <= moment; due = nextDue()) {
        // Work may be overdue when it was added late; the clock never goes back for it.
        if (*due > now()) mNow = due->count();
        runDue();
    }
    if (moment > now()) mNow = moment.count();
}

}  // namespace simulator
