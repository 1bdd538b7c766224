#pragma once

#include "platform/common/FileDescriptor.hpp"

#include <chrono>

namespace simulator {

/// Runs a program behind umockdev's preload library, which finds the emulated bus through the environment.
class ProgramOnBus {
  public:
    /// @throws std::runtime_error  no process, or nothing to wait with, is to be had
    explicit ProgramOnBus(char** command);
    ProgramOnBus(const ProgramOnBus&) = delete;
    ProgramOnBus& operator=(const ProgramOnBus&) = delete;

    /// Has it end: asked first, and killed when it has not ended ten seconds later. Any thread.
    void stop() noexcept;

    /// Waits until it has ended or is to end, or until that moment.
    /// @return false when the moment came first
    bool endsBefore(std::chrono::steady_clock::time_point moment) const;

    /// Waits until it has ended. Once.
    /// @return its exit status as a shell would tell it
    int wait();

  private:
    platform::FileDescriptor mStop;     // readable once it is to end
    platform::FileDescriptor mProcess;  // readable once it has ended
    int mId = -1;
};

}  // namespace simulator
