#include "app/Util/Logging/VundLogFileManager.hpp"

#include "app/Util/Logging/TrovikLogs.hpp"
#include "app/Util/Logging/impl/DDLocalTime.hpp"
#include "platform/Platform.hpp"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <system_error>
#include <utility>

VundLogFileManager::VundLogFileManager(std::string filePrefix) : mLogFilePrefix(std::move(filePrefix)) {}

std::string VundLogFileManager::logsDirectory() const {
    return TrovikLogs::logsDirectory();
}

bool VundLogFileManager::isLogFile(const std::string& fileName) const {
    return TrovikLogs::isLogFile(fileName, mLogFilePrefix);
}

std::vector<std::string> VundLogFileManager::unsortedLogFilePaths() const {
    return TrovikLogs::unsortedLogsWithPrefix(mLogFilePrefix);
}

std::vector<std::string> VundLogFileManager::unsortedLogFileNames() const {
    std::vector<std::string> names = unsortedLogFilePaths();
    for (std::string& name : names) name = DDLogFileInfo(name).fileName();
    return names;
}

std::vector<DDLogFileInfo> VundLogFileManager::unsortedLogFileInfos() const {
    std::vector<DDLogFileInfo> infos;
    for (const std::string& path : unsortedLogFilePaths()) infos.emplace_back(path);
    return infos;
}

std::vector<std::string> VundLogFileManager::sortedLogFilePaths() const {
    return TrovikLogs::sortedLogsWithPrefix(mLogFilePrefix);
}

std::vector<std::string> VundLogFileManager::sortedLogFileNames() const {
    std::vector<std::string> names = unsortedLogFileNames();
    std::sort(names.begin(), names.end(), std::greater<>());
    return names;
}

std::vector<DDLogFileInfo> VundLogFileManager::sortedLogFileInfos() const {
    std::vector<DDLogFileInfo> infos = unsortedLogFileInfos();
    std::sort(infos.begin(), infos.end(), [](const auto& a, const auto& b) { return a.fileName() > b.fileName(); });
    return infos;
}

std::string VundLogFileManager::createNewLogFile() {
    const DDLogFileInfo::Date midnight = DDLocalTime::startOfDay(platform::wallClock().now());
    std::string path =
        logsDirectory() + "/" + mLogFilePrefix + "_" + DDLocalTime::format("%Y.%m.%d", midnight) + ".txt";
    replaceWithEmptyFile(path, midnight);
    deleteOldLogFiles();
    return path;
}
