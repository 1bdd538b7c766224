#include "app/Util/Logging/impl/DDLogQueue.hpp"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <latch>
#include <memory>
#include <utility>

#include "platform/Platform.hpp"
#include "platform/SerialQueue.hpp"

namespace {

using std::chrono::microseconds;
constexpr microseconds kFirstNap(50);
constexpr microseconds kLongestNap(1000);
constexpr microseconds kLinger(20000);

// A longer text gives its memory back after the delivery; up to this the slot keeps it for its next message.
constexpr std::size_t kKeptCapacity = 4096;

// A synchronous caller that holds the queue delivers this much of what others have queued meanwhile, then goes home.
constexpr int kBatchesForOthers = 4;

/// What is asked of the system once per thread.
struct ThreadFacts {
    ThreadFacts() : id(static_cast<std::uint32_t>(::gettid())) {
        if (::pthread_getname_np(::pthread_self(), name, sizeof name) != 0) name[0] = '\0';
    }
    std::uint32_t id;
    char name[16];
};

thread_local const DDLogQueue* tWithin = nullptr;

bool reached(std::uint32_t counter, std::uint32_t mark) {
    return static_cast<std::int32_t>(counter - mark) >= 0;
}

void runGuarded(const std::function<void()>& block) {
    try {
        block();
    } catch (const std::exception& error) {
        platform::NSLog("Exception left a block of the logging queue: %s\n", error.what());
    } catch (...) {
        platform::NSLog("Unknown exception left a block of the logging queue\n");
    }
}

}  // namespace

DDLogQueue::DDLogQueue(std::string label, Sink& sink) : mLabel(std::move(label)), mSink(sink) {
    mWorker = std::thread([this] { run(); });
}

DDLogQueue::~DDLogQueue() {
    mStopping = true;
    wakeWorker(mWorkerState.load());
    mWorker.join();
}

bool DDLogQueue::isCurrent() const {
    return tWithin == this;
}

DDLogQueue::Within::Within(const DDLogQueue& queue) : mOuter(std::exchange(tWithin, &queue)) {}

DDLogQueue::Within::~Within() {
    tWithin = mOuter;
}

void DDLogQueue::post(const DDLogDraft& draft, bool asynchronous) noexcept {
    std::uint32_t ticket = 0;
    if (isCurrent()) {
        // Nobody within a delivery may wait for the next one. The slots beyond the permits are free to use; what a
        // logger says when even those are taken goes where it is not in its own way.
        ticket = mTail.load(std::memory_order_seq_cst);
        do {
            if (ticket - mDone.load(std::memory_order_acquire) >= kSlots) {
                std::fprintf(stderr, "%.*s\n", static_cast<int>(draft.text.size()), draft.text.data());
                return;
            }
        } while (!mTail.compare_exchange_weak(ticket, ticket + 1, std::memory_order_seq_cst));
    } else {
        ticket = mTail.fetch_add(1, std::memory_order_seq_cst);
        if (ticket - mDone.load(std::memory_order_acquire) >= kPermits) waitForPermit(ticket);
    }
    Slot& slot = mSlots[ticket % kSlots];
    fill(slot, draft);
    // From here on the order of this store before the look at the worker's state matters, as does the worker's opposite
    // order: one of the two sees the other. The same holds for every sequentially consistent access in this file.
    slot.published.store(ticket + 1, std::memory_order_seq_cst);
    if (!asynchronous && !isCurrent())
        return awaitDelivery([&] { return reached(mDone.load(std::memory_order_acquire), ticket + 1); });
    const WorkerState state = mWorkerState.load(std::memory_order_seq_cst);
    if (state == WorkerState::Idle ||
        (state == WorkerState::Lingering && ticket - mDone.load(std::memory_order_relaxed) >= kPlenty))
        wakeWorker(state);
}

