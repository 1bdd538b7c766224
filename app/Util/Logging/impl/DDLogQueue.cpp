#include "app/Util/Logging/impl/DDLogQueue.hpp"

#include "platform/Platform.hpp"
#include "platform/common/Boundary.hpp"
#include "platform/common/QueueFrame.hpp"

#include <algorithm>
#include <limits>
#include <pthread.h>
#include <system_error>
#include <utility>

namespace {

constexpr std::uint64_t kEverything = std::numeric_limits<std::uint64_t>::max();

}  // namespace

DDLogQueue::DDLogQueue(std::string label, Sink& sink) : mLabel(std::move(label)), mSink(sink) {
    // Behind the lock, since the thread looks at its own object.
    const std::lock_guard guard(mLock);
    try {
        mWorker = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        // No more threads for this process. Whoever calls delivers.
    }
}

DDLogQueue::~DDLogQueue() {
    {
        const std::lock_guard guard(mLock);
        mStopping = true;
    }
    if (!mWorker.joinable()) return;
    mWork.notify_one();
    mWorker.join();
}

bool DDLogQueue::isCurrent() const noexcept {
    return platform::QueueFrame::isInside(this);
}

void DDLogQueue::performWithin(const std::function<void()>& block) const noexcept {
    const platform::QueueFrame within(this, nullptr);
    platform::runGuarded(block, "DDLogQueue", __LINE__);
}

bool DDLogQueue::post(DDLogMessage&& message, bool asynchronous) {
    // Nobody within a delivery may wait for the next one.
    const bool within = isCurrent();
    std::unique_lock turn(mTurn, std::defer_lock);
    if (!asynchronous && !within) turn.lock();
    std::unique_lock guard(mLock);
    if (within && mMessages >= kPermits) return false;
    mProgress.wait(guard, [this] { return mMessages < kPermits; });
    mWaiting.emplace_back().message = std::move(message);
    ++mMessages;
    ++mSubmitted;
    if (!asynchronous && !within) {
        await(guard, mSubmitted);
    } else {
        wakeThread(guard);
    }
    return true;
}

void DDLogQueue::dispatch_async(std::function<void()> block) {
    if (!block) return;  // would count as a message
    std::unique_lock guard(mLock);
    mWaiting.emplace_back().block = std::move(block);
    ++mSubmitted;
    wakeThread(guard);
}

void DDLogQueue::dispatch_sync(const std::function<void()>& block) {
    std::unique_lock guard(mLock);
    mWaiting.emplace_back().block = [&block] { block(); };
    await(guard, ++mSubmitted);
}

/// Has the queue's thread deliver; without one this thread does, unless a delivery is under way that will go on.
void DDLogQueue::wakeThread(std::unique_lock<std::mutex>& guard) {
    if (mWorker.joinable()) {
        guard.unlock();
        mWork.notify_one();
    } else if (!isCurrent() && !mDraining) {
        drain(guard, kEverything);
    }
}

/// Returns when the entry with that ticket has been delivered, on this thread if nobody else is at it.
void DDLogQueue::await(std::unique_lock<std::mutex>& guard, std::uint64_t ticket) {
    mAwaited = std::max(mAwaited, ticket);
    while (mDone < ticket) {
        if (mDraining) {
            mProgress.wait(guard);
        } else {
            drain(guard, ticket);
        }
    }
}

/// Delivers until nothing is left, or until the entry with that ticket has had its turn. Nobody else drains.
void DDLogQueue::drain(std::unique_lock<std::mutex>& guard, std::uint64_t ticket) {
    mDraining = true;
    if (!mWorker.joinable()) ticket = kEverything;  // nobody goes on after this thread
    while (mDone < std::min(ticket, mSubmitted)) {
        if (mTaken.empty()) mTaken.swap(mWaiting);
        guard.unlock();
        const std::size_t messages = deliverFront();
        guard.lock();
        mMessages -= messages;
        mDone += std::max<std::size_t>(messages, 1);
        mProgress.notify_all();
    }
    mDraining = false;
    // Where a caller still waits, it goes on from here and the thread need not be woken.
    if (mDone < mSubmitted && mAwaited <= mDone) mWork.notify_one();
}

/// Delivers the first of the taken entries: a block, or the messages in front of the next block.
/// @return how many messages it were
std::size_t DDLogQueue::deliverFront() {
    const std::span<Entry> entries = std::span(mTaken).subspan(mTakenDone);
    const std::size_t limit = std::min({mSink.batchLimit(), kMaxBatch, entries.size()});
    std::size_t count = 0;
    for (; count < limit && !entries[count].block; ++count) mBatch[count] = &entries[count].message;
    const platform::QueueFrame frame(this, mLabel.c_str());
    const auto deliver = [&] {
        if (count == 0) return std::exchange(entries.front().block, nullptr)();
        mSink.deliver({mBatch.data(), count});
    };
    platform::runGuarded(deliver, "DDLogQueue", __LINE__);
    mTakenDone += std::max<std::size_t>(count, 1);
    if (mTakenDone == mTaken.size()) {
        mTaken.clear();
        mTakenDone = 0;
    }
    return count;
}

void DDLogQueue::run() {
    ::pthread_setname_np(::pthread_self(), "logging");
    std::unique_lock guard(mLock);
    for (;;) {
        mWork.wait(guard, [this] { return mDone == mSubmitted ? mStopping : !mDraining; });
        if (mDone == mSubmitted) return;
        drain(guard, kEverything);
    }
}
