#include "platform/linux/loop/AsioRunLoop.hpp"

#include "platform/Platform.hpp"
#include "platform/common/FileDescriptor.hpp"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <iterator>
#include <optional>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <system_error>
#include <utility>

namespace platform {
namespace {

using Steady = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr double kForever = 1e8;  // seconds; a longer run has no end, and no wake-up to look for one

/// Runs a function at the end of a scope, exceptions included.
template <typename F>
struct AtScopeEnd {
    F function;
    ~AtScopeEnd() { function(); }
};
template <typename F>
AtScopeEnd(F) -> AtScopeEnd<F>;

[[noreturn]] void refuseSecondWait() {
    std::fputs("A run loop's mode that waits in a device can wait for nothing else.\n", stderr);
    std::abort();
}

}  // namespace

struct AsioRunLoop::Mode {
    explicit Mode(std::string_view modeName) : name(modeName) {}

    const std::string name;
    boost::asio::io_context context;
    // An empty mode waits instead of returning at once.
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{context.get_executor()};
    std::size_t users = 0;                     // loop's mMutex
    std::deque<std::function<void()>> blocks;  // loop's mMutex
    bool isWoken = false;                      // loop's mMutex: a wake-up is on its way
    OwnWait* own = nullptr;                    // loop's mMutex; only the owner thread changes it

    // Owner thread. What is ready when a turn begins is served in it, each once; what comes later has to wait.
    std::multimap<CFAbsoluteTime, std::shared_ptr<TimerState>> timers;
    std::size_t blocksOfTurn = 0;                      // the first so many
    std::deque<std::shared_ptr<WatchState>> readable;  // descriptors of the turn
    std::size_t watches = 0;
    bool ownIsReady = false;  // what the own wait has found for the turn is to be served
    CFAbsoluteTime turnBegan = 0;
    std::weak_ptr<TimerState> due;  // one that was due as the turn began: where it still is, the turn ends with timers
    std::deque<std::weak_ptr<TimerState>> firing;  // these
};

/// Keeps a mode in existence. Shares the loop and the mode: a timer or a watch may outlive both the loop's thread and
/// the loop's own list of modes.
class AsioRunLoop::ModeUse {
  public:
    ModeUse(std::shared_ptr<AsioRunLoop> runLoop, std::string_view name) : loop(std::move(runLoop)) {
        const std::lock_guard lock(loop->mMutex);
        mode = loop->modeNamed(name);
        ++mode->users;
    }
    ~ModeUse() {
        if (mode) loop->leave(*mode);
    }
    ModeUse(ModeUse&&) = default;
    ModeUse& operator=(ModeUse&& other) noexcept {
        ModeUse old(std::move(*this));
        loop = std::move(other.loop);
        mode = std::move(other.mode);
        return *this;
    }

    std::shared_ptr<AsioRunLoop> loop;
    std::shared_ptr<Mode> mode;
};

/// One run under way, on the owner thread's stack.
struct AsioRunLoop::Frame {
    Frame(std::shared_ptr<AsioRunLoop> loop, std::string_view modeName) : use(std::move(loop), modeName) {
        const std::lock_guard lock(use.loop->mMutex);
        use.loop->mFrames.push_back(this);
    }
    ~Frame() {
        const std::lock_guard lock(use.loop->mMutex);
        use.loop->mFrames.pop_back();
    }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    ModeUse use;
    std::atomic<bool> stop = false;
};

struct AsioRunLoop::ScheduledSource {
    std::shared_ptr<CFRunLoopSource> source;
    ModeUse use;
};

// ---- timers ----

struct AsioRunLoop::TimerState {
    std::optional<ModeUse> use;  // given up when the timer becomes invalid
    CFTimeInterval interval;
    std::function<void()> handler;
};

class AsioRunLoop::Timer final : public CFRunLoopTimer {
  public:
    explicit Timer(std::shared_ptr<TimerState> state) : mState(std::move(state)) {}
    ~Timer() override { Timer::CFRunLoopTimerInvalidate(); }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    bool CFRunLoopTimerIsValid() const override { return mState->use.has_value(); }

