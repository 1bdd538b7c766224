#pragma once

#include "platform/Dispatch.hpp"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace platform {

/// The global concurrent queue: each block gets a thread at once, an idle one if there is one. One thread is there from
/// the start; where the system gives no further one, a block waits for the first that is idle again. Idle threads sleep
/// without waking. The destructor lets every block come to its end and joins the threads.
class GlobalQueue final : public DispatchQueue {
  public:
    GlobalQueue();            ///< @throws std::system_error  no thread is to be had
    ~GlobalQueue() override;  ///< blocks until the blocks have run; not from one of them
    GlobalQueue(const GlobalQueue&) = delete;
    GlobalQueue& operator=(const GlobalQueue&) = delete;

    void dispatch_async(std::function<void()> block) override;

    /// Runs the block on the calling thread: nothing in a concurrent queue has to be waited for.
    void dispatch_sync(const std::function<void()>& block) override;

  private:
    void addThread();
    void work();

    std::mutex mMutex;
    std::condition_variable mWake;
    std::deque<std::function<void()>> mBlocks;  // mMutex
    std::vector<std::thread> mThreads;          // mMutex
    std::size_t mIdle = 0;                      // mMutex; threads without a block, from their start on
    bool mStopping = false;                     // mMutex
};

}  // namespace platform
