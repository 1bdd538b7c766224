#include "simulator/world/ManualQueue.hpp"

#include <atomic>
#include <utility>

namespace simulator {

class ManualQueue::Timer final : public platform::NSTimer {
  public:
    Timer(Time due, Duration every, std::function<void()> work) : fires(due), period(every), handler(std::move(work)) {}

    bool isValid() const override { return valid; }
    void invalidate() override { valid = false; }

    Time fires;
    Duration period;  ///< 0 for one shot
    std::function<void()> handler;
    std::atomic<bool> valid{true};
};

ManualQueue::ManualQueue(SimulatedClock& clock) : mClock(clock) {
    clock.add(*this);
}
ManualQueue::~ManualQueue() {
    mClock.remove(*this);
}

bool ManualQueue::drainOne() {
    std::function<void()> block;
    {
        const std::lock_guard lock(mMutex);
        if (mBlocks.empty()) return false;
        block = std::move(mBlocks.front());
        mBlocks.pop_front();
    }
    block();
    return true;
}

std::size_t ManualQueue::drain() {
    std::size_t count = 0;
    while (drainOne()) ++count;
    return count;
}

std::size_t ManualQueue::waiting() const {
    const std::lock_guard lock(mMutex);
    return mBlocks.size();
}

void ManualQueue::dispatch_async(std::function<void()> block) {
    const std::lock_guard lock(mMutex);
    mBlocks.push_back(std::move(block));
}

void ManualQueue::dispatch_sync(const std::function<void()>& block) {
    drain();
    block();
}

std::shared_ptr<platform::NSTimer> ManualQueue::scheduledTimerWithTimeInterval(platform::CFTimeInterval seconds,
                                                                               bool repeats,
                                                                               std::function<void()> handler) {
    const Duration span = SimulatedClock::momentOf(seconds);
    auto timer = std::make_shared<Timer>(mClock.now() + span, repeats ? span : Duration{0}, std::move(handler));
    mTimers.push_back(timer);
    // The handle that the caller gets ends the timer; the queue's own reference only outlives it.
    return {timer.get(), [timer](platform::NSTimer*) { timer->invalidate(); }};
}

std::optional<Time> ManualQueue::nextDue() {
    std::erase_if(mTimers, [](const auto& timer) { return !timer->valid; });
    std::optional<Time> due;
    for (const auto& timer : mTimers) bringForward(due, timer->fires);
    return due;
}

void ManualQueue::run(Time now) {
    for (const auto& timer : std::vector(mTimers)) {
        if (!timer->valid || timer->fires > now) continue;
        const bool repeats = timer->period > Duration{0};
        if (repeats) {
            timer->fires += timer->period;
        } else {
            std::erase(mTimers, timer);
        }
        dispatch_async([timer, repeats] {
            if (!timer->valid) return;
            if (!repeats) timer->valid = false;
            timer->handler();
        });
    }
}

}  // namespace simulator
