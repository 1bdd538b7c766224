#include "simulator/world/SimulatedRunLoops.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace simulator {
namespace {

using platform::CFRunLoopRunResult;

/// Shared by the loop and the timer object that a caller owns.
struct TimerState {
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
        assertOwner();
        if (!(seconds > 0) && !returnAfterSourceHandled) return serveWhatIsReady(modeNamed(mode));
        // Beyond a century a wait is endless; the microseconds of a year of waiting still fit.
        const double longest = 3.2e9;
        const Time end = mClock.now() + SimulatedClock::momentOf(std::clamp(seconds, 0.0, longest));
        return runUntil(modeNamed(mode), end, returnAfterSourceHandled, false);
    }

    void CFRunLoopRun() override {
        assertOwner();
        runUntil(modeNamed(platform::kCFRunLoopDefaultMode), Time::max(), false, true);
    }

    void CFRunLoopStop() override {
        const std::lock_guard lock(mMutex);
        mStop = true;
    }

    void CFRunLoopPerformBlock(std::string_view mode, std::function<void()> block) override {
        const std::lock_guard lock(mMutex);
        if (mFinished) return;  // the block goes with this call
        mModes.try_emplace(std::string(mode)).first->second.blocks.push_back(std::move(block));
    }

    void CFRunLoopAddSource(const std::shared_ptr<platform::CFRunLoopSource>& source, std::string_view mode) override {
        assertOwner();
        mSources.push_back(source);
        source->scheduled(shared_from_this(), mode);
    }

    void CFRunLoopRemoveSource(const std::shared_ptr<platform::CFRunLoopSource>& source) override {
        if (std::erase(mSources, source) > 0) source->cancelled();
    }

    std::unique_ptr<platform::CFRunLoopTimer> CFRunLoopAddTimer(std::string_view mode,
                                                                platform::CFAbsoluteTime fireDate,
                                                                platform::CFTimeInterval interval,
                                                                std::function<void()> handler) override {
        assertOwner();
        auto state = std::make_shared<TimerState>(
            TimerState{SimulatedClock::momentOf(fireDate), SimulatedClock::momentOf(interval), std::move(handler)});
        modeNamed(mode).timers.push_back(state);
        return std::make_unique<SimulatedTimer>(std::move(state));
    }

    void assertOwner() const {
        if (std::this_thread::get_id() == mOwner) return;
        std::fputs("A simulated run loop was used by a thread that does not own it.\n", stderr);
        std::abort();
    }

    bool hasReadyBlocks() const {
        const std::lock_guard lock(mMutex);
        return std::ranges::any_of(mModes, [](const auto& mode) { return !mode.second.blocks.empty(); });
    }

    /// The loop's thread ends: its sources let go of it.
    void finish() {
        for (auto& source : std::exchange(mSources, {})) source->cancelled();
        decltype(mModes) modes;
        const std::lock_guard lock(mMutex);
        mFinished = true;
        modes.swap(mModes);
    }

  private:
    using Timers = std::deque<std::shared_ptr<TimerState>>;
    struct Mode {
        std::deque<std::function<void()>> blocks;  ///< under mMutex
        Timers timers;
        /// The first so many were ready when the turn began; what came later has to wait.
        std::size_t blocksOfTurn = 0;
        Time turnBegan{};
        std::shared_ptr<TimerState> due;  ///< was due as the turn began: where it still is, the turn ends with timers
        Timers firing;                    ///< these
    };

    Mode& modeNamed(std::string_view name) {
        const std::lock_guard lock(mMutex);
        return mModes.try_emplace(std::string(name)).first->second;
    }

    CFRunLoopRunResult runUntil(Mode& mode, Time end, bool returnAfterSourceHandled, bool returnsWhenQuiet) {
        for (;;) {
            if (takeStop()) return CFRunLoopRunResult::Stopped;
            const bool served = serveNext(mode);
            if (takeStop()) return CFRunLoopRunResult::Stopped;
            if (served && returnAfterSourceHandled) return CFRunLoopRunResult::HandledSource;
            if (served) continue;
            if (mClock.now() >= end) return CFRunLoopRunResult::TimedOut;
            Time next = end;
            if (const auto timer = nextTimer(mode)) next = std::min(next, timer->fires);
            if (!mClock.wait(next, [&] { return isReady(mode); }) && returnsWhenQuiet)
                return CFRunLoopRunResult::TimedOut;
        }
    }

