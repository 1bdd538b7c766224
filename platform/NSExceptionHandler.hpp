#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// An exception that nobody caught.
struct NSException {
    std::string name;                           ///< its class
    std::string reason;                         ///< what it says of itself; empty when it says nothing
    std::vector<std::string> callStackSymbols;  ///< where it was raised; empty when not known
};

/// Asked about each uncaught exception, on the thread that raised it.
class NSExceptionHandlerDelegate {
  public:
    virtual ~NSExceptionHandlerDelegate() = default;

    /// Asked first; the place to log the exception.
    /// @return whether to ask the other question as well
    virtual bool exceptionHandlerShouldLogException(const NSException& exception, std::uint32_t mask) = 0;

    /// Asked last. The answer changes nothing: no caller is left that could go on.
    virtual bool exceptionHandlerShouldHandleException(const NSException& exception, std::uint32_t mask) = 0;
};

/// The process's default exception handler: reports what nobody caught before the process ends. Any thread.
class NSExceptionHandler {
  public:
    virtual ~NSExceptionHandler() = default;
    virtual void setDelegate(NSExceptionHandlerDelegate* delegate) = 0;  ///< not owned; null takes it back
    virtual void setExceptionHandlingMask(std::uint32_t mask) = 0;       ///< handed to the delegate; 0: it is not asked
    /// The calling thread's call stack, one line a frame.
    virtual std::vector<std::string> callStackSymbols() = 0;
};

}  // namespace platform