void DDLogQueue::fill(Slot& slot, const DDLogDraft& draft) noexcept {
    static thread_local const ThreadFacts facts;
    DDLogMessage& message = slot.message;
    message.logLevel = draft.level;
    message.logFlag = draft.flag;
    message.logContext = draft.context;
    message.timestamp = platform::wallClock().now();
    message.lineNumber = draft.line;
    message.machThreadID = facts.id;
    message.tag = draft.tag;
    message.options = draft.options;
    try {
        message.logMsg.assign(draft.text);
        message.queueLabel.assign(platform::SerialQueue::currentLabel());
        message.threadName.assign(facts.name);
        message.file = DDLogMessage::sourceText(draft.file, draft.options & DDLogMessageCopyFile);
        message.function = DDLogMessage::sourceText(draft.function, draft.options & DDLogMessageCopyFunction);
    } catch (const std::bad_alloc&) {
        // The ticket is taken and the order depends on it: what there was no memory for stays out of the message.
    }
}

void DDLogQueue::waitForPermit(std::uint32_t ticket) {
    for (;;) {
        const std::uint32_t done = mDone.load(std::memory_order_seq_cst);
        if (ticket - done < kPermits) return;
        const WorkerState state = mWorkerState.load(std::memory_order_seq_cst);
        if (state != WorkerState::Running) wakeWorker(state);
        mDone.wait(done, std::memory_order_acquire);
    }
}

/// Delivers on this thread if nobody else does, else waits for whoever does.
void DDLogQueue::awaitDelivery(const std::function<bool()>& delivered) {
    if (tryAcquire()) {
        drain(delivered);
        release();
        // All that was complete before is delivered; a message whose caller is still filling it may be in front of
        // ours.
        if (delivered()) return;
    }
    mSyncWaiters.fetch_add(1, std::memory_order_seq_cst);
    for (;;) {
        const std::uint32_t done = mDone.load(std::memory_order_seq_cst);
        if (delivered()) break;
        if (tryAcquire()) {
            drain(delivered);
            release();
            continue;
        }
        mDone.wait(done, std::memory_order_acquire);
    }
    mSyncWaiters.fetch_sub(1, std::memory_order_relaxed);
}

void DDLogQueue::dispatch_async(std::function<void()> block) {
    {
        const std::lock_guard guard(mControlLock);
        mControls.push_back({mTail.load(std::memory_order_seq_cst), std::move(block)});
        mControlCount.fetch_add(1, std::memory_order_seq_cst);
    }
    const WorkerState state = mWorkerState.load(std::memory_order_seq_cst);
    if (state != WorkerState::Running) wakeWorker(state);
}

void DDLogQueue::dispatch_sync(const std::function<void()>& block) {
    // Shared, because the thread that counts down touches it once more after this one has seen it.
    const auto finished = std::make_shared<std::latch>(1);
    {
        const std::lock_guard guard(mControlLock);
        mControls.push_back({mTail.load(std::memory_order_seq_cst), [&block, finished] {
                                 runGuarded(block);
                                 finished->count_down();
                             }});
        mControlCount.fetch_add(1, std::memory_order_seq_cst);
    }
    mSyncWaiters.fetch_add(1, std::memory_order_seq_cst);
    if (tryAcquire()) {
        drain([&] { return finished->try_wait(); });
        release();
    }
    finished->wait();
    mSyncWaiters.fetch_sub(1, std::memory_order_relaxed);
}

void DDLogQueue::release() {
    mDraining.store(0, std::memory_order_seq_cst);
    // Whoever came while this thread was draining relies on somebody to go on.
    if (!hasWork()) return;
    const WorkerState state = mWorkerState.load(std::memory_order_seq_cst);
    if (state != WorkerState::Running) wakeWorker(state);
}

/// How many complete messages follow each other from the head, at most one delivery's worth.
std::size_t DDLogQueue::collect(std::uint32_t head) {
    const std::size_t limit = std::min(mSink.batchLimit(), kMaxBatch);
    std::size_t count = 0;
    for (; count < limit; ++count) {
        const auto ticket = head + static_cast<std::uint32_t>(count);
        const Slot& slot = mSlots[ticket % kSlots];
        if (slot.published.load(std::memory_order_seq_cst) != ticket + 1) break;
        mBatch[count] = &slot.message;
    }
    return count;
}

