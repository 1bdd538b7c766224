#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "app/Util/Logging/DDAbstractLogger.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DDLogMessage.hpp"

namespace support {

/// Keeps what the application logs while this lives. Any thread.
class LogRecorder {
  public:
    LogRecorder() { DDLog::addLogger(mLogger); }
    ~LogRecorder() {
        DDLog::removeLogger(mLogger);
        DDLog::flushLog();
    }
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    /// What was logged since the last call.
    std::vector<DDLogMessage> take() {
        DDLog::flushLog();
        const std::lock_guard lock(mLogger->mutex);
        return std::exchange(mLogger->messages, {});
    }

  private:
    struct Logger final : DDAbstractLogger {
        void logMessage(const DDLogMessage& message) override {
            const std::lock_guard lock(mutex);
            messages.push_back(message);
        }
        std::mutex mutex;
        std::vector<DDLogMessage> messages;  ///< under mutex
    };
    std::shared_ptr<Logger> mLogger = std::make_shared<Logger>();
};

}  // namespace support
