#pragma once

#include "platform/CFRunLoop.hpp"
#include "platform/Dispatch.hpp"

#include <functional>
#include <memory>
#include <thread>

namespace platform {

/// The main queue where there is no window: the default mode of the run loop of the thread that makes it, which is the
/// main thread from then on and has to run that loop. A block that is still waiting when that thread ends is destroyed,
/// and a dispatch_sync that waits for it returns.
class RunLoopMainQueue final : public MainQueue {
  public:
    explicit RunLoopMainQueue(CFRunLoops& runLoops);

    void dispatch_async(std::function<void()> block) override;
    void dispatch_sync(const std::function<void()>& block) override;
    std::shared_ptr<NSTimer> scheduledTimerWithTimeInterval(CFTimeInterval seconds, bool repeats,
                                                            std::function<void()> handler) override;

  private:
    const std::shared_ptr<CFRunLoop> mLoop;  // shared: a timer may be destroyed after the queue
    const std::thread::id mMainThread = std::this_thread::get_id();
};

}  // namespace platform
