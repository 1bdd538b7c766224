#include "platform/common/RunLoopMainQueue.hpp"

#include "platform/Platform.hpp"
#include "platform/common/Boundary.hpp"

#include <algorithm>
#include <atomic>
#include <future>
#include <utility>

namespace platform {
namespace {

constexpr CFTimeInterval kShortestPeriod = 0.0001;  // of a repeating timer that asks for none

/// What a main queue timer and the blocks that it posts share: either may be the last to go.
struct MainTimerState {
    std::atomic<bool> valid = true;
    bool repeats = false;
    std::function<void()> handler;
    std::unique_ptr<CFRunLoopTimer> timer;  // main thread
};

class MainTimer final : public NSTimer {
  public:
    MainTimer(std::shared_ptr<CFRunLoop> loop, std::thread::id mainThread, std::shared_ptr<MainTimerState> state)
        : mLoop(std::move(loop)), mMainThread(mainThread), mState(std::move(state)) {}
    ~MainTimer() override { MainTimer::invalidate(); }
    MainTimer(const MainTimer&) = delete;
    MainTimer& operator=(const MainTimer&) = delete;

    bool isValid() const override { return mState->valid; }

    void invalidate() override {
        if (!mState->valid.exchange(false)) return;
        if (std::this_thread::get_id() == mMainThread) {
            mState->timer.reset();
        } else {
            // The loop's timer belongs to the main thread.
            mLoop->CFRunLoopPerformBlock(kCFRunLoopDefaultMode, [state = mState] { state->timer.reset(); });
        }
    }

  private:
    const std::shared_ptr<CFRunLoop> mLoop;
    const std::thread::id mMainThread;
    const std::shared_ptr<MainTimerState> mState;
};

}  // namespace

RunLoopMainQueue::RunLoopMainQueue(CFRunLoops& runLoops) : mLoop(runLoops.CFRunLoopGetCurrent()) {}

void RunLoopMainQueue::dispatch_async(std::function<void()> block) {
    mLoop->CFRunLoopPerformBlock(kCFRunLoopDefaultMode,
                                 [block = std::move(block)] { runGuarded(block, "RunLoopMainQueue", __LINE__); });
}

void RunLoopMainQueue::dispatch_sync(const std::function<void()>& block) {
    // The promise goes with the posted block, run or not, and so ends the wait either way.
    auto done = std::make_shared<std::promise<void>>();
    const std::future<void> ran = done->get_future();
    mLoop->CFRunLoopPerformBlock(kCFRunLoopDefaultMode, [&block, done = std::move(done)] {
        runGuarded(block, "RunLoopMainQueue", __LINE__);
        done->set_value();
    });
    ran.wait();
}

std::shared_ptr<NSTimer> RunLoopMainQueue::scheduledTimerWithTimeInterval(CFTimeInterval seconds, bool repeats,
                                                                          std::function<void()> handler) {
    auto state = std::make_shared<MainTimerState>();
    state->repeats = repeats;
    state->handler = std::move(handler);
    const CFAbsoluteTime fireDate = CFAbsoluteTimeGetCurrent() + seconds;
    const auto schedule = [loop = std::weak_ptr(mLoop), state, fireDate, seconds] {
        const auto mainLoop = loop.lock();
        if (!mainLoop || !state->valid) return;
        state->timer = mainLoop->CFRunLoopAddTimer(kCFRunLoopDefaultMode, fireDate,
                                                   state->repeats ? std::max(seconds, kShortestPeriod) : 0,
                                                   [weak = std::weak_ptr(state)] {
                                                       const auto self = weak.lock();
                                                       if (!self || !self->valid) return;
                                                       if (!self->repeats) self->valid = false;
                                                       runGuarded(self->handler, "RunLoopMainQueue", __LINE__);
                                                   });
    };
    if (std::this_thread::get_id() == mMainThread) {
        schedule();
    } else {
        mLoop->CFRunLoopPerformBlock(kCFRunLoopDefaultMode, schedule);
    }
    return std::make_shared<MainTimer>(mLoop, mMainThread, std::move(state));
}

}  // namespace platform
