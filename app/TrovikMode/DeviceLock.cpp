#include "app/TrovikMode/DeviceLock.hpp"

#include "app/Support/ErrorCatalogue.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "platform/Platform.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

constexpr mode_t kMode = 0644;

}  // namespace

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
    // file, and for a lock a descriptor to read from is enough. Without waiting: anybody may have put a FIFO there.
    const auto open = [&](int flags) {
        constexpr int kAlways = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
        return platform::uninterrupted([&] { return ::open(path.c_str(), flags | kAlways, kMode); });
    };
    int descriptor = open(O_RDONLY);
    if (descriptor < 0 && errno == ENOENT) {
        descriptor = open(O_RDWR | O_CREAT);
        if (descriptor >= 0) ::fchmod(descriptor, kMode);  // whatever the umask is: other users have to open it
    }
    platform::FileDescriptor file(descriptor);
    struct stat status {};
    if (descriptor < 0 || ::fstat(descriptor, &status) < 0) return withoutLock(path, errno);
    if (!S_ISREG(status.st_mode)) return withoutLock(path, EINVAL);
    if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0) return DeviceLock(std::move(file));
    return errno == EWOULDBLOCK ? std::nullopt : std::optional(withoutLock(path, errno));
}

DeviceLock DeviceLock::withoutLock(const std::string& path, int error) {
    const std::string seen = path + ": " + std::generic_category().message(error);
    DDLogWarn("%s", ErrorCatalogue::logLine(Cause::NotLocked, seen).c_str());
    return DeviceLock(platform::FileDescriptor());
}

std::string DeviceLock::usualFolder() {
    if (::access("/run/lock", W_OK | X_OK) == 0) return "/run/lock";
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    return runtime && ::access(runtime, W_OK | X_OK) == 0 ? runtime : std::string();
}
