#pragma once

#include "app/Util/Logging/DDLoggerNode.hpp"
#include "app/Util/Logging/impl/DDLogQueue.hpp"

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

/// The state behind DDLog: the logging queue, the registered loggers, and the delivery to them. The process has one
/// (`shared`), made at first use and never destroyed, since static objects log while they are being destroyed; its
/// thread ends with the process. A test may own another, whose end delivers everything and lets go of the loggers.
class DDLogCore final : private DDLogQueue::Sink {
  public:
    /// The process's core. Its first use registers the exit handler, and has a closed output or a file-size limit
    /// answer with an error instead of ending the process.
    static DDLogCore& shared();

    /// @param numProcessors  with 2 or more the loggers of one delivery work at the same time
    explicit DDLogCore(unsigned numProcessors);
    ~DDLogCore() override;
    DDLogCore(const DDLogCore&) = delete;
    DDLogCore& operator=(const DDLogCore&) = delete;

    DDLogQueue& loggingQueue() { return mLoggingQueue; }
    /// As DDLogQueue::post.
    [[nodiscard]] bool queueLogMessage(DDLogMessage&& message, bool asynchronously) {
        return mLoggingQueue.post(std::move(message), asynchronously);
    }

    /// Whether anybody reads the thread names of messages; once it is so, it stays so. Any thread.
    bool wantsThreadNames() const noexcept { return mWantsThreadNames.load(std::memory_order_relaxed); }
    void setWantsThreadNames() noexcept { mWantsThreadNames.store(true, std::memory_order_relaxed); }

    /// Any thread. Blocks until all is flushed, except from within a delivery, after which it then happens.
    void flushLog();

    /// @name The prefix lt_ ("logging thread") marks what is called in a block of the logging queue, and nowhere else
    /// @{
    void lt_addLogger(std::shared_ptr<DDAbstractLogger> logger, std::uint32_t level);
    void lt_removeLogger(const DDAbstractLogger* logger);
    void lt_removeAllLoggers();
    void lt_flush();
    /// @}

  private:
    std::size_t batchLimit() const override;
    void deliver(std::span<const DDLogMessage* const> messages) override;
    void farewell(const DDLoggerNode& node);

    const unsigned mNumProcessors;
    std::atomic<bool> mWantsThreadNames{false};
    std::vector<DDLoggerNode> mLoggers;           ///< on the logging queue
    std::vector<const DDLoggerNode*> mReceivers;  ///< of one delivery; on the logging queue
    DDLogQueue mLoggingQueue;                     ///< last: its end still delivers to the loggers
};
