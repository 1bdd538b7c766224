#pragma once

#include "platform/CFRunLoop.hpp"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace platform {

/// Watches one descriptor for one mode of an AsioRunLoop; destroying it ends the watch and leaves the descriptor open.
/// Owner thread only.
class DescriptorWatch {
  public:
    virtual ~DescriptorWatch() = default;
};

/// What a mode waits with where a library has descriptors and a wait of its own, as libusb has. Owner thread, unless it
/// says otherwise.
class OwnWait {
  public:
    virtual ~OwnWait() = default;

    /// Finds what is ready, and waits up to that long for something, unless interrupted; 0 does not wait.
    virtual void wait(std::chrono::microseconds limit) = 0;
    /// Whether something has been found that is still to be served.
    virtual bool isReady() const = 0;
    virtual void serve() = 0;  ///< may take the wait out of its mode

    /// Ends the wait under way, else the next one. Called under the loop's lock. Any thread.
    virtual void interrupt() noexcept = 0;
};

/// A run loop on Boost.Asio: one io_context for each mode that holds something, made at its first use and dropped with
/// the last source, timer, block or run in it. A mode costs descriptors (epoll and its wake-up) only once a descriptor
/// is watched in it, and one that waits in a device costs none. A thousand modes used one after the other leave nothing
/// behind. Timers are kept here and bound the wait: they cost no descriptor either and follow the process's clock.
///
/// Belongs to the thread that made it (AsioRunLoops makes one for each thread that asks); shared, because other threads
/// post to it. end() is its stop: it is called as the thread ends.
///
/// To end a thread that may be inside a nested run, post a block to the default mode that calls CFRunLoopStop: the
/// block is served by the outer run only, whereas a bare CFRunLoopStop from elsewhere ends whichever run is innermost.
class AsioRunLoop final : public CFRunLoop, public std::enable_shared_from_this<AsioRunLoop> {
  public:
    AsioRunLoop();
    ~AsioRunLoop() override;
    AsioRunLoop(const AsioRunLoop&) = delete;
    AsioRunLoop& operator=(const AsioRunLoop&) = delete;

    CFRunLoopRunResult CFRunLoopRunInMode(std::string_view mode, CFTimeInterval seconds,
                                          bool returnAfterSourceHandled) override;
    void CFRunLoopRun() override;
    void CFRunLoopStop() override;
    void CFRunLoopPerformBlock(std::string_view mode, std::function<void()> block) override;
    void CFRunLoopAddSource(const std::shared_ptr<CFRunLoopSource>& source, std::string_view mode) override;
    void CFRunLoopRemoveSource(const std::shared_ptr<CFRunLoopSource>& source) override;
    std::unique_ptr<CFRunLoopTimer> CFRunLoopAddTimer(std::string_view mode, CFAbsoluteTime fireDate,
                                                      CFTimeInterval interval, std::function<void()> handler) override;

    /// Calls the handler from a run of the mode whenever the descriptor is readable: level, not edge. What the handler
    /// throws leaves the run, and the watch goes on.
    /// @param descriptor  must stay open for as long as the watch lives; regular files can't be watched
    /// Owner thread only.
    std::unique_ptr<DescriptorWatch> watchReadable(std::string_view mode, int descriptor,
                                                   std::function<void()> handler);

    /// Has a mode wait in that in place of Asio: no descriptor and no wake-up of the loop's own is needed then. Null
    /// takes it out. Whoever calls this keeps the mode in existence. A second wait in the mode, or a watched
    /// descriptor, ends the process: it would never be served. Owner thread only.
    void waitWith(std::string_view mode, OwnWait* wait);

    /// For a thread whose event loop is the program's own. The descriptor is readable while the default mode may have
    /// work: a block, a watched descriptor, a timer that is due. It is made at the first call, stays the loop's, and is
    /// good until the thread ends. serveDefaultMode() does that work, without waiting; what a handler throws passes
    /// through.
    /// @throws std::system_error  no descriptor is to be had
    /// Owner thread only.
    /// @{
    int readinessDescriptor();
    void serveDefaultMode();
    /// @}

    /// Takes every source, timer and block out; blocks are destroyed unrun. Later posts are destroyed at once.
    /// Owner thread only, outside any run.
    void end();

    /// How many modes hold something. Any thread.
    std::size_t modeCount() const;

  private:
    struct Mode;
    struct Frame;
    struct TimerState;
    struct WatchState;
    class ModeUse;
    class Timer;
    class Watch;
    struct ScheduledSource;
    struct Readiness;

    std::shared_ptr<Mode> modeNamed(std::string_view name);  // mMutex held
    void leave(Mode& mode) noexcept;
    static std::deque<std::weak_ptr<TimerState>> dueTimers(const Mode& mode);
    static bool fire(Mode& mode, std::shared_ptr<TimerState> state);
    void showTimers();
    void unwatched(std::string_view mode, int descriptor);
    void beginTurn(Mode& mode);
    bool serveReady(Mode& mode);
    bool serveNext(Mode& mode);
    static void wait(Mode& mode, double secondsLeft);
    static void wake(Mode& mode);  // mMutex held
    CFRunLoopRunResult serveWhatIsReady(Frame& frame);
    CFRunLoopRunResult run(Frame& frame, CFTimeInterval seconds, bool returnAfterSourceHandled);
    void assertOwner() const;

    const std::thread::id mOwner = std::this_thread::get_id();
    std::atomic<bool> mEnded = false;
    std::vector<ScheduledSource> mSources;  // owner thread
    std::vector<int> mWatched;              // owner thread; descriptors watched in the default mode, as often as that

    mutable std::mutex mMutex;
    std::map<std::string, std::shared_ptr<Mode>, std::less<>> mModes;  // mMutex
    std::vector<Frame*> mFrames;                                       // mMutex; runs under way, innermost last
    bool mStopNextRun = false;                                         // mMutex
    std::unique_ptr<Readiness> mReadiness;                             // mMutex; made and ended by the owner thread
};

/// Gives each thread its AsioRunLoop. All instances give the same loops. Any thread.
class AsioRunLoops final : public CFRunLoops {
  public:
    std::shared_ptr<CFRunLoop> CFRunLoopGetCurrent() override { return current(); }

    /// The calling thread's loop as what it is.
    std::shared_ptr<AsioRunLoop> current();

    /// The same, for a source that is being added to a loop and has a descriptor to watch there. Ends the process when
    /// that is not the calling thread's loop: the source's work would never be done.
    std::shared_ptr<AsioRunLoop> current(const CFRunLoop& addedTo);
};

}  // namespace platform