    void CFRunLoopTimerInvalidate() override {
        if (!mState->use) return;
        mState->use->loop->assertOwner();
        std::erase_if(mState->use->mode->timers, [&](const auto& entry) { return entry.second == mState; });
        mState->use.reset();
    }

  private:
    const std::shared_ptr<TimerState> mState;  // shared with the mode, whose handler may destroy the timer
};

std::unique_ptr<CFRunLoopTimer> AsioRunLoop::CFRunLoopAddTimer(std::string_view mode, CFAbsoluteTime fireDate,
                                                               CFTimeInterval interval, std::function<void()> handler) {
    assertOwner();
    auto state =
        std::make_shared<TimerState>(TimerState{ModeUse(shared_from_this(), mode), interval, std::move(handler)});
    state->use->mode->timers.emplace(fireDate, state);
    showTimers();
    return std::make_unique<Timer>(std::move(state));
}

/// Fires a timer, unless it has been invalidated, or has fired, since it was found to be due.
bool AsioRunLoop::fire(Mode& mode, std::shared_ptr<TimerState> state) {
    const auto entry = std::ranges::find_if(mode.timers, [&](const auto& timer) { return timer.second == state; });
    if (entry == mode.timers.end() || entry->first > CFAbsoluteTimeGetCurrent()) return false;
    const CFAbsoluteTime fireDate = entry->first;
    mode.timers.erase(entry);
    if (state->interval > 0) {
        // Firings that were missed are not made up for. Steps too small for the clock still lead past this moment.
        const CFAbsoluteTime now = CFAbsoluteTimeGetCurrent();
        const double missed = std::floor((now - fireDate) / state->interval);
        mode.timers.emplace(std::max(fireDate + (missed + 1) * state->interval, std::nextafter(now, HUGE_VAL)), state);
    } else {
        state->use.reset();
    }
    state->handler();
    return true;
}

// ---- for another event loop ----

/// What makes readinessDescriptor() readable: what is watched in the default mode, a wake-up for each of its blocks,
/// and its first timer. Asio keeps its own set to itself.
struct AsioRunLoop::Readiness {
    Readiness() {
        add(wakeUp.get());
        add(timer.get());
    }

    void add(int descriptor) const {
        epoll_event event{};
        event.events = EPOLLIN;
        // One that is watched twice is there already.
        if (::epoll_ctl(set.get(), EPOLL_CTL_ADD, descriptor, &event) != 0 && errno != EEXIST) fail();
    }
    void remove(int descriptor) const noexcept { ::epoll_ctl(set.get(), EPOLL_CTL_DEL, descriptor, nullptr); }
    void wake() const noexcept { static_cast<void>(::eventfd_write(wakeUp.get(), 1)); }
    void clear() const noexcept {
        eventfd_t count = 0;
        static_cast<void>(::eventfd_read(wakeUp.get(), &count));
    }

    /// Makes the timer due after that time; at once for 0 or less, never for nothing. Takes back that it was due.
    void show(std::optional<CFTimeInterval> seconds) const noexcept {
        itimerspec due{};
        if (seconds) {
            // Rounded up, so that the timer's moment has come when the descriptor is readable.
            const auto wait =
                std::max(std::chrono::ceil<std::chrono::microseconds>(Seconds(std::min(*seconds, kForever))),
                         std::chrono::microseconds(1));
            due.it_value.tv_sec = wait / std::chrono::seconds(1);
            due.it_value.tv_nsec = std::chrono::nanoseconds(wait % std::chrono::seconds(1)).count();
        }
        ::timerfd_settime(timer.get(), 0, &due, nullptr);
    }

    [[noreturn]] static void fail() { throw std::system_error(errno, std::generic_category(), "run loop"); }
    static FileDescriptor opened(int descriptor) {
        if (descriptor < 0) fail();
        return FileDescriptor(descriptor);
    }

