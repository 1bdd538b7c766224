#pragma once

#include "platform/NSExceptionHandler.hpp"

#include <cstdint>
#include <exception>
#include <mutex>
#include <string>
#include <vector>

namespace platform {

/// Reports what nobody caught from the process's terminate handler, where the stack of the raise still stands, and then
/// lets the process end as it would have without it. One at a time; the composition root makes it first and destroys it
/// last. Any thread.
class TerminateExceptionHandler final : public NSExceptionHandler {
  public:
    TerminateExceptionHandler();
    ~TerminateExceptionHandler() override;
    TerminateExceptionHandler(const TerminateExceptionHandler&) = delete;
    TerminateExceptionHandler& operator=(const TerminateExceptionHandler&) = delete;

    void setDelegate(NSExceptionHandlerDelegate* delegate) override;
    /// The delegate is asked only while the mask is not 0.
    void setExceptionHandlingMask(std::uint32_t mask) override;
    std::vector<std::string> callStackSymbols() override;

  private:
    [[noreturn]] static void terminate();
    void report();

    const std::terminate_handler mPrevious;
    std::mutex mMutex;
    NSExceptionHandlerDelegate* mDelegate = nullptr;  // mMutex
    std::uint32_t mMask = 0;                          // mMutex
};

}  // namespace platform
