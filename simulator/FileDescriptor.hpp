#pragma once

#include <unistd.h>

#include <utility>

namespace simulator {

/// Owns one file descriptor.
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

    int get() const { return mDescriptor; }
    explicit operator bool() const { return mDescriptor >= 0; }
    void reset() {
        if (mDescriptor >= 0) ::close(std::exchange(mDescriptor, -1));
    }

  private:
    int mDescriptor = -1;
};

}  // namespace simulator
