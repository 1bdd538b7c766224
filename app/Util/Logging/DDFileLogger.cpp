#include "app/Util/Logging/DDFileLogger.hpp"

#include "app/Util/Logging/DDLogFileDefaults.hpp"
#include "app/Util/Logging/DDLogFormatter.hpp"
#include "app/Util/Logging/DDLogMessage.hpp"
#include "app/Util/Logging/impl/DDLocalTime.hpp"
#include "app/Util/Logging/impl/DDLogCore.hpp"
#include "platform/DispatchSource.hpp"
#include "platform/Platform.hpp"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

constexpr unsigned kReportedExceptions = 10;
constexpr std::size_t kKeptCapacity = 131072;

}  // namespace

DDFileLogger::DDFileLogger(std::shared_ptr<DDLogFileManager> logFileManager)
    : DDAbstractLogger("cocoa.modogriomu.fileLogger"),
      mLogFileManager(logFileManager ? std::move(logFileManager) : std::make_shared<DDLogFileManagerDefault>()) {}

DDFileLogger::~DDFileLogger() {
    // The timer and the watch may be about to deliver; once they are cancelled on the queue they no longer can.
    const auto end = [this] {
        if (mCurrentLogFileHandle) ::fsync(mCurrentLogFileHandle.get());
        forgetLogFile();
    };
    if (isOnInternalLoggerQueue()) {
        end();
    } else {
        internalQueue().dispatch_sync(end);
    }
}

std::uint64_t DDFileLogger::maximumFileSize() const {
    return valueOnLoggerQueue(mMaximumFileSize);
}

void DDFileLogger::setMaximumFileSize(std::uint64_t bytes) {
    performOnLoggerQueue([&] {
        mMaximumFileSize = bytes;
        maybeRollLogFileDueToSize();
    });
}

double DDFileLogger::rollingFrequency() const {
    return valueOnLoggerQueue(mRollingFrequency);
}

void DDFileLogger::setRollingFrequency(double seconds) {
    performOnLoggerQueue([&] {
        mRollingFrequency = seconds;
        maybeRollLogFileDueToAge();
    });
}

void DDFileLogger::rollLogFileWithCompletionBlock(std::function<void()> completion) {
    performOnLoggerQueue([&] { rollLogFileNow(); });
    if (completion) platform::dispatch_get_main_queue().dispatch_async(std::move(completion));
}

void DDFileLogger::willRemoveLogger() {
    rollLogFileNow();
}

bool DDFileLogger::reusable(const DDLogFileInfo& info) const {
    if (info.isArchived()) return false;
    if (mMaximumFileSize != 0 && info.fileSize() >= mMaximumFileSize) return false;
    return mRollingFrequency <= 0 || platform::wallClock().now() < rollDate(info);
}

/// When the file reaches the rolling frequency. With a fixed count of seconds the file of a 25-hour day would be rolled
/// an hour before its day is over, and the new file of the same name would take all of its place.
DDLogFileInfo::Date DDFileLogger::rollDate(const DDLogFileInfo& info) const {
    return DDLocalTime::adding(info.creationDate(), mRollingFrequency);
}

const DDLogFileInfo& DDFileLogger::currentLogFileInfo() {
    if (mCurrentLogFileInfo) return *mCurrentLogFileInfo;
    std::vector<DDLogFileInfo> sorted = mLogFileManager->sortedLogFileInfos();
    if (!sorted.empty()) {
        DDLogFileInfo& newest = sorted.front();
        if (reusable(newest)) return mCurrentLogFileInfo.emplace(std::move(newest));
        newest.setIsArchived(true);
        mLogFileManager->didArchiveLogFile(newest.filePath());
    }
    return mCurrentLogFileInfo.emplace(mLogFileManager->createNewLogFile());
}

int DDFileLogger::currentLogFileHandle() {
    if (mCurrentLogFileHandle) return mCurrentLogFileHandle.get();
    const DDLogFileInfo& info = currentLogFileInfo();
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW;
    platform::FileDescriptor handle;
    if (!info.isArchived()) {
        handle = platform::FileDescriptor(::open(info.filePath().c_str(), kFlags));
    } else {
        errno = EEXIST;  // the new file could not be made, and an old one of its name is still there
    }
    struct stat status {};
    if (!handle || ::fstat(handle.get(), &status) != 0) {
        const std::system_error failure(errno, std::generic_category(), "open");
        mCurrentLogFileInfo.reset();  // the next line looks for a file afresh
        throw failure;
    }
    mCurrentLogFileHandle = std::move(handle);
    mOffset = static_cast<std::uint64_t>(status.st_size);
    scheduleTimerToRollLogFileDueToAge();
    mCurrentLogFileVnode = platform::dispatchSources().dispatch_source_vnode(
        mCurrentLogFileHandle.get(), info.filePath(), internalQueue(),
        [this] { performWithinDelivery([this] { rollLogFileNow(); }); });
    return mCurrentLogFileHandle.get();
}

void DDFileLogger::scheduleTimerToRollLogFileDueToAge() {
    mRollingTimer.reset();
    if (!mCurrentLogFileInfo || mRollingFrequency <= 0) return;
    mRollingTimer = platform::dispatchSources().dispatch_source_timer(
        rollDate(*mCurrentLogFileInfo), internalQueue(),
        [this] { performWithinDelivery([this] { maybeRollLogFileDueToAge(); }); });
}

