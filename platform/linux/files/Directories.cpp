#include "platform/Directories.hpp"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace platform {
namespace {

std::string homeDirectory() {
    // A relative path would mean another folder wherever the program is started from.
    if (const char* home = std::getenv("HOME"); home && *home == '/') return home;
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(4096);
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found) return {};
    return found->pw_dir && *found->pw_dir == '/' ? found->pw_dir : "";
}

std::string userDirectory(const char* variable, const char* belowHome) {
    // The base-directory rules have a relative path ignored.
    if (const char* path = std::getenv(variable); path && *path == '/') {
        std::string folder = path;
        while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
        return folder;
    }
    const std::string home = homeDirectory();
    return home.empty() ? std::string() : home + belowHome;
}

}  // namespace

std::string applicationSupportDirectory() {
    return userDirectory("XDG_DATA_HOME", "/.local/share");
}
std::string cachesDirectory() {
    return userDirectory("XDG_CACHE_HOME", "/.cache");
}

std::string preferencesDirectory() {
    return userDirectory("XDG_CONFIG_HOME", "/.config");
}

}  // namespace platform
