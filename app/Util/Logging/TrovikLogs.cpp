#include "app/Util/Logging/TrovikLogs.hpp"

#include "app/Util/Logging/DDLog.hpp"
#include "platform/Directories.hpp"
#include "platform/NSUserDefaults.hpp"
#include "platform/Platform.hpp"

#include <algorithm>
#include <filesystem>
#include <functional>
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
        std::error_code ignored;
        fs::create_directories(path, ignored);
        return path;
    }());
    return folder;
}

std::vector<std::string> TrovikLogs::unsortedLogsWithPrefix(const std::string& prefix) {
    std::vector<std::string> paths;
    std::error_code error;
    for (fs::directory_iterator entry(logsDirectory(), error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (isLogFile(name, prefix)) paths.push_back(logsDirectory() + "/" + name);
    }
    if (error) paths.clear();
    return paths;
}

std::vector<std::string> TrovikLogs::sortedLogsWithPrefix(const std::string& prefix) {
    std::vector<std::string> paths = unsortedLogsWithPrefix(prefix);
    std::sort(paths.begin(), paths.end(), std::greater<>());
    return paths;
}

bool TrovikLogs::isLogFile(const std::string& fileName, const std::string& prefix) {
    if (prefix.empty() || !fileName.starts_with(prefix)) return false;
    if (fs::path(fileName).extension() != ".txt") return false;
    std::error_code error;
    return fs::is_regular_file(fs::symlink_status(logsDirectory() + "/" + fileName, error));
}