/// Takes the next block if its place is here; else cuts the messages off at its place.
bool DDLogQueue::nextControl(std::uint32_t head, std::size_t& messages, std::function<void()>& block) {
    const std::lock_guard guard(mControlLock);
    if (mControls.empty()) return false;
    Control& next = mControls.front();
    if (!reached(head, next.position)) {
        messages = std::min<std::size_t>(messages, next.position - head);
        return false;
    }
    block = std::move(next.block);
    mControls.pop_front();
    mControlCount.fetch_sub(1, std::memory_order_seq_cst);
    return true;
}

/// Delivers until nothing is left, or until the caller has what it came for and has done its share for others.
void DDLogQueue::drain(const std::function<bool()>& enough) {
    const Within within(*this);
    int share = kBatchesForOthers;
    for (;;) {
        const std::uint32_t head = mDone.load(std::memory_order_relaxed);
        std::size_t count = collect(head);
        // Looked at after the messages: a block that was submitted before one of them is seen here.
        if (mControlCount.load(std::memory_order_seq_cst) > 0) {
            std::function<void()> block;
            if (nextControl(head, count, block)) {
                runGuarded(block);
                continue;
            }
        }
        if (count == 0) break;
        const std::span batch(mBatch.data(), count);
        runGuarded([&] { mSink.deliver(batch); });
        for (std::size_t i = 0; i < count; ++i) {
            DDLogMessage& message = mSlots[(head + static_cast<std::uint32_t>(i)) % kSlots].message;
            if (message.logMsg.capacity() > kKeptCapacity) std::string().swap(message.logMsg);
            if (message.options) message.file = message.function = nullptr;
        }
        mDone.store(head + static_cast<std::uint32_t>(count), std::memory_order_seq_cst);
        mDone.notify_all();
        if (enough && enough() && --share < 0) break;
    }
}

bool DDLogQueue::hasWork() {
    const std::uint32_t head = mDone.load(std::memory_order_seq_cst);
    if (mSlots[head % kSlots].published.load(std::memory_order_seq_cst) == head + 1) return true;
    if (mControlCount.load(std::memory_order_seq_cst) == 0) return false;
    const std::lock_guard guard(mControlLock);
    return !mControls.empty() && reached(head, mControls.front().position);
}

void DDLogQueue::wakeWorker(WorkerState seen) {
    // One of many callers wins and pays for the wake-up.
    if (seen != WorkerState::Running &&
        !mWorkerState.compare_exchange_strong(seen, WorkerState::Running, std::memory_order_seq_cst))
        return;
    { const std::lock_guard guard(mParkLock); }
    mPark.notify_one();
}

void DDLogQueue::run() {
    ::pthread_setname_np(::pthread_self(), "logging");
    microseconds nap = kFirstNap;
    microseconds lingered = kLinger;
    while (!mStopping.load() || hasWork()) {
        if (hasWork() && tryAcquire()) {
            drain({});
            mDraining.store(0, std::memory_order_seq_cst);
            nap = kFirstNap;
            lingered = {};
        }
        const WorkerState rest = lingered < kLinger ? WorkerState::Lingering : WorkerState::Idle;
        mWorkerState.store(rest, std::memory_order_seq_cst);
        // A few asynchronous messages may wait for the end of the nap; nothing else may.
        const bool urgent = rest == WorkerState::Idle || mSyncWaiters.load(std::memory_order_seq_cst) > 0 ||
                            mControlCount.load(std::memory_order_seq_cst) > 0 || mStopping.load() ||
                            mTail.load(std::memory_order_seq_cst) - mDone.load(std::memory_order_relaxed) >= kPlenty;
        // Work that another thread is draining is that thread's, which looks here when it lets go.
        if (!(urgent && hasWork() && mDraining.load(std::memory_order_seq_cst) == 0) && !mStopping.load()) {
            std::unique_lock guard(mParkLock);
            const auto woken = [&] { return mWorkerState.load() == WorkerState::Running || mStopping.load(); };
            if (rest == WorkerState::Idle) {
                mPark.wait(guard, woken);
            } else {
                mPark.wait_for(guard, nap, woken);
                lingered += nap;
                nap = std::min(2 * nap, kLongestNap);
            }
        }
        mWorkerState.store(WorkerState::Running, std::memory_order_seq_cst);
    }
}
