#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace platform {

/// Owns one file descriptor. Move-only.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : mDescriptor(descriptor) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : mDescriptor(std::exchange(other.mDescriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            reset();
            mDescriptor = std::exchange(other.mDescriptor, -1);
        }
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return mDescriptor; }
    int release() noexcept { return std::exchange(mDescriptor, -1); }  ///< gives it up, open, to another owner
    explicit operator bool() const { return mDescriptor >= 0; }
    void reset() noexcept {
        if (mDescriptor >= 0) ::close(std::exchange(mDescriptor, -1));
    }

  private:
    int mDescriptor = -1;
};

/// Makes a system call, again where a signal interrupted it. Not for close(): the descriptor is gone all the same.
template <typename Call>
auto uninterrupted(const Call& call) {
    decltype(call()) result;
    do {
        result = call();
    } while (result == -1 && errno == EINTR);
    return result;
}

}  // namespace platform
