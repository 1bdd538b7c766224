#pragma once

#include "THR/THR_Exception.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace platform {
class CFMessagePort;
}

namespace thr {

class Stack_t;

/// What a message asks for. LocalPort_t accepts the calls only; the replies go to a port that the caller makes for the
/// one call.
/// @{
inline constexpr std::int32_t gcAsyncCall = 100;
inline constexpr std::int32_t gcSyncCall = 200;
inline constexpr std::int32_t gcSyncReply = 300;    ///< the call returned: its result
inline constexpr std::int32_t gcSyncFailure = 400;  ///< the call threw: file, line and message
/// @}

/// Receives messages.
class MessageHandlerIntf_t {
  public:
    virtual ~MessageHandlerIntf_t() = default;

    /// Takes one message.
    /// @param stack  the sender's values, without the name that came on top
    /// @param name   what the sender passed to SendStack()
    /// What it throws is logged and dropped. Callback on the thread that made the port.
    virtual void ProcessMessage(Stack_t& stack, std::int32_t id, const std::wstring& name) = 0;
};

/// One end of a named message port: the receiving end, which belongs to the thread that made it and is served by that
/// thread's run loop, or a connection to one.
class MessagePort_t {
  public:
    /// Makes a receiving port with a name of its own.
    /// @param handler  borrowed for the life of the port; without one every message is logged and dropped
    /// @throws thr::Exception_t  it could not be made
    explicit MessagePort_t(MessageHandlerIntf_t* handler);

    /// Connects to the receiving port of that name. One that doesn't exist makes every send fail.
    explicit MessagePort_t(const std::wstring& name);
    ~MessagePort_t();
    MessagePort_t(const MessagePort_t&) = delete;
    MessagePort_t& operator=(const MessagePort_t&) = delete;

    const std::wstring& Name() const { return mName; }  ///< the receiving port's

    /// Pushes the name and sends the stack. While the other side's queue is full, tries again every 0.1 s, without
    /// limit, and serves this thread's own run loop in between: two threads that call each other get on.
    /// @throws thr::Exception_t  the stack is empty, or the other side is gone; nothing was sent
    /// Blocks. Any thread.
    void SendStack(std::int32_t id, Stack_t& stack, const std::wstring& name);

    /// Has the block run on this thread's run loop once the other side is gone, after every message that the other
    /// side's thread sent to this one. Owner thread only.
    void WhenInvalid(std::function<void()> block);

  private:
    static void HandlePortMessage(std::int32_t id, const std::vector<unsigned char>& data,
                                  MessageHandlerIntf_t* handler);

    std::unique_ptr<platform::CFMessagePort> mPort;  ///< null when there is nothing to connect to
    std::wstring mName;
};

}  // namespace thr
