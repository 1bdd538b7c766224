#include "platform/linux/process/TerminateExceptionHandler.hpp"

#include "platform/common/CrashReporter.hpp"

#include <atomic>
#include <cstdlib>
#include <cxxabi.h>
#include <thread>
#include <typeinfo>
#include <unistd.h>

namespace platform {
namespace {

constexpr std::size_t kMostFrames = 64;
constexpr unsigned kPatience = 5;  ///< seconds, with the report of another thread

std::atomic<TerminateExceptionHandler*> gInstalled = nullptr;  // a terminate handler has no argument

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
    return platform::callStackSymbols(kMostFrames);
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
