#pragma once

#include "platform/Dispatch.hpp"

#include <cstdint>
#include <memory>

namespace platform {

class QtMainThread;

/// A time as the toolkit's timers can count it: that many pieces of whole milliseconds each.
struct QtPeriod {
    /// Rounded up, so that no timer is early.
    explicit QtPeriod(CFTimeInterval seconds);

    int milliseconds;
    std::uint64_t pieces;  ///< 1 up to 24.8 days
};

/// The main queue on Qt's event loop: blocks and timers run on the thread that made this object, which must be the
/// application's thread, while its event loop runs. Made after QCoreApplication and destroyed before it. What is still
/// waiting at its end is dropped without being run; timers that outlive it are invalid.
class QtMainQueue final : public MainQueue {
  public:
    QtMainQueue();
    ~QtMainQueue() override;  ///< main thread only
    QtMainQueue(const QtMainQueue&) = delete;
    QtMainQueue& operator=(const QtMainQueue&) = delete;

    void dispatch_async(std::function<void()> block) override;
    /// Called on the main thread itself it runs the block at once: waiting for a turn of its own loop would never end.
    void dispatch_sync(const std::function<void()>& block) override;
    std::shared_ptr<NSTimer> scheduledTimerWithTimeInterval(CFTimeInterval seconds, bool repeats,
                                                            std::function<void()> handler) override;

  private:
    std::shared_ptr<QtMainThread> mMainThread;  ///< shared with timer handles, which may outlive the queue
};

}  // namespace platform
