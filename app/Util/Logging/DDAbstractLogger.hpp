#pragma once

#include "platform/common/SerialQueue.hpp"

#include <functional>
#include <memory>
#include <span>
#include <string>

class DDLogFormatter;
struct DDLogMessage;

/// Base of every logger. Shared by the logging core, which calls it on the logger's own serial queue, and whoever made
/// it. A derived class whose queue still works for it when it ends must put an end to that in its destructor.
class DDAbstractLogger {
  public:
    /// @param name  also the label of the logger's queue; may be empty
    explicit DDAbstractLogger(std::string name = {});
    virtual ~DDAbstractLogger();
    DDAbstractLogger(const DDAbstractLogger&) = delete;
    DDAbstractLogger& operator=(const DDAbstractLogger&) = delete;

    /// @name Called by the core on the logger's queue. What a logger logs here is queued, never waited for.
    /// @{
    virtual void logMessage(const DDLogMessage&) {}
    /// The same for each in turn. A logger that takes batches has written everything when it returns.
    virtual void logMessages(std::span<const DDLogMessage* const> messages);
    virtual void didAddLogger() {}
    virtual void willRemoveLogger() {}
    virtual void flush() {}  ///< hands everything to the system before it returns
    /// @}

    /// Where every logger of the core takes batches, it hands over what waits together, which saves a system call for
    /// each message.
    virtual bool takesBatches() const noexcept { return false; }

    /// Whether it looks at the message's threadName itself; its formatter is asked too. The system has to be asked for
    /// the name at each call, which is a sixth of a synchronous one, so messages carry names only from the moment on at
    /// which somebody who reads them is added. Any thread.
    virtual bool readsThreadNames() const noexcept { return true; }

    /// The queue that the core uses; null has the core make one.
    virtual std::shared_ptr<platform::DispatchQueue> loggerQueue() const { return mLoggerQueue; }
    virtual std::string loggerName() const { return mName; }

    /// The formatter never changes while a message is being written: both go through the logging queue and the logger's
    /// queue. Block. Any thread.
    std::shared_ptr<DDLogFormatter> logFormatter() const;
    void setLogFormatter(std::shared_ptr<DDLogFormatter> formatter);

    bool isOnGlobalLoggingQueue() const noexcept;
    bool isOnInternalLoggerQueue() const noexcept;

  protected:
    /// Runs the block on the logger's queue once the messages logged before this call are delivered; directly when on
    /// that queue already. Blocks.
    void performOnLoggerQueue(const std::function<void()>& block) const;

    /// What a member of a logger says, read as above.
    template <typename Value>
    Value valueOnLoggerQueue(const Value& member) const {
        Value value{};
        performOnLoggerQueue([&] { value = member; });
        return value;
    }

    /// Runs the block as a part of a delivery: a log call or a flush within it is queued, not waited for, and what
    /// it throws is logged. For a block that something else than the core has submitted to the logger's queue, since a
    /// delivery may be waiting for it.
    static void performWithinDelivery(const std::function<void()>& block) noexcept;
    platform::SerialQueue& internalQueue() const { return *mLoggerQueue; }
    DDLogFormatter* formatter() const { return mFormatter.get(); }  ///< on the logger's queue

  private:
    std::string mName;
    std::shared_ptr<DDLogFormatter> mFormatter;  ///< on the logger's queue
    std::shared_ptr<platform::SerialQueue> mLoggerQueue;
};
