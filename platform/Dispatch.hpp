#pragma once

#include "platform/Clock.hpp"

#include <functional>
#include <memory>

namespace platform {

/// Where work is submitted. What leaves a block as an exception is caught and logged by the queue; it never ends the
/// queue. Any thread.
class DispatchQueue {
  public:
    virtual ~DispatchQueue() = default;

    /// Has the block run later, after what was submitted before. Never blocks, never runs the block inside this call.
    virtual void dispatch_async(std::function<void()> block) = 0;

    /// Has the block run after what was submitted before and waits for it. Calling it from a block of the same queue
    /// would wait for ever and is an error of the caller. Blocks.
    virtual void dispatch_sync(const std::function<void()>& block) = 0;
};

/// One-shot or repeating timer on the main loop.
class NSTimer {
  public:
    virtual ~NSTimer() = default;      ///< invalidates
    virtual bool isValid() const = 0;  ///< false once a one-shot timer has fired or once invalidated. Any thread
    /// The handler does not run after this when called on the main thread. Any thread.
    virtual void invalidate() = 0;
};

/// The main thread's queue, on the window toolkit's loop where there is a window.
class MainQueue : public DispatchQueue {
  public:
    /// A timer whose handler runs on the main thread. The caller owns it and may destroy it on any thread.
    /// @param seconds  the delay, and the period of a repeating timer
    /// @param repeats  fires until it is invalidated
    /// @param handler  callback on the main thread
    /// Any thread.
    virtual std::shared_ptr<NSTimer> scheduledTimerWithTimeInterval(CFTimeInterval seconds, bool repeats,
                                                                    std::function<void()> handler) = 0;
};

}  // namespace platform