    /// A run of 0 seconds: all that was ready when it began, the timers last.
    CFRunLoopRunResult serveWhatIsReady(Mode& mode) {
        beginTurn(mode);
        mode.due.reset();
        const Timers firing = dueTimers(mode);  // not the mode's: a run inside a handler may begin a turn of its own
        bool stopped = takeStop();
        for (auto left = mode.blocksOfTurn; left > 0 && !stopped; --left) {
            runBlock(mode);
            stopped = takeStop();
        }
        for (const auto& timer : firing) {
            if (stopped) break;
            fire(*timer);
            stopped = takeStop();
        }
        return stopped ? CFRunLoopRunResult::Stopped : CFRunLoopRunResult::TimedOut;
    }

    /// Serves one thing, of a turn under way or of a new one. False when nothing is ready.
    bool serveNext(Mode& mode) {
        for (bool hasBegun = false;; hasBegun = true) {
            if (runBlock(mode)) return true;
            if (const auto due = std::exchange(mode.due, {}); due && due->valid) mode.firing = dueTimers(mode);
            while (!mode.firing.empty()) {
                const auto timer = std::move(mode.firing.front());
                mode.firing.pop_front();
                if (fire(*timer)) return true;
            }
            if (hasBegun) return false;
            beginTurn(mode);
        }
    }

    /// Devices first: an answer due at the very moment of a time-out is in time.
    void beginTurn(Mode& mode) {
        mClock.runDue();
        mode.turnBegan = mClock.now();
        mode.firing.clear();
        mode.due = nextTimer(mode);
        if (mode.due && mode.due->fires > mode.turnBegan) mode.due.reset();
        const std::lock_guard lock(mMutex);
        mode.blocksOfTurn = mode.blocks.size();
    }

    /// The timers whose moment had come when the turn began, the earliest first.
    static Timers dueTimers(const Mode& mode) {
        Timers due;
        std::ranges::copy_if(mode.timers, std::back_inserter(due),
                             [&](const auto& timer) { return timer->valid && timer->fires <= mode.turnBegan; });
        std::ranges::stable_sort(due, {}, [](const auto& timer) { return timer->fires; });
        return due;
    }

    bool isReady(const Mode& mode) const {
        const std::lock_guard lock(mMutex);
        return mStop || !mode.blocks.empty();
    }

    /// A stop counts once, for whichever run sees it first.
    bool takeStop() {
        const std::lock_guard lock(mMutex);
        return std::exchange(mStop, false);
    }

    bool runBlock(Mode& mode) {
        if (mode.blocksOfTurn == 0) return false;
        --mode.blocksOfTurn;
        std::function<void()> block;
        {
            const std::lock_guard lock(mMutex);
            block = std::move(mode.blocks.front());
            mode.blocks.pop_front();
        }
        block();
        return true;
    }

    static std::shared_ptr<TimerState> nextTimer(Mode& mode) {
        std::erase_if(mode.timers, [](const auto& timer) { return !timer->valid; });
        const auto next = std::ranges::min_element(mode.timers, {}, [](const auto& timer) { return timer->fires; });
        return next == mode.timers.end() ? nullptr : *next;
    }

    /// Fires a timer, unless it has been invalidated, or has fired, since it was found to be due.
    bool fire(TimerState& timer) {
        if (!timer.valid || timer.fires > mClock.now()) return false;
        if (timer.interval > Duration{0}) {
            timer.fires +=
                ((mClock.now() - timer.fires) / timer.interval + 1) * timer.interval;  // missed ones are lost
        } else {
            timer.valid = false;  // before the handler, which may ask
        }
        timer.handler();
        return true;
    }

    SimulatedClock& mClock;
    const std::thread::id mOwner = std::this_thread::get_id();
    std::vector<std::shared_ptr<platform::CFRunLoopSource>> mSources;
    mutable std::mutex mMutex;
    std::map<std::string, Mode, std::less<>> mModes;  ///< under mMutex; each stays once it is named
    bool mStop = false;                               ///< under mMutex
    bool mFinished = false;                           ///< under mMutex
};

SimulatedRunLoops::SimulatedRunLoops(SimulatedClock& clock) : mLoop(std::make_shared<SimulatedRunLoop>(clock)) {}

SimulatedRunLoops::~SimulatedRunLoops() {
    mLoop->finish();
}

std::shared_ptr<platform::CFRunLoop> SimulatedRunLoops::CFRunLoopGetCurrent() {
    mLoop->assertOwner();
    return mLoop;
}

bool SimulatedRunLoops::hasReadyBlocks() const {
    return mLoop->hasReadyBlocks();
}

}  // namespace simulator
