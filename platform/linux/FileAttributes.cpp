#include "platform/FileAttributes.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>

namespace platform {
namespace {

class LinuxFileAttributes final : public FileAttributes {
  public:
    int setxattr(const std::string& path, const std::string& name, const std::string& value) override {
        return ::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) == 0 ? 0 : errno;
    }

    int getxattr(const std::string& path, const std::string& name, std::string& value) override {
        char buffer[256];  // our own values are a few characters; a longer one is none of ours
        const ssize_t length = ::getxattr(path.c_str(), name.c_str(), buffer, sizeof buffer);
        if (length < 0) return errno;
        value.assign(buffer, static_cast<std::size_t>(length));
        return 0;
    }

    int removexattr(const std::string& path, const std::string& name) override {
        return ::removexattr(path.c_str(), name.c_str()) == 0 ? 0 : errno;
    }

    std::optional<std::chrono::system_clock::time_point> birthTime(const std::string& path) override {
        struct statx status {};
        if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &status) != 0) return std::nullopt;
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
