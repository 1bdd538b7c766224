#include "platform/common/GlobalQueue.hpp"

#include "platform/common/Boundary.hpp"
#include "platform/common/QueueFrame.hpp"

#include <system_error>
#include <utility>

namespace platform {

GlobalQueue::GlobalQueue() {
    const std::lock_guard lock(mMutex);
    addThread();
}

GlobalQueue::~GlobalQueue() {
    for (;;) {
        std::vector<std::thread> threads;
        {
            const std::lock_guard lock(mMutex);
            mStopping = true;
            threads.swap(mThreads);
        }
        if (threads.empty()) return;
        mWake.notify_all();
        // A block may submit another one, which may need a thread of its own: look again afterwards.
        for (auto& thread : threads) thread.join();
    }
}

void GlobalQueue::dispatch_async(std::function<void()> block) {
    const std::lock_guard lock(mMutex);
    mBlocks.push_back(std::move(block));
    if (mBlocks.size() <= mIdle) return mWake.notify_one();
    try {
        addThread();
    } catch (const std::system_error&) {
        // The block waits for one of those that there are.
    }
}

void GlobalQueue::dispatch_sync(const std::function<void()>& block) {
    const QueueFrame frame(this, "global");
    runGuarded(block, "GlobalQueue", __LINE__);
}

void GlobalQueue::addThread() {
    mThreads.emplace_back([this] { work(); });
    ++mIdle;
}

void GlobalQueue::work() {
    const QueueFrame frame(this, "global");
    std::unique_lock lock(mMutex);
    for (;;) {
        mWake.wait(lock, [this] { return mStopping || !mBlocks.empty(); });
        --mIdle;
        if (mBlocks.empty()) return;
        std::function<void()> block = std::move(mBlocks.front());
        mBlocks.pop_front();
        lock.unlock();
        runGuarded(block, "GlobalQueue", __LINE__);
        block = nullptr;  // what it holds goes before the lock is taken again
        lock.lock();
        ++mIdle;
    }
}

}  // namespace platform
