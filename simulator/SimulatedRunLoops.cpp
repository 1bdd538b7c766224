#include "simulator/SimulatedRunLoops.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace simulator {
namespace {

using platform::CFRunLoopRunResult;

/// Shared by the loop and the timer object that a caller owns.
struct TimerState {
    std::string mode;
    Time fires;
    Duration interval;
    std::function<void()> handler;
    bool valid = true;
};

class SimulatedTimer final : public platform::CFRunLoopTimer {
  public:
    explicit SimulatedTimer(std::shared_ptr<TimerState> state) : mState(std::move(state)) {}
    ~SimulatedTimer() override { mState->valid = false; }
    SimulatedTimer(const SimulatedTimer&) = delete;
    SimulatedTimer& operator=(const SimulatedTimer&) = delete;

    bool CFRunLoopTimerIsValid() const override { return mState->valid; }
    void CFRunLoopTimerInvalidate() override { mState->valid = false; }

  private:
    std::shared_ptr<TimerState> mState;
};

}  // namespace

class SimulatedRunLoop final : public platform::CFRunLoop, public std::enable_shared_from_this<SimulatedRunLoop> {
  public:
    explicit SimulatedRunLoop(SimulatedClock& clock) : mClock(clock) {}

    CFRunLoopRunResult CFRunLoopRunInMode(std::string_view mode, platform::CFTimeInterval seconds,
                                          bool returnAfterSourceHandled) override {
        // Beyond a century a wait is endless; the microseconds of a year of waiting still fit.
        const double longest = 3.2e9;
        const Time end = mClock.now() + SimulatedClock::momentOf(std::clamp(seconds, 0.0, longest));
        return runUntil(mode, end, returnAfterSourceHandled, false);
    }

    void CFRunLoopRun() override { runUntil(platform::kCFRunLoopDefaultMode, Time::max(), false, true); }

    void CFRunLoopStop() override {
        const std::lock_guard lock(mMutex);
        mStop = true;
    }

    void CFRunLoopPerformBlock(std::string_view mode, std::function<void()> block) override {
        const std::lock_guard lock(mMutex);
        mBlocks.emplace_back(std::string(mode), std::move(block));
    }

    void CFRunLoopAddSource(const std::shared_ptr<platform::CFRunLoopSource>& source, std::string_view mode) override {
        mSources.push_back(source);
        source->Scheduled(shared_from_this(), mode);
    }

    void CFRunLoopRemoveSource(const std::shared_ptr<platform::CFRunLoopSource>& source) override {
        if (std::erase(mSources, source) > 0) source->Cancelled();
    }

    std::unique_ptr<platform::CFRunLoopTimer> CFRunLoopAddTimer(std::string_view mode,
                                                                platform::CFAbsoluteTime fireDate,
                                                                platform::CFTimeInterval interval,
                                                                std::function<void()> handler) override {
        auto state = std::make_shared<TimerState>(TimerState{std::string(mode), SimulatedClock::momentOf(fireDate),
                                                             SimulatedClock::momentOf(interval), std::move(handler)});
        mTimers.push_back(state);
        return std::make_unique<SimulatedTimer>(std::move(state));
    }

    bool hasReadyBlocks() const {
        const std::lock_guard lock(mMutex);
        return !mBlocks.empty();
    }

    /// The loop's thread ends: its sources let go of it.
    void finish() {
        for (auto& source : std::exchange(mSources, {})) source->Cancelled();
        mTimers.clear();
        std::deque<std::pair<std::string, std::function<void()>>> blocks;
        const std::lock_guard lock(mMutex);
        blocks.swap(mBlocks);
    }

  private:
    CFRunLoopRunResult runUntil(std::string_view mode, Time end, bool returnAfterSourceHandled, bool returnsWhenQuiet) {
        for (;;) {
            // Devices first: an answer due at the very moment of a time-out is in time.
            mClock.runDue();
            if (takeStop()) return CFRunLoopRunResult::Stopped;
            if (runBlock(mode) || fireTimer(mode)) {
                if (returnAfterSourceHandled) return CFRunLoopRunResult::HandledSource;
                continue;
            }
            if (mClock.now() >= end) return CFRunLoopRunResult::TimedOut;
            Time next = end;
            if (const auto due = mClock.nextDue()) next = std::min(next, *due);
            if (const auto timer = nextTimer(mode)) next = std::min(next, timer->fires);
            // One thread: with nothing due, nobody is left to wake this run.
            if (next == Time::max() && returnsWhenQuiet) return CFRunLoopRunResult::TimedOut;
            mClock.advanceTo(next);
        }
    }

    /// A stop counts once, for whichever run sees it first.
    bool takeStop() {
        const std::lock_guard lock(mMutex);
        return std::exchange(mStop, false);
    }

    bool runBlock(std::string_view mode) {
        std::function<void()> block;
        {
            const std::lock_guard lock(mMutex);
            const auto found =
                std::find_if(mBlocks.begin(), mBlocks.end(), [&](const auto& one) { return one.first == mode; });
            if (found == mBlocks.end()) return false;
            block = std::move(found->second);
            mBlocks.erase(found);
        }
        block();
        return true;
    }

    std::shared_ptr<TimerState> nextTimer(std::string_view mode) {
        std::erase_if(mTimers, [](const auto& timer) { return !timer->valid; });
        std::shared_ptr<TimerState> next;
        for (const auto& timer : mTimers) {
            if (timer->mode == mode && (!next || timer->fires < next->fires)) next = timer;
        }
        return next;
    }

    bool fireTimer(std::string_view mode) {
        const auto timer = nextTimer(mode);
        if (!timer || timer->fires > mClock.now()) return false;
        if (timer->interval > Duration{0}) {
            timer->fires += timer->interval;
        } else {
            timer->valid = false;  // before the handler, which may ask
        }
        timer->handler();
        return true;
    }

    SimulatedClock& mClock;
    std::vector<std::shared_ptr<TimerState>> mTimers;
    std::vector<std::shared_ptr<platform::CFRunLoopSource>> mSources;
    mutable std::mutex mMutex;
    std::deque<std::pair<std::string, std::function<void()>>> mBlocks;  ///< under mMutex
    bool mStop = false;                                                 ///< under mMutex
};

SimulatedRunLoops::SimulatedRunLoops(SimulatedClock& clock)
    : mOwner(std::this_thread::get_id()), mLoop(std::make_shared<SimulatedRunLoop>(clock)) {}

SimulatedRunLoops::~SimulatedRunLoops() {
    mLoop->finish();
}

std::shared_ptr<platform::CFRunLoop> SimulatedRunLoops::CFRunLoopGetCurrent() {
    if (std::this_thread::get_id() != mOwner) {
        std::fputs("A simulated run loop was asked for on a second thread.\n", stderr);
        std::abort();
    }
    return mLoop;
}

bool SimulatedRunLoops::hasReadyBlocks() const {
    return mLoop->hasReadyBlocks();
}

}  // namespace simulator
