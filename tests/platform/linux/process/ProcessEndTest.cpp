#include "platform/linux/process/CrashHandler.hpp"
#include "platform/linux/process/TerminateExceptionHandler.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <sys/mman.h>
#include <thread>
#include <tuple>
#include <vector>

namespace fs = std::filesystem;

extern "C" const char* __crashreporter_info__;

namespace platform {
namespace {

TEST(CrashHandler, ReportsToStandardErrorAndFileAndDiesOfTheSignal) {
    const std::tuple<void (*)(), int, const char*> cases[] = {
        {[] { __builtin_trap(); }, SIGILL, "Signal 4 (SIGILL)"},
        {[] { std::thread([] { __builtin_trap(); }).join(); }, SIGILL, "Signal 4 (SIGILL)"},
        {[] { std::abort(); }, SIGABRT, "Signal 6 (SIGABRT)"},
        {[] { ::raise(SIGBUS); }, SIGBUS, "Signal 7 (SIGBUS)"},
        {[] { ::raise(SIGFPE); }, SIGFPE, "Signal 8 (SIGFPE)"},
        {[] { *static_cast<volatile char*>(::mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) = 1; },
         SIGSEGV, "Signal 11 (SIGSEGV)"}};
    for (const auto& [crash, signal, line] : cases) {
        SCOPED_TRACE(line);
        const support::TemporaryFolder folder;
        EXPECT_EXIT(
            {
                __crashreporter_info__ = "File: somewhere Line: 7";
                installCrashHandler(folder / "ResetTool", "Reset Tool 1.2.3");
                crash();
            },
            testing::KilledBySignal(signal), "Reset Tool 1.2.3");

        const std::vector<fs::directory_entry> files(fs::directory_iterator(folder.path()), fs::directory_iterator());
        ASSERT_EQ(files.size(), 1U);
        EXPECT_THAT(files[0].path().filename(), testing::MatchesRegex("ResetTool-[0-9]+-[0-9]+\\.crash"));
        EXPECT_EQ(files[0].status().permissions(), fs::perms(0600));
        const std::string text = support::ReadFile(files[0].path());
        const std::string head =
            std::string("Reset Tool 1.2.3\n") + line + "\nBlack box:\nFile: somewhere Line: 7\nStack:\n";
        EXPECT_EQ(text.substr(0, head.size()), head);
        EXPECT_NE(text.find('\n', head.size()), std::string::npos) << "no frame in the stack";
    }
}

TEST(CrashHandler, WithoutAFileStillReportsToStandardError) {
    EXPECT_EXIT(
        {
            installCrashHandler("", std::string(2000, 'v'));
            __builtin_trap();
        },
        testing::KilledBySignal(SIGILL), "^v{500}\nSignal 4");
}

TEST(CrashHandler, KeepsTheNewestTenReportsOfItsName) {
    const support::TemporaryFolder folder;
    std::set<std::string> kept = {"Other-1-1.crash", "ResetTool-1-1.txt", "ResetTool-.crash", "ResetTool_1.crash"};
    for (int i = 998; i < 1010; ++i) kept.insert("ResetTool-" + std::to_string(i) + "-7.crash");
    for (const auto& name : kept) support::WriteFile(folder / name, "");
    for (const char* old : {"ResetTool-998-7.crash", "ResetTool-999-7.crash"}) kept.erase(old);
    EXPECT_EXIT((installCrashHandler(folder / "ResetTool", ""), _exit(0)), testing::ExitedWithCode(0), "");
    std::set<std::string> files;
    for (const auto& file : fs::directory_iterator(folder.path())) files.insert(file.path().filename());
    EXPECT_EQ(files, kept);
}

struct OddException {};

/// Prints what it is told of; the process ends, so that standard error is all that is left.
struct Printing final : NSExceptionHandlerDelegate {
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

TEST(TerminateExceptionHandlerDeathTest, UncaughtExceptionIsReportedBeforeTheProcessAbortsIfAnybodyAsked) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TerminateExceptionHandler handler;
    Printing delegate;
    handler.setDelegate(&delegate);
    handler.setExceptionHandlingMask(255);
    // How the process ends when nobody catches: gtest would on the test's own thread.
    const auto expectReport = [](const auto& exception, const auto& report) {
        EXPECT_EXIT(std::thread([&] { throw exception; }).join(), testing::KilledBySignal(SIGABRT), report);
    };
    expectReport(std::out_of_range("too far"),
                 "name std::out_of_range reason 'too far' mask 255 frames some\nasked twice\n");
    expectReport(OddException(), "OddException reason '' mask 255");
    delegate.throws = true;
    expectReport(std::runtime_error("x"), "name std::runtime_error");
    handler.setExceptionHandlingMask(0);
    expectReport(std::runtime_error("x"), testing::Not(testing::HasSubstr("name std")));
    handler.setExceptionHandlingMask(255);
    handler.setDelegate(nullptr);
    expectReport(std::runtime_error("x"), testing::Not(testing::HasSubstr("name std")));
}

}  // namespace
}  // namespace platform
