#include "app/Util/Logging/DDFileLogger.hpp"

#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <semaphore>

#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DDLogFileDefaults.hpp"
#include "app/Util/Logging/DDLogFormatter.hpp"
#include "app/Util/Logging/impl/DDLogFileMarks.hpp"
#include "platform/Dispatch.hpp"
#include "platform/FileAttributes.hpp"
#include "platform/linux/AsioRunLoop.hpp"
#include "platform/linux/Dispatch.hpp"
#include "tests/app/Logging/LoggingSupport.hpp"

namespace {

using Texts = std::vector<std::string>;

/// Keeps the files apart by their moment, so that a roll never replaces one, and tells of each roll.
class TellingManager final : public DDLogFileManagerDefault {
  public:
    using DDLogFileManagerDefault::DDLogFileManagerDefault;
    std::string createNewLogFile() override {
        if (only.empty()) return DDLogFileManagerDefault::createNewLogFile();
        if (replaces) replaceWithEmptyFile(only, platform::wallClock().now());
        return only;
    }
    void didArchiveLogFile(const std::string& path) override { archived.push_back(path); }
    void didRollAndArchiveLogFile(const std::string& path) override {
        rolled.push_back(path);
        DDLogError("rolled");  // a synchronous message from the logger's own queue
        rolls.release();
        if (throws) throw std::runtime_error("manager");
    }
    Texts archived, rolled;
    std::string only;      ///< where not empty, the path of every new file
    bool replaces = true;  ///< whether that one can be made
    bool throws = false;   ///< when it is told of a roll
    std::counting_semaphore<> rolls{0};
};

/// A file system without attributes.
class NoFileAttributes final : public platform::FileAttributes {
  public:
    int setxattr(const std::string&, const std::string&, const std::string&) override { return ENOTSUP; }
    int fsetxattr(int, const std::string&, const std::string&) override { return ENOTSUP; }
    int getxattr(const std::string&, const std::string&, std::string&) override { return ENOTSUP; }
    int removexattr(const std::string&, const std::string&) override { return ENOTSUP; }
    std::optional<std::chrono::system_clock::time_point> birthTime(const std::string&) override { return {}; }
};

/// All file logger tests run with the system's attributes and without any.
class FileLogger : public testing::TestWithParam<bool> {
  protected:
    FileLogger() {
        platform::Platform services;
        services.log = SystemLogLines::write;
        services.mainQueue = &mainQueue;
        if (GetParam()) services.fileAttributes = &mNone;
        mScope.emplace(services);
        SystemLogLines::take();
        manager->setMaximumNumberOfLogFiles(0);
        logger.emplace(manager);
    }

    void log(const std::string& text) { deliver(*logger, text); }
    void logBatch(const Texts& texts) {
        std::vector<DDLogMessage> messages;
        std::vector<const DDLogMessage*> pointers;
        for (const auto& text : texts) messages.push_back(messageWithText(text));
        for (const auto& message : messages) pointers.push_back(&message);
        logger->loggerQueue()->dispatch_sync([&] { logger->logMessages(pointers); });
    }
    /// Shell commands in the folder of the log files, $F being one of them.
    void run(const std::string& commands, const std::string& file) const {
        ASSERT_EQ(std::system(("cd " + folder.path().string() + "; F=" + file + "; " + commands).c_str()), 0);
    }
    void startAfresh() {
        logger.reset();
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            std::filesystem::remove(entry.path());
        logger.emplace(manager);
    }
    /// Text of all files, the oldest first.
    Texts files() const {
        Texts texts;
        for (const auto& path : manager->sortedLogFilePaths()) texts.insert(texts.begin(), support::ReadFile(path));
        return texts;
    }
    std::string newest() const { return manager->sortedLogFilePaths().at(0); }

