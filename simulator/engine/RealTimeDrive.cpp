#include "simulator/engine/RealTimeDrive.hpp"

namespace simulator {

RealTimeDrive::~RealTimeDrive() {
    requestStop();
    join();
}

void RealTimeDrive::start(TimedWork& work) {
    mThread = std::thread([this, &work] { run(work); });
}

void RealTimeDrive::requestStop() {
    {
        const std::lock_guard lock(mMutex);
        mStop = true;
    }
    mWake.notify_one();
}

void RealTimeDrive::join() {
    if (mThread.joinable()) mThread.join();
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

void RealTimeDrive::run(TimedWork& work) {
    const auto woken = [this] { return mChanged || mStop; };
    for (;;) {
        // Asked before the lock is taken: the work has a lock of its own. A change after the question sets mChanged.
        const auto due = work.nextDue();
        std::unique_lock lock(mMutex);
        if (due) {
            mWake.wait_until(lock, std::chrono::steady_clock::time_point(*due), woken);
        } else {
            mWake.wait(lock, woken);
        }
        mChanged = false;
        if (mStop) return;
        lock.unlock();
        work.run(now());
    }
}

}  // namespace simulator
