#include "app/Util/Logging/DDFileLogger.hpp"
#include "app/Util/Logging/DDLogFileDefaults.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "app/Util/Logging/VundLogFileManager.hpp"
#include "app/Util/Logging/VundLogFormatter.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "tests/app/Util/Logging/LoggingSupport.hpp"

#include <atomic>
#include <cerrno>
#include <climits>
#include <ctime>
#include <dirent.h>
#include <fstream>

/// How many more entries of folders this thread can read; afterwards the disk fails.
static thread_local int tReadableEntries = INT_MAX;

/// In the place of the C library's.
extern "C" dirent* readdir(DIR* folder) {
    if (tReadableEntries-- > 0) return reinterpret_cast<dirent*>(::readdir64(folder));
    errno = EIO;
    return nullptr;
}

namespace {

using support::ReadFile;
using Texts = std::vector<std::string>;

/// A time of day that stands still until the test moves it.
struct ManualWallClock final : platform::WallClock {
    Date now() override { return moment; }
    void setLocal(const std::string& day, const char* time) {
        std::tm fields{};
        ::strptime((day + time).c_str(), "%Y.%m.%d%T", &fields);
        fields.tm_isdst = -1;
        moment = std::chrono::system_clock::from_time_t(std::mktime(&fields));
    }
    std::atomic<Date> moment{};
};

/// The tool's manager under a time of day in a zone with daylight saving. The days lie far ahead, where the system's
/// own timers do not go off. The log folder is found once per process, so all tests of a process share it; each starts
/// with it empty.
class VundLogFileManagerTest : public testing::Test {
  protected:
    VundLogFileManagerTest() {
        static const support::TemporaryFolder data;
        ::setenv("XDG_DATA_HOME", data.path().c_str(), 1);
        std::filesystem::remove_all(TrovikLogs::logsDirectory());
        std::filesystem::create_directories(TrovikLogs::logsDirectory());
    }

    static std::string inFolder(const std::string& name) { return TrovikLogs::logsDirectory() + "/" + name; }
    static std::string textOf(const std::string& day) { return ReadFile(inFolder("ResetTool_" + day + ".txt")); }

    std::unique_ptr<DDFileLogger> makeLogger() const {
        auto logger = std::make_unique<DDFileLogger>(manager);
        logger->setRollingFrequency(86400.0);
        return logger;
    }

    /// What the day's timer does.
    static void checkAge(DDFileLogger& logger) { logger.setRollingFrequency(86400.0); }

