#include "app/TrovikMode/DeviceLock.hpp"

#include "platform/Platform.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

std::string DeviceLock::fileNameOf(std::string_view key) {
    std::string name(key);
    std::ranges::replace_if(
        name, [](unsigned char c) { return !std::isalnum(c) && c != '-' && c != '.'; }, '_');
    return name;
}

std::optional<DeviceLock> DeviceLock::take(std::string_view key) {
    const std::string folder = platform::lockFolder();
    if (folder.empty()) return DeviceLock(platform::FileDescriptor());
    const std::string path = folder + "/trovik-reset-" + fileNameOf(key) + ".lock";
    // First without O_CREAT: in a folder that everybody may write to, the kernel refuses to "create" another user's
    // file, and for a lock a descriptor to read from is enough.
    const auto open = [&](int flags) {
        return platform::uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0644); });
    };
    int descriptor = open(O_RDONLY);
    if (descriptor < 0 && errno == ENOENT) descriptor = open(O_RDWR | O_CREAT);
    platform::FileDescriptor file(descriptor);
    if (descriptor < 0) return DeviceLock(std::move(file));
    if (descriptor >= 0 && ::flock(descriptor, LOCK_EX | LOCK_NB) < 0 && errno == EWOULDBLOCK) return std::nullopt;
    return DeviceLock(std::move(file));
}

std::string DeviceLock::usualFolder() {
    if (::access("/run/lock", W_OK | X_OK) == 0) return "/run/lock";
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    return runtime && ::access(runtime, W_OK | X_OK) == 0 ? runtime : std::string();
}