void DDFileLogger::maybeRollLogFileDueToAge() {
    if (mCurrentLogFileInfo && mRollingFrequency > 0 && platform::wallClock().now() >= rollDate(*mCurrentLogFileInfo))
        rollLogFileNow();
    scheduleTimerToRollLogFileDueToAge();
}

void DDFileLogger::maybeRollLogFileDueToSize() {
    if (mCurrentLogFileHandle && mMaximumFileSize != 0 && mOffset >= mMaximumFileSize) rollLogFileNow();
}

void DDFileLogger::rollLogFileNow() {
    if (!mCurrentLogFileHandle) return;
    // Also when the manager throws.
    const struct Rest {
        DDFileLogger* logger;
        ~Rest() { logger->forgetLogFile(); }
    } rest{this};
    ::fsync(mCurrentLogFileHandle.get());
    // Before the close: the path may lead to another file by now, which somebody else writes to.
    mCurrentLogFileInfo->setOpenFileIsArchived(mCurrentLogFileHandle.get());
    mCurrentLogFileHandle.reset();
    const std::string path = mCurrentLogFileInfo->filePath();
    mLogFileManager->didRollAndArchiveLogFile(path);
}

void DDFileLogger::forgetLogFile() {
    mCurrentLogFileHandle.reset();
    mCurrentLogFileInfo.reset();
    mCurrentLogFileVnode.reset();
    mRollingTimer.reset();
}

void DDFileLogger::logMessage(const DDLogMessage& message) {
    const DDLogMessage* const one = &message;
    logMessages({&one, 1});
}

void DDFileLogger::logMessages(std::span<const DDLogMessage* const> messages) {
    for (const DDLogMessage* message : messages) {
        try {
            if (!appendLine(*message)) continue;
            // The offset decides where the file ends, so it must be known before a line is counted on to fit.
            currentLogFileHandle();
            if (mMaximumFileSize != 0 && mOffset + mPending.size() >= mMaximumFileSize) writePending();
        } catch (...) {
            // Only this line: a file that can't be opened leaves nothing else pending.
            mPending.clear();
            mLineEnds.clear();
            countCurrentException();
        }
    }
    writePending();
    if (mPending.capacity() > kKeptCapacity) mPending.shrink_to_fit();
}

/// Puts the message's line behind the pending ones.
/// @return false for a message that is not to be written
bool DDFileLogger::appendLine(const DDLogMessage& message) {
    const std::size_t start = mPending.size();
    try {
        if (!formatter()) {
            mPending.append(message.logMsg);
        } else if (!formatter()->formatLogMessage(message, mPending)) {
            mPending.resize(start);
            return false;
        }
        if (mPending.size() == start || mPending.back() != '\n') mPending.push_back('\n');
        mLineEnds.push_back(mPending.size());
        return true;
    } catch (...) {
        mPending.resize(start);
        countCurrentException();
        return false;
    }
}

/// @return how many bytes got into the file
std::size_t DDFileLogger::writeBytes(std::string_view bytes, int& error) noexcept {
    const std::size_t size = bytes.size();
    while (!bytes.empty()) {
        const ssize_t count = ::write(mCurrentLogFileHandle.get(), bytes.data(), bytes.size());
        if (count > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            error = count == 0 ? EIO : errno;
            break;
        }
    }
    return size - bytes.size();
}

/// Takes the beginning of a line that did not fit off the file's end again.
void DDFileLogger::cutOff(std::size_t bytes) noexcept {
    struct stat status {};
    if (bytes == 0 || ::fstat(mCurrentLogFileHandle.get(), &status) != 0) return;
    if (::ftruncate(mCurrentLogFileHandle.get(), status.st_size - static_cast<off_t>(bytes)) != 0) mOffset += bytes;
}

/// Writes the pending lines and rolls if that has filled the file. A line that fails is lost; those after it are tried.
void DDFileLogger::writePending() noexcept {
    std::size_t start = 0;
    auto line = mLineEnds.begin();
    while (line != mLineEnds.end()) {
        int error = 0;
        const std::size_t written = writeBytes(std::string_view(mPending).substr(start), error);
        const auto failed = std::upper_bound(line, mLineEnds.end(), start + written);
        const std::size_t whole = failed == line ? start : *(failed - 1);  // the end of the last line that got through
        mOffset += whole - start;
        if (failed == mLineEnds.end()) break;
        cutOff(start + written - whole);
        countException(std::system_category().message(error).c_str());
        start = *failed;
        line = failed + 1;
    }
    mPending.clear();
    mLineEnds.clear();
    try {
        maybeRollLogFileDueToSize();
    } catch (...) {
        countCurrentException();
    }
}

void DDFileLogger::countCurrentException() noexcept {
    try {
        throw;
    } catch (const std::exception& error) {
        countException(error.what());
    } catch (...) {
        countException("unknown exception");
    }
}

void DDFileLogger::countException(const char* what) noexcept {
    if (++mExceptionCount > kReportedExceptions) return;
    platform::NSLog("DDFileLogger.logMessage: %s", what);
    if (mExceptionCount == kReportedExceptions)
        platform::NSLog("DDFileLogger.logMessage: Too many exceptions -- will not log any more of them.");
}
