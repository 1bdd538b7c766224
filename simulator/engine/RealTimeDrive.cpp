#include "simulator/engine/RealTimeDrive.hpp"

namespace simulator {

void RealTimeDrive::start(TimedWork& work) {
    mThread = std::jthread([this, &work](const std::stop_token& stop) { run(stop, work); });
}

Time RealTimeDrive::now() {
    return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now().time_since_epoch());
}

void RealTimeDrive::dueChanged() {
    {
        const std::lock_guard lock(mMutex);
        mChanged = true;
    }
    mWake.notify_one();
}

void RealTimeDrive::run(const std::stop_token& stop, TimedWork& work) {
    const auto changed = [this] { return mChanged; };
    while (!stop.stop_requested()) {
        // Asked before the lock is taken: the work has a lock of its own. A change after the question sets mChanged.
        const auto due = work.nextDue();
        std::unique_lock lock(mMutex);
        if (due) {
            mWake.wait_until(lock, stop, std::chrono::steady_clock::time_point(*due), changed);
        } else {
            mWake.wait(lock, stop, changed);
        }
        mChanged = false;
        lock.unlock();
        if (stop.stop_requested()) return;
        work.run(now());
    }
}

}  // namespace simulator