    platform::AsioRunLoops runLoops;
    platform::RunLoopMainQueue mainQueue{runLoops};
    NoFileAttributes mNone;
    std::optional<platform::PlatformScope> mScope;
    support::TemporaryFolder folder;
    std::shared_ptr<TellingManager> manager = std::make_shared<TellingManager>(folder.path().string());
    std::optional<DDFileLogger> logger;
};

TEST_P(FileLogger, RollsAfterTheLineThatReachesTheMaximumAloneOrInABatch) {
    // Ten bytes a line. The maximum is reached exactly, passed, and just not reached.
    const std::vector<std::pair<std::uint64_t, std::size_t>> linesPerFile = {
        {30, 3}, {29, 3}, {31, 4}, {1, 1}, {0, 12}};
    Texts texts(12, "123456789");
    texts[5] += "\n";  // has its line end already
    for (const auto& [maximum, lines] : linesPerFile) {
        std::string file;
        for (std::size_t i = 0; i < lines; ++i) file += "123456789\n";
        for (const bool batch : {false, true}) {
            startAfresh();
            logger->setMaximumFileSize(maximum);
            if (batch) logBatch(texts);
            for (std::size_t i = 0; !batch && i < texts.size(); ++i) log(texts[i]);
            EXPECT_EQ(files(), Texts(12 / lines, file)) << maximum << (batch ? " batched" : "");
        }
    }
}

TEST_P(FileLogger, NewestFileIsReusedOnlyBelowSizeAndAgeAndUnarchived) {
    struct Case {
        const char* name;
        std::uint64_t maximumFileSize;
        double rollingFrequency;
        bool archived, reused;
    };
    for (const Case& tested : {Case{"below all", 11, 86400, false, true}, Case{"as large", 10, 86400, false, false},
                               Case{"as old", 11, 3600, false, false}, Case{"younger", 11, 3700, false, true},
                               Case{"archived", 11, 86400, true, false}, Case{"no limits", 0, 0, false, true},
                               Case{"no limits, archived", 0, -1, true, false}}) {
        startAfresh();
        manager->archived.clear();
        DDLogFileInfo earlier(manager->createNewLogFile());
        support::WriteFile(earlier.filePath(), "123456789\n");
        ASSERT_TRUE(earlier.setCreationDate(platform::wallClock().now() - std::chrono::seconds(3601)));
        EXPECT_NEAR(earlier.age(), 3601, 60);
        earlier.setIsArchived(tested.archived);
        logger->setMaximumFileSize(tested.maximumFileSize);
        logger->setRollingFrequency(tested.rollingFrequency);
        log("next");
        EXPECT_EQ(support::ReadFile(earlier.filePath()), tested.reused ? "123456789\nnext\n" : "123456789\n")
            << tested.name;
        EXPECT_EQ(manager->archived, tested.reused ? Texts{} : Texts{earlier.filePath()}) << tested.name;
        EXPECT_TRUE(earlier.isArchived() || tested.reused) << tested.name;
        EXPECT_EQ(files().back(), tested.reused ? "123456789\nnext\n" : "next\n") << tested.name;
    }
}

/// What people and programs do to a file, and what the logger's next file holds after one more line.
struct End {
    const char *commands, *next;
};
const End kEnds[] = {{"rm $F", "kept\n"},
                     {"mv $F elsewhere", "kept\n"},
                     {"mv $F log-renamed.txt", "kept\n"},
                     {"ln $F second; rm $F", "kept\n"},
                     {"(cat $F; echo edited) > new; mv new $F", "of the file\nedited\nkept\n"}};

TEST_P(FileLogger, FileDeletedOrMovedAwayIsNotWrittenToAnyMore) {
    for (const End& end : kEnds) {
        SCOPED_TRACE(end.commands);
        startAfresh();
        log("of the file");
        const std::string path = newest();
        run(end.commands, path);
        manager->rolls.acquire();
        EXPECT_EQ(manager->rolled.back(), path);
        log("kept");
        EXPECT_EQ(files().back(), end.next);
        EXPECT_EQ(SystemLogLines::take(), Texts{});
    }
}

TEST_P(FileLogger, TwoLoggersOfOneFileLoseNothingAfterOneOfThemHasMadeANewOne) {
    struct MiddleOfALine final : DDLogFormatter {
        bool formatLogMessage(const DDLogMessage& message, std::string& text) override {
            if (happens) std::exchange(happens, nullptr)();
            text += message.logMsg;
            return true;
        }
        std::function<void()> happens;
    };
    manager->only = folder / "log-day.txt";
    for (const char* commands : {"", "rm $F", "mv $F elsewhere", "mv $F elsewhere; ln -s elsewhere $F"}) {
        SCOPED_TRACE(commands);
        startAfresh();
        const auto otherManager = std::make_shared<TellingManager>(folder.path().string());
        otherManager->only = manager->only;
        DDFileLogger other(otherManager);
        const auto formatter = std::make_shared<MiddleOfALine>();
        other.setLogFormatter(formatter);
        log("one");
        deliver(other, "other");
        formatter->happens = [&] {
            *commands ? run(commands, manager->only) : logger->rollLogFile();
            manager->rolls.acquire();
            log("new");
        };
        deliver(other, "into the old file");
        otherManager->rolls.acquire();
        for (int i = 0; i < 3; ++i) deliver(other, "other"), log("one");
        EXPECT_EQ(files().back(), "new\nother\none\nother\none\nother\none\n");
        EXPECT_EQ(SystemLogLines::take(), Texts{});
    }
}

TEST_P(FileLogger, NeitherAnArchivedFileNorALinkInTheNewFilesPlaceIsWrittenTo) {
    manager->only = folder / "log-day.txt";
    manager->replaces = false;
    for (const char* commands : {"echo old > $F", "rm $F; echo old > target; ln -s target $F"}) {
        run(commands, manager->only);
        DDLogFileInfo(manager->only).setIsArchived(true);
        SystemLogLines::take();
        log("lost");
        EXPECT_EQ(support::ReadFile(manager->only), "old\n") << commands;
        EXPECT_EQ(SystemLogLines::take().size(), 1U) << commands;
    }
}

TEST_P(FileLogger, FileThatGrowsTooOldIsRolledByTheTimer) {
    logger->setRollingFrequency(0.02);
    log("old");
    manager->rolls.acquire();
    log("new");
    EXPECT_EQ(files(), (Texts{"old\n", "new\n"}));
}

TEST_P(FileLogger, RollOnRequestAndOnRemovalArchivesAndCompletes) {
    log("first");
    std::vector<std::size_t> rolledAtCompletion;
    const auto roll = [&] {
        logger->rollLogFileWithCompletionBlock([&] { rolledAtCompletion.push_back(manager->rolled.size()); });
    };
    roll();
    roll();  // no file is open: nothing to roll
    EXPECT_TRUE(rolledAtCompletion.empty()) << "the block is for the main queue";
    runLoops.CFRunLoopGetCurrent()->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, 0, false);
    EXPECT_EQ(rolledAtCompletion, (std::vector<std::size_t>{1, 1}));
    log("second");
    logger->loggerQueue()->dispatch_sync([&] { logger->willRemoveLogger(); });
    EXPECT_EQ(manager->rolled.size(), 2U);
    for (const auto& path : manager->rolled) EXPECT_TRUE(DDLogFileInfo(path).isArchived());
    log("third");
    manager->throws = true;
    logger->rollLogFile();
    log("fourth");
    EXPECT_EQ(files(), (Texts{"first\n", "second\n", "third\n", "fourth\n"}));
}

