#include "libs/WIN/mac/WINNativeTimer.hpp"

#include "WIN/WIN_CallbackTimer.hpp"
#include "platform/Dispatch.hpp"
#include "platform/Platform.hpp"
#include "platform/common/Boundary.hpp"

#include <utility>

WINNativeTimer_t::WINNativeTimer_t(win::CallbackTimer_t& callback) : mCallback(callback) {}
WINNativeTimer_t::~WINNativeTimer_t() {
    stopTimer();
}

void WINNativeTimer_t::startTimerWithTimeInterval(double seconds, bool repeats) {
    stopTimer();
    std::uint64_t generation = 0;
    {
        const std::lock_guard lock(mLock);
        mIsRunning = true;
        generation = ++mGeneration;
    }
    // Called from another thread, the timer may fire before it is stored below; that is why running is a flag of its
    // own.
    auto timer = platform::dispatch_get_main_queue().scheduledTimerWithTimeInterval(
        seconds, repeats, [this, generation, repeats] { Fired(generation, repeats); });
    {
        const std::lock_guard lock(mLock);
        if (mGeneration == generation && mIsRunning) std::swap(mTimer, timer);
    }
    if (timer) timer->invalidate();
}

bool WINNativeTimer_t::isTimerRunning() const {
    const std::lock_guard lock(mLock);
    return mIsRunning;
}

void WINNativeTimer_t::stopTimer() {
    std::shared_ptr<platform::NSTimer> timer;
    {
        const std::lock_guard lock(mLock);
        mIsRunning = false;
        timer = std::move(mTimer);
    }
    if (timer) timer->invalidate();
}

void WINNativeTimer_t::runCallback() {
    if (isTimerRunning()) mCallback.TimerElapsed();
}

void WINNativeTimer_t::Fired(std::uint64_t generation, bool repeats) {
    {
        const std::lock_guard lock(mLock);
        if (generation != mGeneration) return;
    }
    const std::weak_ptr<void> self = mSelf;
    platform::runGuarded([this] { runCallback(); }, "libs/WIN/mac/WINNativeTimer", __LINE__);
    if (self.expired()) return;  // the handler has destroyed its timer, and this with it
    const std::lock_guard lock(mLock);
    if (!repeats && generation == mGeneration) mIsRunning = false;
}
