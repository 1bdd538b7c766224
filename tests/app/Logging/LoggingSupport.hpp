#pragma once

#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "app/Util/Logging/DDAbstractLogger.hpp"
#include "app/Util/Logging/DDLogMessage.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "platform/Platform.hpp"
#include "platform/WallClock.hpp"
#include "tests/support/TemporaryFolder.hpp"

/// A time of day that stands still until the test moves it.
class ManualWallClock final : public platform::WallClock {
  public:
    Date now() override { return mNow.load(); }
    void setLocal(int year, int month, int day, int hour, int minute, int second) {
        std::tm fields{};
        fields.tm_year = year - 1900, fields.tm_mon = month - 1, fields.tm_mday = day;
        fields.tm_hour = hour, fields.tm_min = minute, fields.tm_sec = second, fields.tm_isdst = -1;
        mNow = std::chrono::system_clock::from_time_t(std::mktime(&fields));
    }
    void advance(std::chrono::seconds span) { mNow = mNow.load() + span; }

  private:
    std::atomic<Date> mNow{};
};

/// What went to the system log.
class SystemLogLines {
  public:
    static void write(const std::string& line) {
        const std::lock_guard guard(lock());
        lines().push_back(line);
    }
    static std::vector<std::string> take() {
        const std::lock_guard guard(lock());
        return std::exchange(lines(), {});
    }

  private:
    static std::mutex& lock() {
        static std::mutex one;
        return one;
    }
    static std::vector<std::string>& lines() {
        static std::vector<std::string> all;
        return all;
    }
};

/// A time zone for the life of this object.
class TimeZone {
  public:
    explicit TimeZone(const char* name) {
        ::setenv("TZ", name, 1);
        ::tzset();
    }
    ~TimeZone() {
        ::unsetenv("TZ");
        ::tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
};

inline std::vector<std::string> linesOf(const std::string& path) {
    std::istringstream text(support::ReadFile(path));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

inline DDLogMessage messageWithText(std::string text, std::uint32_t flag = 4) {
    DDLogMessage message;
    message.logFlag = flag;
    message.logMsg = std::move(text);
    message.timestamp = platform::wallClock().now();
    message.machThreadID = 7171;
    return message;
}

/// Has a logger write one message, where the core would have it write.
inline void deliver(DDAbstractLogger& logger, const std::string& text) {
    logger.loggerQueue()->dispatch_sync([&] { logger.logMessage(messageWithText(text)); });
}

/// The log folder is found once per process, so all tests of a process share it; each starts with it empty.
class LogFolderTest : public testing::Test {
  protected:
    LogFolderTest() {
        static const support::TemporaryFolder data;
        ::setenv("XDG_DATA_HOME", data.path().c_str(), 1);
        std::filesystem::create_directories(TrovikLogs::logsDirectory());
        for (const auto& entry : std::filesystem::directory_iterator(TrovikLogs::logsDirectory()))
            std::filesystem::remove_all(entry.path());
        SystemLogLines::take();
    }
    std::string inFolder(const std::string& name) const { return TrovikLogs::logsDirectory() + "/" + name; }
};