TEST_P(FileLogger, FullDiskLosesLinesButLeavesNoTornOneAndEndsWithTheSpace) {
    log("the file is there");  // and SIGXFSZ is ignored from the first use of the core on
    logger->setMaximumFileSize(300);  // would be reached if what fails were counted
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit full{105, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
    logBatch(Texts(12, std::string(29, 'x')));
    log(std::string(29, 'y'));
    log("short");
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    log("space again");
    const std::string x = std::string(29, 'x') + "\n";
    EXPECT_EQ(files(), Texts{"the file is there\n" + x + x + "short\nspace again\n"});

    const auto lines = SystemLogLines::take();
    ASSERT_EQ(lines.size(), 11U);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "DDFileLogger.logMessage: File too large"), 10);
    EXPECT_EQ(lines.back(), "DDFileLogger.logMessage: Too many exceptions -- will not log any more of them.");
}

TEST_P(FileLogger, FolderThatGoesAwayLosesLinesUntilItIsBack) {
    std::filesystem::remove_all(folder.path());
    for (int i = 0; i < 12; ++i) log("lost");
    std::filesystem::create_directory(folder.path());
    log("kept");
    EXPECT_EQ(files(), Texts{"kept\n"});
}

TEST_P(FileLogger, MarksOfAFileFollowARenameAndGoWithTheFile) {
    DDLogFileInfo info(manager->createNewLogFile());
    const auto created = info.creationDate();
    info.setIsArchived(true);
    info.renameFile("log-renamed.txt");
    EXPECT_EQ(info.fileName(), "log-renamed.txt");
    EXPECT_EQ(info.creationDate(), created);
    EXPECT_TRUE(info.isArchived());
    info.setIsArchived(false);
    EXPECT_FALSE(DDLogFileInfo(info.filePath()).isArchived());
    // A mark counts whatever is in it.
    EXPECT_EQ(DDLogFileMarks::set(info.filePath(), "modogriomu.log.archived", std::string(300, 'x')), 0);
    EXPECT_TRUE(info.isArchived());
    // A link in the place of the hidden file is replaced; what it leads to is left alone.
    const std::string hidden = folder / ".log-renamed.txt.marks";
    std::filesystem::remove(hidden);
    std::filesystem::create_symlink("target", hidden);
    info.setIsArchived(true);
    EXPECT_TRUE(info.isArchived());
    EXPECT_FALSE(std::filesystem::exists(folder / "target"));
    // Another file that takes the name does not have the mark.
    support::WriteFile(info.filePath() + ".new", "");
    std::filesystem::rename(info.filePath() + ".new", info.filePath());
    EXPECT_FALSE(info.isArchived());

    EXPECT_TRUE(SystemLogLines::take().empty());
    DDLogFileInfo missing(folder / "missing.txt");
    missing.setIsArchived(true);
    missing.renameFile("other.txt");
    const auto lines = SystemLogLines::take();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].find("DDLogFileInfo: setxattr("), 0U) << lines[0];
    EXPECT_NE(lines[0].find("): error = 2"), std::string::npos) << lines[0];
    EXPECT_EQ(lines[1].find("DDLogFileInfo: Error renaming file (" + missing.filePath() + "): "), 0U) << lines[1];
}

INSTANTIATE_TEST_SUITE_P(Attributes, FileLogger, testing::Bool(),
                         [](const auto& tested) { return tested.param ? "BesideTheFile" : "OnTheFile"; });

TEST(DDLogFileFormatterDefaultTest, LineHasMillisecondsAndTwoSpaces) {
    const TimeZone zone("Europe/Berlin");
    DDLogMessage message = messageWithText("Device rebooted");
    message.timestamp = std::chrono::system_clock::from_time_t(1795030000) + std::chrono::milliseconds(7);
    std::string line;
    EXPECT_TRUE(DDLogFileFormatterDefault().formatLogMessage(message, line));
    EXPECT_EQ(line, "2026/11/18 20:26:40:007  Device rebooted");
}

}  // namespace
