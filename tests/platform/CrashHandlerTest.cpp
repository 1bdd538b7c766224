#include "platform/linux/CrashHandler.hpp"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/support/TemporaryFolder.hpp"

extern "C" const char* __crashreporter_info__;

namespace {

void Trap() {
    __builtin_trap();
}
void Abort() {
    std::abort();
}
void DivideByZero() {
    ::raise(SIGFPE);
}
void MisalignedBus() {
    ::raise(SIGBUS);
}
void WriteToUnmappedPage() {
    auto* page = static_cast<volatile char*>(::mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    *page = 1;
}
void TrapOnAnotherThread() {
    std::thread(Trap).join();
}

struct Crash {
    const char* name;
    void (*crash)();
    int signal;
    const char* line;
};

class CrashHandler : public testing::TestWithParam<Crash> {
  protected:
    const support::TemporaryFolder mFolder;
};

}  // namespace

TEST_P(CrashHandler, ReportsToStandardErrorAndFileAndDiesOfTheSignal) {
    EXPECT_EXIT(
        {
            __crashreporter_info__ = "File: somewhere Line: 7";
            platform::InstallCrashHandler(mFolder / "ResetTool", "Reset Tool 1.2.3");
            GetParam().crash();
        },
        testing::KilledBySignal(GetParam().signal), "Reset Tool 1.2.3");

    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(mFolder.path())) {
        ++files;
        EXPECT_EQ(entry.path().filename().string().rfind("ResetTool-", 0), 0U);
        EXPECT_EQ(entry.path().extension(), ".crash");
        EXPECT_EQ(entry.status().permissions(),
                  std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
        const std::string text = support::ReadFile(entry.path());
        const std::string head =
            std::string("Reset Tool 1.2.3\n") + GetParam().line + "\nBlack box:\nFile: somewhere Line: 7\nStack:\n";
        EXPECT_EQ(text.substr(0, head.size()), head);
        EXPECT_NE(text.find('\n', head.size()), std::string::npos) << "no frame in the stack";
    }
    EXPECT_EQ(files, 1U);
}

INSTANTIATE_TEST_SUITE_P(Signals, CrashHandler,
                         testing::Values(Crash{"Trap", Trap, SIGILL, "Signal 4 (SIGILL)"},
                                         Crash{"TrapOnAnotherThread", TrapOnAnotherThread, SIGILL, "Signal 4 (SIGILL)"},
                                         Crash{"Abort", Abort, SIGABRT, "Signal 6 (SIGABRT)"},
                                         Crash{"Bus", MisalignedBus, SIGBUS, "Signal 7 (SIGBUS)"},
                                         Crash{"Arithmetic", DivideByZero, SIGFPE, "Signal 8 (SIGFPE)"},
                                         Crash{"Segment", WriteToUnmappedPage, SIGSEGV, "Signal 11 (SIGSEGV)"}),
                         [](const auto& crash) { return crash.param.name; });

TEST(CrashHandlerWithoutFile, StillReportsToStandardError) {
    EXPECT_EXIT(
        {
            platform::InstallCrashHandler("", std::string(2000, 'v'));
            Trap();
        },
        testing::KilledBySignal(SIGILL), "^v{500}\nSignal 4");
}
