#include "app/Util/Logging/DDLogFileDefaults.hpp"

#include "app/Util/Logging/DDLogMessage.hpp"
#include "platform/Directories.hpp"
#include "platform/Platform.hpp"

#include <algorithm>
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

std::vector<std::string> namesOf(const std::vector<DDLogFileInfo>& infos) {
    std::vector<std::string> names;
    for (const DDLogFileInfo& info : infos) names.push_back(info.fileName());
    return names;
}

std::vector<std::string> pathsOf(const std::vector<DDLogFileInfo>& infos) {
    std::vector<std::string> paths;
    for (const DDLogFileInfo& info : infos) paths.push_back(info.filePath());
    return paths;
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

std::vector<DDLogFileInfo> DDLogFileManagerDefault::unsortedLogFileInfos() const {
    std::vector<DDLogFileInfo> infos;
    std::error_code error;
    for (fs::directory_iterator entry(mLogsDirectory, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (isLogFile(name)) infos.emplace_back(mLogsDirectory + "/" + name);
    }
    if (error) infos.clear();
    return infos;
}

std::vector<DDLogFileInfo> DDLogFileManagerDefault::sortedLogFileInfos() const {
    std::vector<DDLogFileInfo> infos = unsortedLogFileInfos();
    std::sort(infos.begin(), infos.end(), DDLogFileInfo::reverseCompareByCreationDate);
    return infos;
}

std::vector<std::string> DDLogFileManagerDefault::unsortedLogFilePaths() const {
    return pathsOf(unsortedLogFileInfos());
}

std::vector<std::string> DDLogFileManagerDefault::unsortedLogFileNames() const {
    return namesOf(unsortedLogFileInfos());
}

std::vector<std::string> DDLogFileManagerDefault::sortedLogFilePaths() const {
    return pathsOf(sortedLogFileInfos());
}

std::vector<std::string> DDLogFileManagerDefault::sortedLogFileNames() const {
    return namesOf(sortedLogFileInfos());
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
