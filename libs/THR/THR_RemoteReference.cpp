#include "THR/THR_RemoteReference.hpp"

#include "THR/THR_Exception.hpp"
#include "THR/THR_LocalPort.hpp"
#include "THR/THR_Thread.hpp"

#include <utility>

namespace thr {
namespace {

constexpr char gcFile[] = "libs/THR/THR_RemoteReference";

ObjectId_t PopId(Stack_t& stack) {
    ObjectId_t id;
    stack >> id;
    return id;
}

std::wstring PopName(Stack_t& stack) {
    std::wstring name;
    stack >> name;
    return name;
}

/// Receives the one reply of a synchronous call.
struct Reply_t : MessageHandlerIntf_t {
    std::int32_t mId = 0;  ///< 0 until it has come
    Stack_t mStack;

    void ProcessMessage(Stack_t& stack, std::int32_t id, const std::wstring&) override {
        PopId(stack);
        mStack = std::move(stack);
        mId = id;
    }
};

}  // namespace

RemoteReference_t::RemoteReference_t(Stack_t& stack) : mId(PopId(stack)), mPort(PopName(stack)) {}

void RemoteReference_t::CallAsync(Method_t method, Stack_t arguments) {
    arguments << method << mId;
    mPort.SendStack(gcAsyncCall, arguments, LocalPort_t::GetLocalPort().Name());
}

Stack_t RemoteReference_t::CallSync(Method_t method, Stack_t arguments) {
    // A port for this one reply: a call that is served meanwhile may make synchronous calls of its own, and each has to
    // find its own answer.
    Reply_t reply;
    const MessagePort_t replyPort(&reply);
    MessagePort_t target(mPort.Name());
    bool isGone = false;
    // Asked for before the call leaves, so that an end of the other thread right behind it is told as well. What that
    // thread sent before its end comes first: a call that was answered never looks like one whose thread has gone.
    target.WhenInvalid([&isGone] { isGone = true; });

    arguments << method << mId;
    target.SendStack(gcSyncCall, arguments, replyPort.Name());
    while (reply.mId == 0 && !isGone) ProcessMessageWithInfiniteWait();

    if (reply.mId == gcSyncReply) return std::move(reply.mStack);
    if (reply.mId != gcSyncFailure) throw Exception_t(gcFile, __LINE__, L"The called thread has ended.");
    std::string file;
    unsigned short line = 0;
    std::wstring message;
    reply.mStack >> message >> line >> file;
    throw Exception_t(file.c_str(), line, message);
}

}  // namespace thr
