#include "platform/linux/TerminateExceptionHandler.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <thread>

namespace platform {
namespace {

struct OddException {};

/// Prints what it is told of; the process ends, so that standard error is all that is left.
class Printing final : public NSExceptionHandlerDelegate {
  public:
    bool exceptionHandlerShouldLogException(const NSException& exception, std::uint32_t mask) override {
        std::fprintf(stderr, "name %s reason '%s' mask %u frames %s\n", exception.name.c_str(),
                     exception.reason.c_str(), mask, exception.callStackSymbols.size() > 1 ? "some" : "none");
        if (throws) throw 1;
        return true;
    }
    bool exceptionHandlerShouldHandleException(const NSException&, std::uint32_t) override {
        std::fputs("asked twice\n", stderr);
        return true;
    }
    bool throws = false;
};

class TerminateExceptionHandlerDeathTest : public ::testing::Test {
  protected:
    TerminateExceptionHandlerDeathTest() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        handler.setDelegate(&delegate);
        handler.setExceptionHandlingMask(255);
    }

    /// How the process ends when nobody catches: gtest would on the test's own thread.
    template <typename E, typename Matcher>
    static void ExpectReport(const E& exception, const Matcher& report) {
        EXPECT_EXIT(std::thread([&] { throw exception; }).join(), ::testing::KilledBySignal(SIGABRT), report);
    }

    TerminateExceptionHandler handler;
    Printing delegate;
};

TEST_F(TerminateExceptionHandlerDeathTest, UncaughtExceptionIsReportedBeforeTheProcessAborts) {
    ExpectReport(std::out_of_range("too far"),
                 "name std::out_of_range reason 'too far' mask 255 frames some\nasked twice\n");
    ExpectReport(OddException(), "OddException reason '' mask 255");
    delegate.throws = true;
    ExpectReport(std::runtime_error("x"), "name std::runtime_error");
}

TEST_F(TerminateExceptionHandlerDeathTest, WithoutMaskOrDelegateNobodyIsAsked) {
    handler.setExceptionHandlingMask(0);
    ExpectReport(std::runtime_error("x"), ::testing::Not(::testing::HasSubstr("name std")));
    handler.setExceptionHandlingMask(255);
    handler.setDelegate(nullptr);
    ExpectReport(std::runtime_error("x"), ::testing::Not(::testing::HasSubstr("name std")));
}

}  // namespace
}  // namespace platform
