#pragma once

#include "platform/Clock.hpp"

#include <functional>
#include <memory>
#include <string_view>

namespace platform {

class CFRunLoop;

/// The mode that CFRunLoopRun serves.
inline constexpr std::string_view kCFRunLoopDefaultMode = "kCFRunLoopDefaultMode";

/// Why a run returned.
enum class CFRunLoopRunResult { Stopped = 2, TimedOut = 3, HandledSource = 4 };

/// One-shot or repeating timer of one mode of one loop. Owner thread only.
class CFRunLoopTimer {
  public:
    virtual ~CFRunLoopTimer() = default;  ///< invalidates

    /// True until a one-shot timer has fired (it is invalid by the time its handler runs) or until invalidated.
    virtual bool CFRunLoopTimerIsValid() const = 0;

    /// The handler never runs after this.
    virtual void CFRunLoopTimerInvalidate() = 0;
};

/// Something outside the loop that wakes it (a descriptor, another thread) and then has work done in one mode. A source
/// is told which mode it serves and starts delivering there; in no other mode is any of its work done.
class CFRunLoopSource {
  public:
    virtual ~CFRunLoopSource() = default;

    /// Called by CFRunLoopAddSource on the loop's thread.
    virtual void scheduled(const std::shared_ptr<CFRunLoop>& loop, std::string_view mode) = 0;

    /// Called by CFRunLoopRemoveSource on the loop's thread. Nothing is delivered after this returns.
    virtual void cancelled() = 0;
};

/// A thread's event loop with named modes. Work belongs to one mode and is done only while the owner thread runs that
/// mode: what is private to one wait is never touched by another. A mode needs no declaration; it exists while
/// something is in it. Shared ownership, because other threads post to a loop that may end at any time; a block posted
/// to a loop whose thread has gone is destroyed, not run.
///
/// When a timer is due, what is ready at that moment, blocks and sources, is served once, and then the timer fires; of
/// several that are due, the one whose moment came first. So a thread that stood still for a while does not take an
/// answer that came in time for a time-out, and what is ready again and again can't keep a time-out off.
///
/// A call of what is for the owner thread only, made on another thread, ends the process.
class CFRunLoop {
  public:
    virtual ~CFRunLoop() = default;

    /// Runs one mode for at most the given time. An empty mode waits the whole time, since a block may be posted.
    /// @param mode                      the mode to serve
    /// @param seconds                   0 serves what was ready when it began, each once, and does not wait
    /// @param returnAfterSourceHandled  come back after one source, timer or block has been served
    /// An exception from a handler passes through. Blocks. Owner thread only; may be nested.
    virtual CFRunLoopRunResult CFRunLoopRunInMode(std::string_view mode, CFTimeInterval seconds,
                                                  bool returnAfterSourceHandled) = 0;

    /// Runs the default mode until CFRunLoopStop. Blocks. Owner thread only.
    virtual void CFRunLoopRun() = 0;

    /// Makes the innermost run return. A stop with no run under way ends the next CFRunLoopRun at once. Any thread.
    virtual void CFRunLoopStop() = 0;

    /// Has the block run once on the owner thread, in that mode, in the order of the calls. Never runs it inside this
    /// call. Never blocks. Any thread.
    virtual void CFRunLoopPerformBlock(std::string_view mode, std::function<void()> block) = 0;

    /// The loop shares the source until it is removed. Owner thread only.
    /// @{
    virtual void CFRunLoopAddSource(const std::shared_ptr<CFRunLoopSource>& source, std::string_view mode) = 0;
    virtual void CFRunLoopRemoveSource(const std::shared_ptr<CFRunLoopSource>& source) = 0;
    /// @}

    /// Adds a timer. The caller owns it; destroying it invalidates it.
    /// @param mode      the mode in which it fires
    /// @param fireDate  a moment that has passed fires at the next run of the mode
    /// @param interval  seconds between further firings; 0 makes a one-shot timer
    /// @param handler   callback on the owner thread
    /// Owner thread only.
    virtual std::unique_ptr<CFRunLoopTimer> CFRunLoopAddTimer(std::string_view mode, CFAbsoluteTime fireDate,
                                                              CFTimeInterval interval,
                                                              std::function<void()> handler) = 0;
};

/// Gives each thread its loop. Any thread.
class CFRunLoops {
  public:
    virtual ~CFRunLoops() = default;

    /// The calling thread's loop, made at its first use and released when the thread ends. Never null.
    virtual std::shared_ptr<CFRunLoop> CFRunLoopGetCurrent() = 0;
};

}  // namespace platform
