#include "platform/linux/process/TerminateExceptionHandler.hpp"

#include <atomic>
#include <cstdlib>
#include <cxxabi.h>
#include <execinfo.h>
#include <memory>
#include <thread>
#include <typeinfo>
#include <unistd.h>

namespace platform {
namespace {

constexpr int kMaxFrames = 64;
constexpr unsigned kPatience = 5;  ///< seconds, with the report of another thread

std::atomic<TerminateExceptionHandler*> gInstalled = nullptr;  // a terminate handler has no argument

std::string demangled(const std::string& name) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status),
                                                           &std::free);
    return status == 0 && text ? text.get() : name;
}

/// "module(_Zmangled+0x12) [0x34]" with the function's name as people write it.
std::string readable(const std::string& symbol) {
    const std::size_t open = symbol.find('(');
    const std::size_t plus = symbol.find('+', open == std::string::npos ? 0 : open);
    if (open == std::string::npos || plus == std::string::npos || plus == open + 1) return symbol;
    return symbol.substr(0, open + 1) + demangled(symbol.substr(open + 1, plus - open - 1)) + symbol.substr(plus);
}

}  // namespace

TerminateExceptionHandler::TerminateExceptionHandler() : mPrevious(std::get_terminate()) {
    gInstalled = this;
    std::set_terminate(&terminate);
}

TerminateExceptionHandler::~TerminateExceptionHandler() {
    std::set_terminate(mPrevious);
    gInstalled = nullptr;
}

void TerminateExceptionHandler::setDelegate(NSExceptionHandlerDelegate* delegate) {
    const std::lock_guard lock(mMutex);
    mDelegate = delegate;
}

void TerminateExceptionHandler::setExceptionHandlingMask(std::uint32_t mask) {
    const std::lock_guard lock(mMutex);
    mMask = mask;
}

std::vector<std::string> TerminateExceptionHandler::callStackSymbols() {
    void* frames[kMaxFrames];
    const int count = ::backtrace(frames, kMaxFrames);
    const std::unique_ptr<char*, decltype(&std::free)> symbols(::backtrace_symbols(frames, count), &std::free);
    std::vector<std::string> lines;
    for (int i = 0; symbols && i < count; ++i) lines.push_back(readable(symbols.get()[i]));
    return lines;
}

void TerminateExceptionHandler::terminate() {
    // Several threads may get here, and so may the delegate: only the first is reported.
    static std::atomic<std::thread::id> reporter;
    TerminateExceptionHandler* const handler = gInstalled;
    const std::thread::id self = std::this_thread::get_id();
    std::thread::id first;
    if (handler && reporter.compare_exchange_strong(first, self)) {
        try {
            handler->report();
        } catch (...) {
            // The report has failed; the process ends all the same.
        }
        handler->mPrevious();
    } else if (handler && first != self) {
        // The reporter ends the process, and must not be cut short; unless it waits for something that this thread
        // holds.
        for (unsigned left = kPatience; left > 0;) left = ::sleep(left);
    }
    std::abort();
}

void TerminateExceptionHandler::report() {
    NSExceptionHandlerDelegate* delegate = nullptr;
    std::uint32_t mask = 0;
    {
        const std::lock_guard lock(mMutex);
        delegate = mDelegate;
        mask = mMask;
    }
    const std::type_info* const type = abi::__cxa_current_exception_type();
    if (!delegate || mask == 0 || !type) return;  // without a type it was std::terminate() itself that somebody called

    NSException exception;
    exception.name = demangled(type->name());
    exception.callStackSymbols = callStackSymbols();
    try {
        std::rethrow_exception(std::current_exception());
    } catch (const std::exception& caught) {
        exception.reason = caught.what();
    } catch (...) {
        // Says nothing of itself.
    }
    if (delegate->exceptionHandlerShouldLogException(exception, mask)) {
        // The answer changes nothing: there is no caller left that could go on.
        delegate->exceptionHandlerShouldHandleException(exception, mask);
    }
}

}  // namespace platform
