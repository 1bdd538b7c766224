#include "app/Util/Logging/VundLogFileManager.hpp"

#include "app/Util/Logging/TrovikLogs.hpp"
#include "app/Util/Logging/impl/DDLocalTime.hpp"
#include "platform/Platform.hpp"

#include <utility>

VundLogFileManager::VundLogFileManager(std::string filePrefix) : mLogFilePrefix(std::move(filePrefix)) {}

std::string VundLogFileManager::logsDirectory() const {
    return TrovikLogs::logsDirectory();
}

bool VundLogFileManager::isLogFile(const std::string& fileName) const {
    return TrovikLogs::isLogFile(fileName, mLogFilePrefix);
}

std::string VundLogFileManager::createNewLogFile() {
    const DDLogFileInfo::Date midnight = DDLocalTime::startOfDay(platform::wallClock().now());
    std::string path =
        logsDirectory() + "/" + mLogFilePrefix + "_" + DDLocalTime::format("%Y.%m.%d", midnight) + ".txt";
    replaceWithEmptyFile(path, midnight);
    deleteOldLogFiles();
    return path;
}
