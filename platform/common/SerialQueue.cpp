#include "platform/common/SerialQueue.hpp"

#include "platform/common/Boundary.hpp"
#include "platform/common/QueueFrame.hpp"

#include <condition_variable>
#include <deque>
#include <latch>
#include <mutex>
#include <thread>
#include <utility>

namespace platform {

struct SerialQueue::State {
    explicit State(std::string name) : label(std::move(name)) {}

    const std::string label;
    std::mutex lock;
    std::condition_variable wake;
    std::deque<std::function<void()>> blocks;  ///< behind `lock`
    bool busy = false;                         ///< a block is running; behind `lock`
    bool stopping = false;                     ///< behind `lock`
    std::thread worker;                        ///< started behind `lock`

    void run(const std::function<void()>& block);
    void work();
};

void SerialQueue::State::run(const std::function<void()>& block) {
    const QueueFrame frame(this, label.c_str());
    runGuarded(block, "SerialQueue", __LINE__);
}

void SerialQueue::State::work() {
    std::unique_lock guard(lock);
    for (;;) {
        wake.wait(guard, [&] { return blocks.empty() ? stopping : !busy; });
        if (blocks.empty()) return;
        std::function<void()> block = std::move(blocks.front());
        blocks.pop_front();
        busy = true;
        guard.unlock();
        {
            const QueueFrame frame(this, label.c_str());
            runGuarded(block, "SerialQueue", __LINE__);
            // What it holds goes on the queue, and before the lock is taken again: it may be an object that asks
            // which queue it ends on, or the queue itself.
            block = nullptr;
        }
        guard.lock();
        busy = false;
    }
}

SerialQueue::SerialQueue(std::string label) : mState(std::make_shared<State>(std::move(label))) {}

SerialQueue::~SerialQueue() {
    std::thread worker;
    {
        const std::lock_guard guard(mState->lock);
        mState->stopping = true;
        worker = std::move(mState->worker);
    }
    mState->wake.notify_one();
    if (!worker.joinable()) return;
    if (worker.get_id() == std::this_thread::get_id()) {
        worker.detach();
    } else {
        worker.join();
    }
}

void SerialQueue::dispatch_async(std::function<void()> block) {
    const std::shared_ptr<State> state = mState;  // the block may let go of the queue before this call is through
    {
        const std::lock_guard guard(state->lock);
        // The end of the queue has taken the thread, which runs this block as well.
        if (!state->stopping && !state->worker.joinable()) state->worker = std::thread([state] { state->work(); });
        state->blocks.push_back(std::move(block));
    }
    state->wake.notify_one();
}

void SerialQueue::dispatch_sync(const std::function<void()>& block) {
    std::unique_lock guard(mState->lock);
    if (!mState->busy && mState->blocks.empty()) {
        mState->busy = true;
        guard.unlock();
        mState->run(block);
        guard.lock();
        mState->busy = false;
        if (!mState->blocks.empty()) mState->wake.notify_one();
        return;
    }
    guard.unlock();
    // Shared, because the thread that counts down touches it once more after this one has seen it.
    const auto done = std::make_shared<std::latch>(1);
    dispatch_async([&block, done] {
        runGuarded(block, "SerialQueue", __LINE__);
        done->count_down();
    });
    done->wait();
}

bool SerialQueue::isCurrent() const {
    return QueueFrame::isInside(mState.get());
}

}  // namespace platform