    const FileDescriptor set = opened(::epoll_create1(EPOLL_CLOEXEC));
    const FileDescriptor wakeUp = opened(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    const FileDescriptor timer = opened(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
};

int AsioRunLoop::readinessDescriptor() {
    assertOwner();
    if (!mReadiness) {
        auto readiness = std::make_unique<Readiness>();
        for (const int descriptor : mWatched) readiness->add(descriptor);
        readiness->wake();  // for the blocks that are there already
        const std::lock_guard lock(mMutex);
        mReadiness = std::move(readiness);
    }
    showTimers();
    return mReadiness->set.get();
}

void AsioRunLoop::serveDefaultMode() {
    assertOwner();
    // First: a block that comes while others are served wakes anew.
    if (mReadiness) mReadiness->clear();
    const AtScopeEnd whenServed{[this] {
        showTimers();
        const std::lock_guard lock(mMutex);
        const auto mode = mModes.find(kCFRunLoopDefaultMode);
        // A handler that threw, or stopped the run, left some behind.
        if (mReadiness && mode != mModes.end() && !mode->second->blocks.empty()) mReadiness->wake();
    }};
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false);
}

/// Has the descriptor follow the first timer of the default mode.
void AsioRunLoop::showTimers() {
    if (!mReadiness) return;
    const std::lock_guard lock(mMutex);
    const auto mode = mModes.find(kCFRunLoopDefaultMode);
    const bool isIdle = mode == mModes.end() || mode->second->timers.empty();
    mReadiness->show(isIdle ? std::optional<CFTimeInterval>()
                            : mode->second->timers.begin()->first - CFAbsoluteTimeGetCurrent());
}

// ---- descriptors ----

struct AsioRunLoop::WatchState {
    WatchState(ModeUse where, int watched, std::function<void()> whenReadable)
        : use(std::move(where)), descriptor(use.mode->context, watched), handler(std::move(whenReadable)) {}
    ~WatchState() { giveBack(); }  // where there was no watch yet
    WatchState(const WatchState&) = delete;
    WatchState& operator=(const WatchState&) = delete;

    void giveBack() { descriptor.release(); }  // unclosed: that is its owner's to do

    ModeUse use;  // first: the descriptor's registration must go before its io_context
    boost::asio::posix::stream_descriptor descriptor;
    std::function<void()> handler;
    bool live = true;