    TimeZone zone{"Europe/Berlin"};
    ManualWallClock clock;
    const platform::PlatformScope mScope{platform::withLinuxFiles({.wallClock = &clock})};
    std::shared_ptr<VundLogFileManager> manager = std::make_shared<VundLogFileManager>("ResetTool");
};

TEST_F(VundLogFileManagerTest, OnlyFilesThatBeginWithThePrefixAndEndInTxtAreLogFiles) {
    for (const char* name : {"ResetTool_2026.11.15.txt", "ResetTool_2026.11.16.txt", "ResetTool.txt", "ResetTool_x.TXT",
                             "xResetTool_2026.11.15.txt", "ResetTool_x", "ResetTool_x.txt.gz", "resettool_x.txt"})
        support::WriteFile(inFolder(name), "");
    std::filesystem::create_directory(inFolder("ResetTool_folder.txt"));
    std::filesystem::create_symlink("ResetTool.txt", inFolder("ResetTool_link.txt"));
    const Texts expected = {"ResetTool_2026.11.16.txt", "ResetTool_2026.11.15.txt", "ResetTool.txt"};
    EXPECT_EQ(manager->sortedLogFileNames(), expected);
    EXPECT_EQ(TrovikLogs::sortedLogsWithPrefix("ResetTool").at(0), inFolder(expected[0]));
    EXPECT_FALSE(manager->isLogFile("ResetTool_missing.txt"));
    EXPECT_FALSE(TrovikLogs::isLogFile("ResetTool.txt", ""));
    tReadableEntries = 11;  // all but one; "." and ".." count
    const Texts brokenOff = TrovikLogs::unsortedLogsWithPrefix("ResetTool");
    tReadableEntries = INT_MAX;
    EXPECT_EQ(brokenOff, Texts{});
}

TEST_F(VundLogFileManagerTest, SecondRollOnADayStartsTheDaysFileAfresh) {
    clock.setLocal("2035.11.15", "12:00:00");
    const auto logger = makeLogger();
    deliver(*logger, "morning");
    logger->rollLogFile();
    deliver(*logger, "noon");
    EXPECT_EQ(textOf("2035.11.15"), "noon\n");
    // The next start goes on with it.
    deliver(*makeLogger(), "restarted");
    EXPECT_EQ(textOf("2035.11.15"), "noon\nrestarted\n");
}

TEST_F(VundLogFileManagerTest, FileLastsUntilMidnightOnDaysOfAnyLength) {
    // The day of 23 hours, the one of 25 hours, and a usual one.
    for (const auto& [day, next] : {std::pair("2035.03.25", "2035.03.26"), std::pair("2035.10.28", "2035.10.29"),
                                    std::pair("2035.11.15", "2035.11.16")}) {
        SCOPED_TRACE(day);
        clock.setLocal(day, "00:00:01");
        const auto logger = makeLogger();
        deliver(*logger, "early");
        clock.setLocal(day, "23:59:59");
        checkAge(*logger);
        deliver(*logger, "late");
        clock.moment = clock.now() + std::chrono::seconds(1);
        checkAge(*logger);
        deliver(*logger, "next day");
        EXPECT_EQ(textOf(day), "early\nlate\n");
        // A start on the same day goes on with the file, one on another day does not.
        deliver(*makeLogger(), "same day");
        EXPECT_EQ(textOf(next), "next day\nsame day\n");
    }
}

TEST(DDLocalTime, DaysFollowOneAnotherWithoutAGapInEveryZoneAndYear) {
    constexpr std::time_t kDay = 86400, k2020 = 1577836800, k2038 = 2145916800;
    const auto dayOf = [](std::time_t moment) { return DDLocalTime::fields(moment).tm_yday; };
    {
        const TimeZone apia("Pacific/Apia");  // which left out 2011-12-30
        const auto day = std::chrono::system_clock::from_time_t(1325152800);
        EXPECT_EQ(DDLocalTime::format("%F %T", DDLocalTime::adding(day, kDay)), "2011-12-31 00:00:00");
    }
    int changes = 0;
    std::ifstream database("/usr/share/zoneinfo/tzdata.zi");
    for (std::string line; std::getline(database, line);) {
        if (!line.starts_with("Z ")) continue;
        const TimeZone zone(line.substr(2, line.find(' ', 2) - 2).c_str());
        // Four days around every change of the clocks; elsewhere all days are alike.
        for (std::time_t noon = k2020 + kDay / 2; noon < k2038; noon += kDay) {
            if (DDLocalTime::fields(noon).tm_gmtoff == DDLocalTime::fields(noon + kDay).tm_gmtoff) continue;
            ++changes;
            auto day = DDLocalTime::startOfDay(std::chrono::system_clock::from_time_t(noon - kDay));
            for (int i = 0; i < 4; ++i) {
                const auto next = DDLocalTime::adding(day, kDay);
                const std::time_t second = std::chrono::system_clock::to_time_t(next);
                ASSERT_NE(dayOf(second), dayOf(second - 1)) << line << DDLocalTime::format(" %F", next);
                ASSERT_EQ(dayOf(second - 1), DDLocalTime::fields(day).tm_yday);
                day = next;
            }
        }
    }
    EXPECT_GT(changes, 2000) << "the time-zone database was not read";
}

TEST(LogFormatters, LinesHaveTimeThreadLetterAndTextOrTimeAndText) {
    struct Case {
        const char* zone;
        std::uint32_t flag, thread;
        const char* line;
    };
    UILogFormatter formatter;  // adds nothing to the other one
    int second = 0;
    for (const Case& tested : {Case{"Europe/Berlin", 4, 7171, "2026-11-18 20.26.40 (GMT+01:00) | 7171 | I | Text"},
                               Case{"UTC", 2, 1, "2026-11-18 19.26.41 (GMT) | 1 | W | Text"},
                               Case{"Asia/Kolkata", 1, 1, "2026-11-19 00.56.42 (GMT+05:30) | 1 | E | Text"},
                               Case{"America/St_Johns", 8, 1, "2026-11-18 15.56.43 (GMT-03:30) | 1 | V | Text"},
                               Case{"UTC", 16, 0xFFFFFFFF, "2026-11-18 19.26.44 (GMT) | -1 | V | Text"},
                               Case{"UTC", 7, 1, "2026-11-18 19.26.45 (GMT) | 1 | I | Text"},
                               Case{"<+0100>-1:00:30", 3, 1, "2026-11-18 20.27.16 (GMT+01:00:30) | 1 | W | Text"}}) {
        const TimeZone here(tested.zone);
        DDLogMessage message = messageWithText("Text", tested.flag);
        message.machThreadID = tested.thread;
        message.timestamp = std::chrono::system_clock::from_time_t(1795030000 + second++);
        std::string line;
        EXPECT_TRUE(formatter.formatLogMessage(message, line));
        EXPECT_EQ(line, tested.line);
    }
    const TimeZone here("Europe/Berlin");
    std::string line;
    DDLogMessage message = messageWithText("Device rebooted");
    message.timestamp = std::chrono::system_clock::from_time_t(1795030000) + std::chrono::milliseconds(7);
    EXPECT_TRUE(DDLogFileFormatterDefault().formatLogMessage(message, line));
    EXPECT_EQ(line, "2026/11/18 20:26:40:007  Device rebooted");
}

}  // namespace
