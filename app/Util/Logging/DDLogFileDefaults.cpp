#include "app/Util/Logging/DDLogFileDefaults.hpp"

#include "app/Util/Logging/DDLogMessage.hpp"
#include "app/Util/Logging/impl/DDLocalTime.hpp"
#include "platform/Directories.hpp"
#include "platform/Platform.hpp"

#include <chrono>
#include <filesystem>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr unsigned kDefaultMaximumNumberOfLogFiles = 5;

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
    const auto pathAt = [&] {
        std::string name = DDLocalTime::format("/log-%Y%m%d-%H%M%S-", now);
        DDLocalTime::appendMilliseconds(now, name);
        return mLogsDirectory + name + ".txt";
    };
    // Two files of one millisecond must not replace each other.
    std::error_code error;
    std::string path = pathAt();
    for (; fs::exists(path, error); path = pathAt()) now += std::chrono::milliseconds(1);
    replaceWithEmptyFile(path, now);
    removeFilesBeyondMaximum(sortedLogFilePaths());
    return path;
}

bool DDLogFileFormatterDefault::formatLogMessage(const DDLogMessage& message, std::string& text) {
    text += DDLocalTime::format("%Y/%m/%d %H:%M:%S:", message.timestamp);
    DDLocalTime::appendMilliseconds(message.timestamp, text);
    text.append("  ").append(message.logMsg);
    return true;
}
