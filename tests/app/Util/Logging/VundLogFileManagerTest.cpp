#include "app/Util/Logging/DDFileLogger.hpp"
#include "app/Util/Logging/DDLogFileDefaults.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "app/Util/Logging/VundLogFileManager.hpp"
#include "app/Util/Logging/VundLogFormatter.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "tests/app/Util/Logging/LoggingSupport.hpp"

#include <atomic>
#include <ctime>
#include <tuple>

namespace {

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
        emptyFolder();
    }

    static void emptyFolder() {
        std::filesystem::remove_all(TrovikLogs::logsDirectory());
        std::filesystem::create_directories(TrovikLogs::logsDirectory());
    }

    static std::string inFolder(const std::string& name) { return TrovikLogs::logsDirectory() + "/" + name; }
    static std::string textOf(const std::string& day) {
        return support::ReadFile(inFolder("ResetTool_" + day + ".txt"));
    }

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
    std::filesystem::remove_all(TrovikLogs::logsDirectory());
    EXPECT_EQ(TrovikLogs::unsortedLogsWithPrefix("ResetTool"), Texts{});
}

TEST_F(VundLogFileManagerTest, SecondRollOnADayStartsTheDaysFileAfresh) {
    clock.setLocal("2035.11.15", "12:00:00");
    const auto logger = makeLogger();
    deliver(*logger, "morning");
    logger->rollLogFile();
    deliver(*logger, "noon");
    EXPECT_EQ(textOf("2035.11.15"), "noon\n");
    const auto modeOf = [](const std::filesystem::path& path) { return std::filesystem::status(path).permissions(); };
    EXPECT_EQ(modeOf(inFolder("ResetTool_2035.11.15.txt")), std::filesystem::perms(0600));
    EXPECT_EQ(modeOf(std::filesystem::path(TrovikLogs::logsDirectory()).parent_path()), std::filesystem::perms(0700));
    // The next start goes on with it.
    deliver(*makeLogger(), "restarted");
    EXPECT_EQ(textOf("2035.11.15"), "noon\nrestarted\n");
}

TEST_F(VundLogFileManagerTest, FileLastsUntilMidnightOnDaysOfAnyLength) {
    // Days of 23, 25 and 24 hours; then a day without a first midnight, the day before it, and one before two
    // midnights.
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"Europe/Berlin", "2035.03.25", "2035.03.26"},  {"Europe/Berlin", "2035.10.28", "2035.10.29"},
        {"Europe/Berlin", "2035.11.15", "2035.11.16"},  {"America/Havana", "2035.03.11", "2035.03.12"},
        {"America/Havana", "2035.03.10", "2035.03.11"}, {"America/Havana", "2035.11.03", "2035.11.04"}};
    for (const auto& [place, day, next] : cases) {
        SCOPED_TRACE(std::string(place) + " " + day);
        const TimeZone here(place);
        emptyFolder();
        clock.setLocal(day, "04:00:00");
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

TEST(LogFormatters, LinesHaveTimeThreadLetterAndTextOrTimeAndText) {
    UILogFormatter formatter;  // adds nothing to the other one
    int second = 0;
    const std::tuple<const char*, std::uint32_t, std::uint32_t, const char*> cases[] = {
        {"Europe/Berlin", 4, 7171, "2026-11-18 20.26.40 (GMT+01:00) | 7171 | I | Text"},
        {"UTC", 2, 1, "2026-11-18 19.26.41 (GMT) | 1 | W | Text"},
        {"Asia/Kolkata", 1, 1, "2026-11-19 00.56.42 (GMT+05:30) | 1 | E | Text"},
        {"America/St_Johns", 8, 1, "2026-11-18 15.56.43 (GMT-03:30) | 1 | V | Text"},
        {"UTC", 16, 0xFFFFFFFF, "2026-11-18 19.26.44 (GMT) | -1 | V | Text"},
        {"UTC", 7, 1, "2026-11-18 19.26.45 (GMT) | 1 | I | Text"},
        {"<+0100>-1:00:30", 3, 1, "2026-11-18 20.27.16 (GMT+01:00:30) | 1 | W | Text"}};
    for (const auto& [zone, flag, thread, expected] : cases) {
        const TimeZone here(zone);
        DDLogMessage message = messageWithText("Text", flag);
        message.machThreadID = thread;
        message.timestamp = std::chrono::system_clock::from_time_t(1795030000 + second++);
        std::string line;
        EXPECT_TRUE(formatter.formatLogMessage(message, line));
        EXPECT_EQ(line, expected);
    }
    const TimeZone here("Europe/Berlin");
    std::string line;
    DDLogMessage message = messageWithText("Device rebooted");
    message.timestamp = std::chrono::system_clock::from_time_t(1795030000) + std::chrono::milliseconds(7);
    EXPECT_TRUE(DDLogFileFormatterDefault().formatLogMessage(message, line));
    EXPECT_EQ(line, "2026/11/18 20:26:40:007  Device rebooted");
}

}  // namespace
