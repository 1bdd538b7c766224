#pragma once

#include "app/Util/Logging/DDLogMessage.hpp"
#include "platform/Dispatch.hpp"

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

/// The logging queue: serial, and made for messages. Messages and blocks wait in one row in the order in which they
/// came. One thread at a time drains it: the queue's own for asynchronous work, a synchronous caller where nobody does
/// it yet, so that no other thread has to be woken for it. Synchronous messages come to the row one at a time: callers
/// that waited there together would all have to be woken for each line.
///
/// Owned by the logging core. The destructor delivers what waits and joins the thread. Any thread.
class DDLogQueue final : public platform::DispatchQueue {
  public:
    /// Takes the messages, on the thread that drains.
    class Sink {
      public:
        virtual ~Sink() = default;
        virtual std::size_t batchLimit() const = 0;  ///< how many messages one delivery may have at the moment
        virtual void deliver(std::span<const DDLogMessage* const> messages) = 0;
    };

    static constexpr std::size_t kPermits = 1000;  ///< messages that may wait; callers beyond that block
    static constexpr std::size_t kMaxBatch = 256;  ///< small enough that callers go on while the rest is delivered

    DDLogQueue(std::string label, Sink& sink);
    ~DDLogQueue() override;
    DDLogQueue(const DDLogQueue&) = delete;
    DDLogQueue& operator=(const DDLogQueue&) = delete;

    /// Queues one message; a synchronous one is delivered when this returns. From within a delivery a synchronous
    /// message is queued only, since it could never be waited for. Blocks while no permit is free.
    /// @return false within a delivery when no permit is free: the message is not taken
    /// @throws std::bad_alloc  the message is not taken
    [[nodiscard]] bool post(DDLogMessage&& message, bool asynchronous);

    void dispatch_async(std::function<void()> block) override;
    void dispatch_sync(const std::function<void()>& block) override;

    /// True within a delivery or a block of this queue, loggers at work on their own threads included: whoever is in
    /// there can't wait for this queue.
    bool isCurrent() const noexcept;

    /// Runs the block as a part of a delivery, on the thread of the call. A logger's queue runs its blocks on the
    /// thread that drains or on its own, as it comes; both are within the delivery. What the block throws is logged in
    /// there.
    void performWithin(const std::function<void()>& block) const noexcept;

  private:
    struct Entry {
        DDLogMessage message;
        std::function<void()> block;  ///< empty where the entry is a message
    };

    void wakeThread(std::unique_lock<std::mutex>& guard);
    void await(std::unique_lock<std::mutex>& guard, std::uint64_t ticket);
    void drain(std::unique_lock<std::mutex>& guard, std::uint64_t ticket);
    std::size_t deliverFront();
    void run();

    const std::string mLabel;
    Sink& mSink;
    std::mutex mTurn;  ///< held by the one caller with a synchronous message, from before mLock until it is delivered
    std::mutex mLock;
    std::condition_variable mWork;      ///< for the thread: there is something, or the end has come
    std::condition_variable mProgress;  ///< for callers: something has been delivered
    std::vector<Entry> mWaiting;        ///< keeps its memory for the next ones; behind mLock
    std::size_t mMessages = 0;          ///< not delivered yet; behind mLock
    std::uint64_t mSubmitted = 0;       ///< entries so far, the ticket of the last one; behind mLock
    std::uint64_t mDone = 0;            ///< entries delivered; behind mLock
    std::uint64_t mAwaited = 0;         ///< the last ticket that a caller waits for; behind mLock
    bool mDraining = false;             ///< behind mLock
    bool mStopping = false;             ///< behind mLock
    std::vector<Entry> mTaken;          ///< entries before those in mWaiting; of the thread that drains
    std::size_t mTakenDone = 0;         ///< how many of them are delivered; of the thread that drains
    std::array<const DDLogMessage*, kMaxBatch> mBatch{};  ///< of the thread that drains
    std::thread mWorker;
};
