#include "platform/FileAttributes.hpp"

#include <cerrno>
#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace platform {
namespace {

class LinuxFileAttributes final : public FileAttributes {
  public:
    int setxattr(const std::string& path, const std::string& name, const std::string& value) override {
        return ::lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) == 0 ? 0 : errno;
    }

    int fsetxattr(int descriptor, const std::string& name, const std::string& value) override {
        return ::fsetxattr(descriptor, name.c_str(), value.data(), value.size(), 0) == 0 ? 0 : errno;
    }

    int getxattr(const std::string& path, const std::string& name, std::string& value) override {
        value.resize(XATTR_SIZE_MAX);
        const ssize_t length = ::lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
        const int error = length < 0 ? errno : 0;
        value.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
        return error;
    }

    int removexattr(const std::string& path, const std::string& name) override {
        return ::lremovexattr(path.c_str(), name.c_str()) == 0 ? 0 : errno;
    }

    std::optional<std::chrono::system_clock::time_point> birthTime(const std::string& path) override {
        struct statx status {};
        if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &status) != 0) return std::nullopt;
        if (!(status.stx_mask & STATX_BTIME)) return std::nullopt;
        return std::chrono::system_clock::time_point(std::chrono::duration_cast<std::chrono::system_clock::duration>(
            std::chrono::seconds(status.stx_btime.tv_sec) + std::chrono::nanoseconds(status.stx_btime.tv_nsec)));
    }
};

}  // namespace

FileAttributes& systemFileAttributes() {
    // Never destroyed: log files are rolled until the very end of the process.
    static auto& attributes = *new LinuxFileAttributes;
    return attributes;
}

}  // namespace platform
