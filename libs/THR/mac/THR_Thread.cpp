#include "THR/THR_Thread.hpp"

#include "GLO/GLO_Exception.hpp"
#include "THR/THR_Exception.hpp"
#include "THR/THR_LocalPort.hpp"
#include "THR/THR_Stack.hpp"
#include "platform/CFRunLoop.hpp"
#include "platform/Platform.hpp"
#include "platform/common/Boundary.hpp"

#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace thr {
namespace {

constexpr char gcFile[] = "libs/THR/mac/THR_Thread";

using Entry_t = void (*)(Stack_t&);

/// The body of a new thread.
void Start(std::vector<unsigned char> data) noexcept {
    try {
        Stack_t stack(std::move(data));
        Entry_t entry = nullptr;
        stack >> entry;
        entry(stack);
    } catch (...) {
        platform::logCaughtException(gcFile, __LINE__);
    }
    LocalPort_t::ReleaseLocalPort();
}

void RunDefaultMode(double seconds, bool returnAfterSourceHandled) {
    platform::CFRunLoopGetCurrent()->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, seconds,
                                                        returnAfterSourceHandled);
}

}  // namespace

void StartThread(void (*entry)(Stack_t&), Stack_t& arguments) {
    arguments << entry;
    try {
        std::thread(Start, arguments.Bytes()).detach();
    } catch (const std::system_error&) {
        throw Exception_t(gcFile, __LINE__, std::wstring());
    }
}

void ProcessMessageWithNoWait() {
    RunDefaultMode(0, false);
}

void ProcessMessageWithInfiniteWait() {
    constexpr double gcEndless = 1e10;  // seconds; what the platform takes for "distant future"
    RunDefaultMode(gcEndless, true);
}

void ProcessMessageUntil(double absoluteTime) {
    const double seconds = absoluteTime - platform::CFAbsoluteTimeGetCurrent();
    if (seconds > 0) RunDefaultMode(seconds, false);
}

}  // namespace thr
