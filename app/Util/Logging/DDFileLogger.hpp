#pragma once

#include "app/Util/Logging/DDAbstractLogger.hpp"
#include "app/Util/Logging/DDLogFileManager.hpp"
#include "platform/common/FileDescriptor.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {
class DispatchSource;
}

/// Appends lines to the current log file, and rolls to a new one when that has grown too large or too old, when it is
/// deleted or moved away, and on request. Which files there are is its manager's business.
///
/// A rolling frequency of whole days counts days of the calendar, which may have 23 or 25 hours: a file dated with the
/// start of a day ends when another day starts. Every other frequency is counted in seconds.
///
/// A line that has been handed over is with the system, whole, when the call returns: several lines of one batch go out
/// in one write, and what a write that fails half-way leaves of a line is cut off again. No failure leaves the logger;
/// the line is lost, the first ten failures go to the system log, and the next line tries afresh.
///
/// All file work happens on the logger's queue, where the timer and the file watch deliver too.
class DDFileLogger final : public DDAbstractLogger {
  public:
    static constexpr std::uint64_t kDefaultMaximumFileSize = 0x100000;  // bytes
    static constexpr double kDefaultRollingFrequency = 86400.0;         // seconds: one day of the calendar

    /// @param logFileManager  shared with the caller; null takes a DDLogFileManagerDefault
    explicit DDFileLogger(std::shared_ptr<DDLogFileManager> logFileManager);

    /// Flushes and closes the file. Not while the logger is registered.
    ~DDFileLogger() override;

    const std::shared_ptr<DDLogFileManager>& logFileManager() const { return mLogFileManager; }

    /// @name Settings. A change looks at once whether the current file must be rolled. Block. Any thread.
    /// @{
    std::uint64_t maximumFileSize() const;  ///< bytes; rolls when the file has that many; 0 for no limit
    void setMaximumFileSize(std::uint64_t bytes);
    double rollingFrequency() const;  ///< seconds; rolls when the file is that old, see below; 0 or less for no limit
    void setRollingFrequency(double seconds);
    /// @}

    /// Rolls now, after what was logged before this call. Blocks. Any thread.
    void rollLogFile() { rollLogFileWithCompletionBlock({}); }

    /// The same, then has something run.
    /// @param completion  callback on the main queue; may be empty
    void rollLogFileWithCompletionBlock(std::function<void()> completion);

    void logMessage(const DDLogMessage& message) override;
    void logMessages(std::span<const DDLogMessage* const> messages) override;
    bool takesBatches() const noexcept override { return true; }
    bool readsThreadNames() const noexcept override { return false; }
    void willRemoveLogger() override;

  private:
    const DDLogFileInfo& currentLogFileInfo();
    int currentLogFileHandle();
    bool reusable(const DDLogFileInfo& info) const;
    DDLogFileInfo::Date rollDate(const DDLogFileInfo& info) const;
    void scheduleTimerToRollLogFileDueToAge();
    void maybeRollLogFileDueToAge();
    void maybeRollLogFileDueToSize();
    void rollLogFileNow();
    void forgetLogFile();

    [[nodiscard]] bool appendLine(const DDLogMessage& message);
    void writePending() noexcept;
    [[nodiscard]] std::size_t writeBytes(std::string_view bytes, int& error) noexcept;
    void cutOff(std::size_t bytes) noexcept;
    void countException(const char* what) noexcept;
    void countCurrentException() noexcept;

    const std::shared_ptr<DDLogFileManager> mLogFileManager;

    // All of the following belongs to the logger's queue.
    std::uint64_t mMaximumFileSize = kDefaultMaximumFileSize;
    double mRollingFrequency = kDefaultRollingFrequency;
    std::optional<DDLogFileInfo> mCurrentLogFileInfo;
    platform::FileDescriptor mCurrentLogFileHandle;
    std::uint64_t mOffset = 0;  ///< where the next line goes
    std::unique_ptr<platform::DispatchSource> mCurrentLogFileVnode;
    std::unique_ptr<platform::DispatchSource> mRollingTimer;
    std::string mPending;                ///< lines on their way into the file
    std::vector<std::size_t> mLineEnds;  ///< where each of them ends in mPending
    std::uint64_t mExceptionCount = 0;
};
