#include "platform/linux/files/LinuxFiles.hpp"

#include "platform/linux/loop/LinuxDispatchSources.hpp"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <linux/limits.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
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

}  // namespace

std::string XdgDirectories::userDirectory(const char* variable, const char* belowHome) {
    // The base-directory rules have a relative path ignored.
    if (const char* path = std::getenv(variable); path && *path == '/') {
        std::string folder = path;
        while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
        return folder;
    }
    const std::string home = homeDirectory();
    return home.empty() ? std::string() : home + belowHome;
}

int LinuxFileAttributes::setxattr(const std::string& path, const std::string& name, const std::string& value) {
    return ::lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) == 0 ? 0 : errno;
}

int LinuxFileAttributes::fsetxattr(int descriptor, const std::string& name, const std::string& value) {
    return ::fsetxattr(descriptor, name.c_str(), value.data(), value.size(), 0) == 0 ? 0 : errno;
}

int LinuxFileAttributes::getxattr(const std::string& path, const std::string& name, std::string& value) {
    value.resize(XATTR_SIZE_MAX);
    const ssize_t length = ::lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    const int error = length < 0 ? errno : 0;
    value.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    return error;
}

int LinuxFileAttributes::removexattr(const std::string& path, const std::string& name) {
    return ::lremovexattr(path.c_str(), name.c_str()) == 0 ? 0 : errno;
}

std::optional<std::chrono::system_clock::time_point> LinuxFileAttributes::birthTime(const std::string& path) {
    struct statx status {};
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &status) != 0) return std::nullopt;
    if (!(status.stx_mask & STATX_BTIME)) return std::nullopt;
    return std::chrono::system_clock::time_point(std::chrono::duration_cast<std::chrono::system_clock::duration>(
        std::chrono::seconds(status.stx_btime.tv_sec) + std::chrono::nanoseconds(status.stx_btime.tv_nsec)));
}

Platform withLinuxFiles(Platform platform) {
    static auto& attributes = *new LinuxFileAttributes;
    static auto& directories = *new XdgDirectories;
    static auto& sources = *new LinuxDispatchSources;
    platform.fileAttributes = &attributes;
    platform.directories = &directories;
    platform.dispatchSources = &sources;
    return platform;
}

}  // namespace platform
