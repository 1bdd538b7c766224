#pragma once

#include "platform/common/FileDescriptor.hpp"
#include "simulator/umock/UmockUsb.hpp"

#include <string>

namespace simulator {

/// Ends the process: the emulated bus itself does not work, and a test on it would say nothing.
[[noreturn]] void fail(const std::string& what);

/// The text that printf would print, 511 characters at the most.
[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...);

/// What lies behind one attach's node. Ready means: poll finds it writable. Not ready at first. The bus's lock guards
/// it.
class NodeBacking {
  public:
    explicit NodeBacking(UmockUsb::Node node);

    const std::string& target() const { return mTarget; }  ///< the path that the node is to link to

    void setReady(bool ready);
    void hangUp() { mMaster.reset(); }  ///< the device has gone; a queue can't say so

    /// Has a failed lseek on a pipe or a terminal count as a success, for the whole process.
    static void forgiveSeeks(bool forgive);

  private:
    platform::FileDescriptor mQueue, mMaster, mSlave;
    std::string mTarget;
    bool mReady = true;
};

}  // namespace simulator
