#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <thread>

#include "app/Util/Logging/DDLogMessage.hpp"
#include "platform/Dispatch.hpp"

/// What a caller says of a message; the queue adds the moment and the thread. Everything is borrowed for the call.
struct DDLogDraft {
    std::uint32_t level;
    std::uint32_t flag;
    std::int32_t context;
    const char* file;
    const char* function;
    std::int32_t line;
    const void* tag;
    std::uint32_t options;
    std::string_view text;
};

/// The logging queue: serial, and made for messages. A message is written into a slot of a ring that is made once;
/// blocks keep their place among the messages. Whoever holds `mDraining` delivers: the queue's own thread for
/// asynchronous work, the caller itself for synchronous work on an idle queue, so that no thread has to be woken.
///
/// The thread does not sleep for good between two messages that follow each other closely: it naps for a fraction of a
/// millisecond at a time and looks itself, so that a caller pays for a wake-up only after a pause. When nothing has
/// come for `kLinger` it sleeps until it is woken, so an idle program has no wake-ups at all.
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

    static constexpr std::uint32_t kPermits = 1000;  ///< messages that may wait; callers beyond that block
    static constexpr std::size_t kMaxBatch = 256;    ///< small enough that callers go on while the rest is delivered

    DDLogQueue(std::string label, Sink& sink);
    ~DDLogQueue() override;
    DDLogQueue(const DDLogQueue&) = delete;
    DDLogQueue& operator=(const DDLogQueue&) = delete;

    /// Queues one message; a synchronous one is delivered when this returns. From within a delivery a synchronous
    /// message is queued only, since it could never be waited for. Never throws. Blocks while no permit is free.
    void post(const DDLogDraft& draft, bool asynchronous) noexcept;

    void dispatch_async(std::function<void()> block) override;
    void dispatch_sync(const std::function<void()>& block) override;

    const std::string& label() const { return mLabel; }
    /// True within a delivery or a block of this queue, loggers at work on their own threads included: whoever is in
    /// there can't wait for this queue.
    bool isCurrent() const;

    /// Marks the calling thread as part of a delivery while it lives. A logger's queue runs its block on the thread
    /// that drains or on its own, as it comes; both are within the delivery.
    class Within {
      public:
        explicit Within(const DDLogQueue& queue);
        ~Within();
        Within(const Within&) = delete;
        Within& operator=(const Within&) = delete;

      private:
        const DDLogQueue* const mOuter;
    };

  private:
    static constexpr std::uint32_t kSlots = 1024;  ///< a power of two, so that tickets may wrap
    static constexpr std::uint32_t kPlenty = kPermits / 2;
    static_assert(kSlots >= kPermits && (kSlots & (kSlots - 1)) == 0);

    enum class WorkerState : std::uint32_t { Running, Lingering, Idle };
    struct alignas(64) Slot {
        std::atomic<std::uint32_t> published{0};  ///< ticket + 1 of the message that is complete in here
        DDLogMessage message;
    };
    struct Control {
        std::uint32_t position;  ///< runs before the message with this ticket
        std::function<void()> block;
    };

    void fill(Slot& slot, const DDLogDraft& draft) noexcept;
    void awaitDelivery(const std::function<bool()>& delivered);
    void waitForPermit(std::uint32_t ticket);
    bool tryAcquire() { return mDraining.exchange(1, std::memory_order_seq_cst) == 0; }
    void release();
    void drain(const std::function<bool()>& enough);
    std::size_t collect(std::uint32_t head);
    bool nextControl(std::uint32_t head, std::size_t& messages, std::function<void()>& block);
    bool hasWork();
    void wakeWorker(WorkerState seen);
    void run();

    const std::string mLabel;
    Sink& mSink;
    std::array<Slot, kSlots> mSlots;
    alignas(64) std::atomic<std::uint32_t> mTail{0};  ///< next ticket
    alignas(64) std::atomic<std::uint32_t> mDone{0};  ///< messages delivered; waiters for permits and deliveries
    alignas(64) std::atomic<std::uint32_t> mDraining{0};
    std::atomic<WorkerState> mWorkerState{WorkerState::Running};
    std::atomic<std::uint32_t> mSyncWaiters{0};
    std::atomic<std::uint32_t> mControlCount{0};
    std::atomic<bool> mStopping{false};
    std::array<const DDLogMessage*, kMaxBatch> mBatch{};  ///< whoever drains
    std::mutex mControlLock;
    std::deque<Control> mControls;  ///< behind mControlLock
    std::mutex mParkLock;           ///< held to change mWorkerState to Running from outside
    std::condition_variable mPark;
    std::thread mWorker;
};
