#pragma once

#include "platform/Clock.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace platform {

/// Results of a send; the platform's numbers.
inline constexpr std::int32_t kCFMessagePortSuccess = 0;
inline constexpr std::int32_t kCFMessagePortSendTimeout = -1;
inline constexpr std::int32_t kCFMessagePortIsInvalid = -3;

/// A message's bytes.
using CFData = std::vector<unsigned char>;

/// How many messages wait at a port before a sender has to wait, as with the kernel's ports.
inline constexpr std::size_t kMessagePortQueueLimit = 5;

/// A named port for messages between the threads of this process: the same class on every system, built on the run
/// loops. Held by the thread that receives (local) or by one that sends (remote). Messages arrive in the order of the
/// sends, in the default mode of the run loop that the port was added to, one for each block of the loop.
class CFMessagePort {
  public:
    using Callback = std::function<void(std::int32_t msgid, const CFData& data)>;

    /// Makes a local port. Nothing is delivered before CFRunLoopAddSource.
    /// @return null when the name is taken
    /// Any thread.
    static std::unique_ptr<CFMessagePort> CFMessagePortCreateLocal(const std::string& name, Callback callback);

    /// Connects to the port of that name.
    /// @return null when there is none
    /// Any thread.
    static std::unique_ptr<CFMessagePort> CFMessagePortCreateRemote(const std::string& name);

    ~CFMessagePort();  ///< a local port is invalidated; on the thread that receives
    CFMessagePort(const CFMessagePort&) = delete;
    CFMessagePort& operator=(const CFMessagePort&) = delete;

    /// Has the messages of this local port delivered on the calling thread's run loop.
    void CFRunLoopAddSource();

    /// Closes this local port: what waits in it is dropped, blocked senders return, later sends fail. The callback is
    /// not called any more. Owner thread only.
    void CFMessagePortInvalidate();

    /// False once the local side is gone. Any thread.
    bool CFMessagePortIsValid() const;

    /// Has the block run on the calling thread's run loop when the local side goes, or soon if it has gone already. It
    /// comes after every message that the local side's thread sent to this thread before. One at a time; an empty block
    /// takes it back. The thread that called it first.
    void CFMessagePortSetInvalidationCallBack(std::function<void()> callback);

    /// Sends to the local side, whose queue takes kMessagePortQueueLimit messages. Never delivers inside this call.
    /// @param sendTimeout  seconds to wait for room in the queue; by real time
    /// @return success, send time-out (nothing was sent), or invalid
    /// Blocks. Any thread.
    std::int32_t CFMessagePortSendRequest(std::int32_t msgid, CFData data, CFTimeInterval sendTimeout);

  private:
    struct Channel;
    struct Names;

    CFMessagePort(std::shared_ptr<Channel> channel, bool isLocal);

    std::shared_ptr<Channel> mChannel;  // shared by both sides: either may go first
    const bool mIsLocal;
    std::shared_ptr<std::function<void()>> mInvalidationCallBack;
};

}  // namespace platform
