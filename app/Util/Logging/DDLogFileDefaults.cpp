#include "app/Util/Logging/DDLogFileDefaults.hpp"

#include "app/Util/Logging/DDLogMessage.hpp"
#include "platform/Directories.hpp"
#include "platform/Platform.hpp"

#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr unsigned kDefaultMaximumNumberOfLogFiles = 5;

std::string withMilliseconds(const char* pattern, const char* separator, DDLogFileInfo::Date moment) {
    DDLocalTime::Cache time;
    time.update(moment);
    char digits[8];
    std::snprintf(digits, sizeof digits, "%03d", time.milliseconds % 1000);
    return DDLocalTime::format(pattern, moment) + separator + digits;
}

}  // namespace

DDLogFileManagerDefault::DDLogFileManagerDefault(std::string logsDirectory)
    : mLogsDirectory(logsDirectory.empty() ? platform::directories().cachesDirectory() + "/Logs"
                                           : std::move(logsDirectory)) {
    std::error_code ignored;
    fs::create_directories(mLogsDirectory, ignored);
    setMaximumNumberOfLogFiles(kDefaultMaximumNumberOfLogFiles);
}

bool DDLogFileManagerDefault::isLogFile(const std::string& fileName) const {
    std::error_code error;
    return fileName.starts_with("log-") && fileName.ends_with(".txt") &&
           fs::is_regular_file(fs::symlink_status(mLogsDirectory + "/" + fileName, error));
}

std::string DDLogFileManagerDefault::createNewLogFile() {
    DDLogFileInfo::Date now = platform::wallClock().now();
    const auto pathAt = [&] { return mLogsDirectory + "/log-" + withMilliseconds("%Y%m%d-%H%M%S", "-", now) + ".txt"; };
    // Two files of one millisecond must not replace each other.
    std::error_code error;
    std::string path = pathAt();
    for (; fs::exists(path, error); path = pathAt()) now += std::chrono::milliseconds(1);
    replaceWithEmptyFile(path, now);
    removeFilesBeyondMaximum(sortedLogFilePaths());
    return path;
}

bool DDLogFileFormatterDefault::formatLogMessage(const DDLogMessage& message, std::string& text) {
    mTime.update(message.timestamp);
    char date[64];
    const std::size_t length = std::strftime(date, sizeof date, "%Y/%m/%d %H:%M:%S:", &mTime.fields);
    char digits[8];
    std::snprintf(digits, sizeof digits, "%03d", mTime.milliseconds % 1000);
    text.append(date, length).append(digits).append("  ").append(message.logMsg);
    return true;
}
