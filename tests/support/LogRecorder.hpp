#pragma once

#include "app/Util/Logging/DDAbstractLogger.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DDLogMessage.hpp"
#include "app/Util/Logging/impl/DDLogCore.hpp"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <semaphore>
#include <utility>
#include <vector>

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

/// True when the call does not return before what it logs is delivered. A delivery is held up until the call has
/// returned; where one is expected to wait, that ends after a moment instead.
inline bool WaitsForItsLine(bool expected, const std::function<void()>& call) {
    const std::chrono::milliseconds patience(expected ? 50 : 10000);
    std::binary_semaphore returned(0);
    bool waited = false;
    DDLogCore::shared().loggingQueue().dispatch_async([&] { waited = !returned.try_acquire_for(patience); });
    call();
    returned.release();
    DDLog::flushLog();
    return waited;
}

}  // namespace support
