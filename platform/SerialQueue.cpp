#include "platform/SerialQueue.hpp"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <latch>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/Platform.hpp"

namespace platform {
namespace {

// The two facts that a synchronous submission has to know, in one word, so that it can claim an idle queue in one step.
constexpr std::uint32_t kBusy = 1;    ///< a block is running
constexpr std::uint32_t kQueued = 2;  ///< blocks are waiting

void runGuarded(const std::function<void()>& block, const std::string& label) {
    try {
        block();
    } catch (const std::exception& error) {
        NSLog("Exception left a block of queue %s: %s\n", label.c_str(), error.what());
    } catch (...) {
        NSLog("Unknown exception left a block of queue %s\n", label.c_str());
    }
}

}  // namespace

struct SerialQueue::State {
    explicit State(std::string name) : label(std::move(name)) {}

    const std::string label;
    std::atomic<std::uint32_t> flags{0};
    std::mutex lock;
    std::condition_variable wake;
    std::deque<std::function<void()>> blocks;  ///< behind `lock`
    bool stopping = false;                     ///< behind `lock`
    std::thread worker;                        ///< started behind `lock`

    void work();
    void endTurn();
};

/// Marks the calling thread as being inside a block of a queue; frames nest.
struct SerialQueue::Frame {
    explicit Frame(const State* entered) : state(entered), outer(std::exchange(tInnermost, this)) {}
    ~Frame() { tInnermost = outer; }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    const State* state;
    Frame* outer;
};

thread_local SerialQueue::Frame* SerialQueue::tInnermost = nullptr;

void SerialQueue::State::endTurn() {
    if (flags.fetch_and(~kBusy, std::memory_order_acq_rel) & kQueued) {
        // The worker looks at the flags only behind the lock: once we hold it, it either saw our turn's end or waits.
        { const std::lock_guard guard(lock); }
        wake.notify_one();
    }
}

void SerialQueue::State::work() {
    std::unique_lock guard(lock);
    for (;;) {
        wake.wait(guard, [&] {
            if (blocks.empty()) return stopping;
            return !(flags.fetch_or(kBusy, std::memory_order_acq_rel) & kBusy);
        });
        if (blocks.empty()) return;
        {
            const std::function<void()> block = std::move(blocks.front());
            blocks.pop_front();
            if (blocks.empty()) flags.fetch_and(~kQueued, std::memory_order_acq_rel);
            guard.unlock();
            const Frame frame(this);
            runGuarded(block, label);
        }
        // Not endTurn(): this thread is the one that it would wake.
        flags.fetch_and(~kBusy, std::memory_order_acq_rel);
        guard.lock();
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
        if (!state->worker.joinable()) state->worker = std::thread([state] { state->work(); });
        state->blocks.push_back(std::move(block));
        state->flags.fetch_or(kQueued, std::memory_order_acq_rel);
    }
    state->wake.notify_one();
}

void SerialQueue::dispatch_sync(const std::function<void()>& block) {
    std::uint32_t idle = 0;
    if (mState->flags.compare_exchange_strong(idle, kBusy, std::memory_order_acq_rel, std::memory_order_relaxed)) {
        {
            const Frame frame(mState.get());
            runGuarded(block, mState->label);
        }
        mState->endTurn();
        return;
    }
    // Shared, because the thread that counts down touches it once more after this one has seen it.
    const auto done = std::make_shared<std::latch>(1);
    dispatch_async([this, &block, done] {
        runGuarded(block, mState->label);
        done->count_down();
    });
    done->wait();
}

const std::string& SerialQueue::label() const {
    return mState->label;
}

bool SerialQueue::isCurrent() const {
    for (const Frame* frame = tInnermost; frame; frame = frame->outer)
        if (frame->state == mState.get()) return true;
    return false;
}

const char* SerialQueue::currentLabel() {
    return tInnermost ? tInnermost->state->label.c_str() : "";
}

}  // namespace platform
