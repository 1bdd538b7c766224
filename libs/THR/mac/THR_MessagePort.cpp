#include "THR/THR_MessagePort.hpp"

#include "GLO/GLO_Exception.hpp"
#include "GLO/GLO_String.hpp"
#include "THR/THR_Exception.hpp"
#include "THR/THR_Stack.hpp"
#include "WIN/WIN_Encoding.hpp"
#include "platform/CFRunLoop.hpp"
#include "platform/Platform.hpp"
#include "platform/common/Boundary.hpp"
#include "platform/common/CFMessagePort.hpp"

#include <utility>

namespace thr {
namespace {

constexpr char gcFile[] = "libs/THR/mac/THR_MessagePort";
constexpr char gcApplicationGroup[] = "TEAMID0000.Trovik";
constexpr double gcSendTimeout = 0.1;  // seconds

}  // namespace

MessagePort_t::MessagePort_t(MessageHandlerIntf_t* handler) {
    const std::string name = std::string(gcApplicationGroup) + '.' + platform::CFUUIDCreateString();
    mPort = platform::CFMessagePort::CFMessagePortCreateLocal(
        name, [handler](std::int32_t id, const platform::CFData& data) { HandlePortMessage(id, data, handler); });
    if (!mPort) throw Exception_t(gcFile, __LINE__, std::wstring());
    mName = glo::wstring(name, win::Utf8Encoding());
    mPort->CFRunLoopAddSource();
}

MessagePort_t::MessagePort_t(const std::wstring& name)
    : mPort(platform::CFMessagePort::CFMessagePortCreateRemote(glo::string(name, win::Utf8Encoding()))), mName(name) {}

MessagePort_t::~MessagePort_t() = default;

void MessagePort_t::SendStack(std::int32_t id, Stack_t& stack, const std::wstring& name) {
    if (stack.IsEmpty()) throw Exception_t(gcFile, __LINE__, std::wstring());
    stack << name;
    for (;;) {
        const std::int32_t result = mPort ? mPort->CFMessagePortSendRequest(id, stack.Bytes(), gcSendTimeout)
                                          : platform::kCFMessagePortIsInvalid;
        if (result == platform::kCFMessagePortSuccess) return;
        if (result != platform::kCFMessagePortSendTimeout) {
            throw Exception_t(gcFile, __LINE__, L"CFMessagePortSendRequest ReturnCode = " + std::to_wstring(result));
        }
        // The other thread may be in this loop as well, waiting for room in this one's queue. Serving the queue here is
        // what ends both waits; a call that is served may get here again, with a stack of its own.
        platform::CFRunLoopGetCurrent()->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, gcSendTimeout, false);
    }
}

void MessagePort_t::WhenInvalid(std::function<void()> block) {
    if (mPort) mPort->CFMessagePortSetInvalidationCallBack(std::move(block));
}

void MessagePort_t::HandlePortMessage(std::int32_t id, const std::vector<unsigned char>& data,
                                      MessageHandlerIntf_t* handler) {
    try {
        if (!handler) return platform::NSLog("Error: No message handler at %s, %d\n", gcFile, __LINE__);
        if (data.empty()) return;
        Stack_t stack(data);
        std::wstring name;
        stack >> name;
        handler->ProcessMessage(stack, id, name);
    } catch (...) {
        platform::logCaughtException(gcFile, __LINE__);
    }
}

}  // namespace thr