    static void arm(const std::shared_ptr<WatchState>& state) {
        // Asio arms its edge-triggered epoll anew with each wait, so the level counts.
        state->descriptor.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                                     [weak = std::weak_ptr(state)](const boost::system::error_code& error) {
                                         const auto self = weak.lock();
                                         if (!self || !self->live || error == boost::asio::error::operation_aborted)
                                             return;
                                         if (error) {
                                             NSLog("TRV-507 A descriptor can't be watched: %s\n",
                                                   error.message().c_str());
                                             return;
                                         }
                                         self->use.mode->readable.push_back(self);
                                     });
    }
};

class AsioRunLoop::Watch final : public DescriptorWatch {
  public:
    explicit Watch(std::shared_ptr<WatchState> state) : mState(std::move(state)) { ++mState->use.mode->watches; }
    ~Watch() override {
        mState->use.loop->assertOwner();
        mState->live = false;
        --mState->use.mode->watches;
        std::erase(mState->use.mode->readable, mState);
        mState->use.loop->unwatched(mState->use.mode->name, mState->descriptor.native_handle());
        mState->giveBack();
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

  private:
    const std::shared_ptr<WatchState> mState;  // shared with the handler, which may destroy the watch
};

void AsioRunLoop::unwatched(std::string_view mode, int descriptor) {
    if (mode != kCFRunLoopDefaultMode || mEnded) return;
    const auto found = std::ranges::find(mWatched, descriptor);
    if (found != mWatched.end()) mWatched.erase(found);
    if (mReadiness && std::ranges::find(mWatched, descriptor) == mWatched.end()) mReadiness->remove(descriptor);
}

std::unique_ptr<DescriptorWatch> AsioRunLoop::watchReadable(std::string_view mode, int descriptor,
                                                            std::function<void()> handler) {
    assertOwner();
    ModeUse use(shared_from_this(), mode);
    if (use.mode->own) refuseSecondWait();
    const auto state = std::make_shared<WatchState>(std::move(use), descriptor, std::move(handler));
    auto watch = std::make_unique<Watch>(state);  // takes all of this back, should something fail
    if (mode == kCFRunLoopDefaultMode) {
        mWatched.push_back(descriptor);
        if (mReadiness) mReadiness->add(descriptor);
    }
    WatchState::arm(state);
    return watch;
}

void AsioRunLoop::waitWith(std::string_view modeName, OwnWait* wait) {
    assertOwner();
    const std::lock_guard lock(mMutex);
    Mode& mode = *modeNamed(modeName);
    if (wait && (mode.own || mode.watches > 0)) refuseSecondWait();
    mode.own = wait;
    mode.ownIsReady = false;
}

// ---- the loop ----
//
// A run works in turns. As one begins, the time is noted, Asio finds the descriptors that are readable, and the blocks
// are counted; these are served, each once, and then, where a timer was due as the turn began, all timers that were due
// by then fire. What becomes ready in the meantime waits for the next turn. So nothing that is ready again and again
// keeps a timer off, and no timer overtakes what was ready before it was due. A run that returns after one source
// leaves the turn in the mode, and the next run goes on with it.
//
// No wake-up is lost. A block is queued under mMutex. Unless isWoken says that a wake-up is on its way, the owner is
// then woken: by an empty handler posted to the context or, where the mode has a wait of its own, by interrupting that
// wait. What follows speaks of the handler; an interruption works the same way. A turn polls the context first, which
// may take that handler, and only then, under mMutex, clears isWoken and counts the blocks. So the blocks whose wake-up
// was taken are among those counted, and a block that comes later finds isWoken cleared and posts a handler of its own,
// which ends the wait.

AsioRunLoop::AsioRunLoop() = default;
AsioRunLoop::~AsioRunLoop() = default;

void AsioRunLoop::assertOwner() const {
    if (std::this_thread::get_id() == mOwner || mEnded) return;
    std::fputs("A run loop was used by a thread that does not own it.\n", stderr);
    std::abort();
}

std::shared_ptr<AsioRunLoop::Mode> AsioRunLoop::modeNamed(std::string_view name) {
    const auto found = mModes.find(name);
    if (found != mModes.end()) return found->second;
    return mModes.emplace(name, std::make_shared<Mode>(name)).first->second;
}

void AsioRunLoop::leave(Mode& mode) noexcept {
    std::shared_ptr<Mode> dropped;  // goes after the lock: what it holds may call back
    const std::lock_guard lock(mMutex);
    if (--mode.users > 0 || !mode.blocks.empty()) return;
    const auto found = mModes.find(mode.name);
    if (found == mModes.end() || found->second.get() != &mode) return;
    dropped = std::move(found->second);
    mModes.erase(found);
}

void AsioRunLoop::CFRunLoopPerformBlock(std::string_view modeName, std::function<void()> block) {
    const std::lock_guard lock(mMutex);
    if (mEnded) return;  // the block goes with this call
    const auto mode = modeNamed(modeName);
    mode->blocks.push_back(std::move(block));
    if (mReadiness && modeName == kCFRunLoopDefaultMode) mReadiness->wake();
    if (!std::exchange(mode->isWoken, true)) wake(*mode);
}

/// Under the lock, which the owner takes to take its own wait out.
void AsioRunLoop::wake(Mode& mode) {
    if (mode.own) {
        mode.own->interrupt();
    } else {
        boost::asio::post(mode.context, [] {});
    }
}

/// The timers whose moment had come when the turn began, the earliest first.
std::deque<std::weak_ptr<AsioRunLoop::TimerState>> AsioRunLoop::dueTimers(const Mode& mode) {
    std::deque<std::weak_ptr<TimerState>> due;
    const auto later = mode.timers.upper_bound(mode.turnBegan);
    std::for_each(mode.timers.begin(), later, [&](const auto& timer) { due.push_back(timer.second); });
    return due;
}

/// Adds all that is ready now to what is left of the turn before.
void AsioRunLoop::beginTurn(Mode& mode) {
    // The clock comes first: what was ready when a timer became due is then found below.
    mode.turnBegan = CFAbsoluteTimeGetCurrent();
    mode.firing.clear();
    mode.due.reset();
    if (!mode.timers.empty() && mode.timers.begin()->first <= mode.turnBegan) mode.due = mode.timers.begin()->second;
    if (mode.own) {
        mode.own->wait({});
        mode.ownIsReady = mode.own->isReady();
    } else {
        mode.context.poll();
    }
    const std::lock_guard lock(mMutex);
    mode.isWoken = false;
    mode.blocksOfTurn = mode.blocks.size();
}

/// Serves one block or one descriptor of the turn, or the own wait's part in it.
bool AsioRunLoop::serveReady(Mode& mode) {
    if (mode.blocksOfTurn > 0) {
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
    if (std::exchange(mode.ownIsReady, false)) {
        // What it has left is of this turn as well, before the timers.
        const AtScopeEnd left{[&] { mode.ownIsReady = mode.own && mode.own->isReady(); }};
        mode.own->serve();
        return true;
    }
    if (mode.readable.empty()) return false;
    const auto watch = std::move(mode.readable.front());
    mode.readable.pop_front();
    const AtScopeEnd rearm{[&] {
        if (watch->live) WatchState::arm(watch);
    }};
    watch->handler();
    return true;
}

/// Serves one thing, of a turn under way or of a new one. @return false when nothing is ready
bool AsioRunLoop::serveNext(Mode& mode) {
    for (bool hasBegun = false;; hasBegun = true) {
        if (serveReady(mode)) return true;
        if (const auto due = std::exchange(mode.due, {}).lock(); due && due->use) mode.firing = dueTimers(mode);
        while (!mode.firing.empty()) {
            const auto timer = mode.firing.front().lock();
            mode.firing.pop_front();
            if (timer && fire(mode, timer)) return true;
        }
        if (hasBegun) return false;
        beginTurn(mode);
    }
}

/// A run of 0 seconds: all that was ready when it began, the timers last.
CFRunLoopRunResult AsioRunLoop::serveWhatIsReady(Frame& frame) {
    Mode& mode = *frame.use.mode;
    beginTurn(mode);
    mode.due.reset();
    const auto firing = dueTimers(mode);  // not the mode's: a run inside a handler may begin a turn of its own
    for (auto left = mode.blocksOfTurn + mode.readable.size() + (mode.ownIsReady ? 1 : 0); left > 0 && !frame.stop;
         --left)
        serveReady(mode);
    for (const auto& entry : firing) {
        if (frame.stop) break;
        if (const auto timer = entry.lock()) fire(mode, timer);
    }
    return frame.stop ? CFRunLoopRunResult::Stopped : CFRunLoopRunResult::TimedOut;
}

/// Waits until something may be ready or the first timer is due.
void AsioRunLoop::wait(Mode& mode, double secondsLeft) {
    double wait = secondsLeft;
    if (!mode.timers.empty()) wait = std::min(wait, mode.timers.begin()->first - CFAbsoluteTimeGetCurrent());
    if (wait <= 0) return;
    // Rounded up, so that a timer's moment has come when the wait for it ends.
    const auto limit = std::chrono::ceil<std::chrono::microseconds>(Seconds(std::min(wait, kForever)));
    if (mode.own) {
        mode.own->wait(limit);
    } else if (wait >= kForever) {
        mode.context.run_one();
    } else {
        mode.context.run_one_for(limit);
    }
}

CFRunLoopRunResult AsioRunLoop::run(Frame& frame, CFTimeInterval seconds, bool returnAfterSourceHandled) {
    Mode& mode = *frame.use.mode;
    const bool forever = seconds >= kForever;
    // The slice is measured in real time, also where timers follow a simulated clock.
    const auto start = Steady::now();
    for (double left = seconds;;) {
        if (frame.stop) return CFRunLoopRunResult::Stopped;
        const bool served = serveNext(mode);
        if (frame.stop) return CFRunLoopRunResult::Stopped;
        if (served && returnAfterSourceHandled) return CFRunLoopRunResult::HandledSource;
        if (!forever) left = seconds - Seconds(Steady::now() - start).count();
        if (!(left > 0)) return CFRunLoopRunResult::TimedOut;
        if (!served) wait(mode, left);
    }
}

CFRunLoopRunResult AsioRunLoop::CFRunLoopRunInMode(std::string_view mode, CFTimeInterval seconds,
                                                   bool returnAfterSourceHandled) {
    assertOwner();
    Frame frame(shared_from_this(), mode);
    const bool isPoll = !(seconds > 0) && !returnAfterSourceHandled;
    return isPoll ? serveWhatIsReady(frame) : run(frame, seconds, returnAfterSourceHandled);
}

void AsioRunLoop::CFRunLoopRun() {
    assertOwner();
    Frame frame(shared_from_this(), kCFRunLoopDefaultMode);
    {
        const std::lock_guard lock(mMutex);
        if (std::exchange(mStopNextRun, false)) return;
    }
    while (run(frame, kForever, false) != CFRunLoopRunResult::Stopped) {
    }
}

void AsioRunLoop::CFRunLoopStop() {
    const std::lock_guard lock(mMutex);
    if (mFrames.empty()) {
        mStopNextRun = true;
        return;
    }
    mFrames.back()->stop = true;
    wake(*mFrames.back()->use.mode);
}

void AsioRunLoop::CFRunLoopAddSource(const std::shared_ptr<CFRunLoopSource>& source, std::string_view mode) {
    assertOwner();
    mSources.push_back({source, ModeUse(shared_from_this(), mode)});
    source->scheduled(shared_from_this(), mode);
}

void AsioRunLoop::CFRunLoopRemoveSource(const std::shared_ptr<CFRunLoopSource>& source) {
    assertOwner();
    const auto found = std::ranges::find(mSources, source, &ScheduledSource::source);
    if (found == mSources.end()) return;
    const ScheduledSource removed = std::move(*found);
    mSources.erase(found);
    removed.source->cancelled();
}

void AsioRunLoop::end() {
    assertOwner();
    // First, since a source may run the loop as it is cancelled, and posts may still come until mEnded is set.
    while (!mSources.empty()) CFRunLoopRemoveSource(mSources.back().source);
    decltype(mModes) modes;
    std::vector<std::function<void()>> blocks;
    {
        const std::lock_guard lock(mMutex);
        mEnded = true;
        mReadiness.reset();
        modes.swap(mModes);
        for (const auto& [name, mode] : modes) {
            std::ranges::move(std::exchange(mode->blocks, {}), std::back_inserter(blocks));
        }
    }
    for (const auto& [name, mode] : modes) {
        const auto timers = std::exchange(mode->timers, {});
        for (const auto& [fireDate, state] : timers) state->use.reset();
    }
}

std::size_t AsioRunLoop::modeCount() const {
    const std::lock_guard lock(mMutex);
    return mModes.size();
}

// ---- one loop for each thread ----

std::shared_ptr<AsioRunLoop> AsioRunLoops::current() {
    struct OfThisThread {
        const std::shared_ptr<AsioRunLoop> loop = std::make_shared<AsioRunLoop>();
        ~OfThisThread() { loop->end(); }
    };
    thread_local OfThisThread ofThisThread;
    return ofThisThread.loop;
}

std::shared_ptr<AsioRunLoop> AsioRunLoops::current(const CFRunLoop& addedTo) {
    auto loop = current();
    if (loop.get() == &addedTo) return loop;
    std::fputs("A source that watches a descriptor was added to a run loop that can't.\n", stderr);
    std::abort();
}

}  // namespace platform
