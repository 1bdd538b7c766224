#include "platform/linux/usb/UsbNode.hpp"

#include "platform/linux/usb/UsbErrors.hpp"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>

namespace platform {
namespace {

using std::chrono::ceil;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

/// Waits until something about the folder's files has changed; false when the time is up.
bool waitForChange(int inotify, steady_clock::time_point deadline) {
    for (;;) {
        const auto left = ceil<milliseconds>(deadline - steady_clock::now());
        if (left.count() <= 0) return false;
        pollfd waited{inotify, POLLIN, 0};
        const int ready = ::poll(&waited, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return false;
        // What has changed does not matter: the open tells.
        alignas(inotify_event) char events[4096];
        return ::read(inotify, events, sizeof events) > 0;
    }
}

/// In place of waitForChange() where the user's share of inotify instances is used up; false when the time is up.
bool pause(steady_clock::time_point deadline) {
    constexpr milliseconds kPause(50);
    const auto left = ceil<milliseconds>(deadline - steady_clock::now());
    if (left.count() <= 0) return false;
    ::poll(nullptr, 0, static_cast<int>(std::min(left, kPause).count()));
    return true;
}

}  // namespace

// A node's modification time is when it appeared, or when a program last used it: setting permissions changes only the
// change time. A clock that was set back meanwhile gives the whole grace, never more.
nanoseconds permissionGraceLeft(const std::string& node) {
    struct stat status {};
    if (::lstat(node.c_str(), &status) < 0) return nanoseconds(0);
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const nanoseconds age =
        seconds(now.tv_sec - status.st_mtim.tv_sec) + nanoseconds(now.tv_nsec - status.st_mtim.tv_nsec);
    return std::clamp<nanoseconds>(kPermissionGrace - age, nanoseconds(0), kPermissionGrace);
}

int openReadWrite(const std::string& node) {
    return ::open(node.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY);
}

IOReturn openUsbNode(const std::string& node, FileDescriptor& descriptor, const NodeOpener& opener) {
    const auto attempt = [&] {
        descriptor = FileDescriptor(opener(node));
        return descriptor ? 0 : errno;
    };
    int error = attempt();
    if (error != EACCES) return IOReturnOfErrno(error);

    const auto deadline = steady_clock::now() + permissionGraceLeft(node);
    // The folder is watched: the node itself can't be while it may not be read. Watch first, then try again, so that no
    // change is missed in between.
    const FileDescriptor inotify(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    const std::string folder = std::filesystem::path(node).parent_path();
    const bool watching = inotify && ::inotify_add_watch(inotify.get(), folder.c_str(),
                                                         IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVED_TO) >= 0;
    do {
        error = attempt();
    } while (error == EACCES && (watching ? waitForChange(inotify.get(), deadline) : pause(deadline)));
    return IOReturnOfErrno(error);
}

}  // namespace platform
