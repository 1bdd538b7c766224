#include "app/Util/Logging/TrovikLogs.hpp"

#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/VundLogFileManager.hpp"
#include "platform/Directories.hpp"
#include "platform/NSUserDefaults.hpp"
#include "platform/Platform.hpp"
#include "platform/common/PrivateFolder.hpp"

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

void TrovikLogs::initLogLevel() {
    static const std::string key = "logLevel";
    if (platform::standardUserDefaults().objectForKey(key))
        ddLogLevel = static_cast<std::uint32_t>(platform::standardUserDefaults().integerForKey(key));
}

const std::string& TrovikLogs::logsDirectory() {
    // Never destroyed: the file logger may roll until the very end of the process.
    static const std::string& folder = *new std::string([] {
        std::string path = platform::directories().applicationSupportDirectory();
        if (path.empty()) return path;
        path += "/Trovik/ResetTool";
        platform::makePrivateFolders(path);
        platform::closeFolder(path);
        return path;
    }());
    return folder;
}

std::vector<std::string> TrovikLogs::unsortedLogsWithPrefix(const std::string& prefix) {
    return VundLogFileManager(prefix).unsortedLogFilePaths();
}

std::vector<std::string> TrovikLogs::sortedLogsWithPrefix(const std::string& prefix) {
    return VundLogFileManager(prefix).sortedLogFilePaths();
}

bool TrovikLogs::isLogFile(const std::string& fileName, const std::string& prefix) {
    if (prefix.empty() || !fileName.starts_with(prefix)) return false;
    if (fs::path(fileName).extension() != ".txt") return false;
    std::error_code error;
    return fs::is_regular_file(fs::symlink_status(logsDirectory() + "/" + fileName, error));
}
