// What remains of the log when the process ends, in processes of their own.

#include "app/Util/Logging/DDFileLogger.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DDTTYLogger.hpp"
#include "app/Util/Logging/VundLogFileManager.hpp"
#include "app/Util/Logging/VundLogFormatter.hpp"
#include "app/Util/Logging/impl/DDLogCore.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "tests/app/Util/Logging/LoggingSupport.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <regex>
#include <semaphore>
#include <sstream>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace {

/// The launch order of the tool.
void setUpLogging(std::uint64_t maximumFileSize = DDFileLogger::kDefaultMaximumFileSize) {
    auto manager = std::make_shared<VundLogFileManager>("ResetTool");
    auto fileLogger = std::make_shared<DDFileLogger>(manager);
    fileLogger->setLogFormatter(std::make_shared<VundLogFormatter>());
    manager->setMaximumNumberOfLogFiles(7);
    fileLogger->setRollingFrequency(86400.0);
    fileLogger->setMaximumFileSize(maximumFileSize);
    DDLog::addLogger(DDTTYLogger::sharedInstance());
    DDLog::addLogger(fileLogger);
}

/// Each test's child is this program run anew, so its process-wide objects start afresh.
class LoggingProcess : public testing::Test {
  protected:
    LoggingProcess() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        // The child is told of its parent's folder by way of the environment.
        if (!std::getenv("LOGGING_TEST_FOLDER")) {
            mFolder.emplace();
            ::setenv("LOGGING_TEST_FOLDER", mFolder->path().c_str(), 1);
        }
        ::setenv("XDG_DATA_HOME", std::getenv("LOGGING_TEST_FOLDER"), 1);
    }
    ~LoggingProcess() override {
        if (mFolder) ::unsetenv("LOGGING_TEST_FOLDER");
    }

    /// The text of the log file, or of what else is in its folder too.
    static std::string log() {
        std::string text;
        const std::string data = std::getenv("LOGGING_TEST_FOLDER");
        for (const auto& entry : std::filesystem::directory_iterator(data + "/Trovik/ResetTool"))
            text += support::ReadFile(entry.path());
        return text;
    }

    const platform::PlatformScope mScope{platform::withLinuxFiles()};
    std::optional<support::TemporaryFolder> mFolder;
};

TEST_F(LoggingProcess, NormalExitWritesWhatWaitsAndLateLinesToo) {
    static std::binary_semaphore ending(0);
    struct End {
        ~End() { ending.release(); }
    };
    struct Late {
        ~Late() {
            const std::string text = log();
            DDLogError("behind %td lines", std::ranges::count(text, '\n'));
        }
    };
    EXPECT_EXIT(
        {
            static const Late late;
            setUpLogging();
            static const End end;
            DDLogCore::shared().loggingQueue().dispatch_async([] { ending.acquire(); });
            for (int i = 0; i < 200; ++i) DDLogInfo("waits");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "waits");
    EXPECT_THAT(log(), testing::ContainsRegex("waits\n[^\n]* E . behind 200 lines\n$"));
}

TEST_F(LoggingProcess, OutputThatTakesNothingDoesNotHoldUpTheEnd) {
    class Stuck final : public DDAbstractLogger {
        void logMessage(const DDLogMessage&) override {
            for (;;) ::pause();
        }
    };
    EXPECT_EXIT(
        {
            DDLog::addLogger(std::make_shared<Stuck>());
            DDLogInfo("stuck");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(LoggingProcess, KilledInTheMidstOfLoggingKeepsEveryLineThatWasAcknowledgedWhole) {
    constexpr int kThreads = 3;
    EXPECT_EXIT(
        {
            setUpLogging(0);  // a roll would start the day's file afresh
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t)
                threads.emplace_back([&, t] {
                    for (int i = 1;; ++i) {
                        for (int k = 0; k < 7; ++k) DDLogInfo("noise");
                        DDLogError("line %d of %d %s", i, t,
                                   std::string(static_cast<std::size_t>(i % 90), '.').c_str());
                        if (t == 0 && i == 400) ::raise(SIGKILL);
                    }
                });
            for (auto& thread : threads) thread.join();
        },
        testing::KilledBySignal(SIGKILL), "");

    std::array<int, kThreads> last{};
    const std::string text = log();
    ASSERT_TRUE(text.ends_with('\n'));
    const std::regex whole(
        R"(\d{4}-\d\d-\d\d \d\d\.\d\d\.\d\d \(GMT([+-]\d\d:\d\d)?\) \| \d+ \| (I \| noise|E \| line (\d+) of (\d) (\.*)))");
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, whole)) << line;
        if (!parts[3].matched) continue;
        const int number = std::stoi(parts[3]);
        ASSERT_EQ(parts[5].length(), number % 90);
        ASSERT_EQ(number, ++last.at(static_cast<std::size_t>(std::stoi(parts[4])))) << "a line is missing";
    }
    EXPECT_EQ(last[0], 400);
}

// The tool's own test starts it where not even the core gets a thread.
TEST_F(LoggingProcess, LoggerThatGetsNoThreadIsNamedAndWorksOnTheCores) {
    EXPECT_EXIT(
        {
            DDLog::addLogger(DDTTYLogger::sharedInstance());
            DDLog::flushLog();
            ::chmod(std::getenv("LOGGING_TEST_FOLDER"), 0777);
            if (::geteuid() == 0 && ::setresuid(65534, 65534, 65534) != 0) std::exit(2);
            const rlimit none{};
            if (::setrlimit(RLIMIT_NPROC, &none) != 0) std::exit(2);
            setUpLogging();
            DDLogInfo("asynchronous");
            DDLogError("synchronous");
            // As the tool ends; the leak check of an exit would want a thread.
            DDLog::applicationWillTerminate();
            std::_Exit(0);
        },
        testing::ExitedWithCode(0),
        "fileLogger gets no thread and works on those of its callers: [^\n]*\n"
        "(.*\n)*.*asynchronous\n(.*\n)*.*synchronous\n");
    EXPECT_THAT(log(), testing::EndsWith(" | synchronous\n"));
}

}  // namespace
