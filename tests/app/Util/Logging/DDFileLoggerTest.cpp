#include "app/Util/Logging/DDFileLogger.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DDLogFileDefaults.hpp"
#include "platform/Dispatch.hpp"
#include "platform/DispatchSource.hpp"
#include "platform/common/RunLoopMainQueue.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "tests/app/Util/Logging/LoggingSupport.hpp"

#include <mutex>
#include <semaphore>
#include <sys/resource.h>
#include <tuple>

namespace {

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
    }
    Texts archived, rolled;
    std::string only;      ///< where not empty, the path of every new file
    bool replaces = true;  ///< whether that one can be made
    std::counting_semaphore<> rolls{0};
};

/// All file logger tests run with the system's attributes and without any.
class FileLogger : public testing::TestWithParam<bool> {
  protected:
    FileLogger() {
        platform::Platform services = platform::withLinuxFiles({.mainQueue = &mainQueue, .log = keepLine});
        if (GetParam()) services.fileAttributes = nullptr;
        mScope.emplace(services);
        takeSystemLog();
        manager->setMaximumNumberOfLogFiles(0);
        logger.emplace(manager);
    }

    static void keepLine(const std::string& line) {
        const std::lock_guard lock(mutex);
        systemLog.push_back(line);
    }
    /// What went to the system log.
    static Texts takeSystemLog() {
        const std::lock_guard lock(mutex);
        return std::exchange(systemLog, {});
    }
    void log(const char* text) { deliver(*logger, text); }
    /// Shell commands in the folder of the log files, $F being the manager's only one.
    void run(const std::string& commands) const {
        EXPECT_EQ(std::system(("cd " + folder.path().string() + "; F=" + manager->only + "; " + commands).c_str()), 0);
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

    static inline std::mutex mutex;
    static inline Texts systemLog;  ///< under mutex
    platform::AsioRunLoops runLoops;
    platform::RunLoopMainQueue mainQueue{runLoops};
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
            if (batch) deliver(*logger, texts);
            for (std::size_t i = 0; !batch && i < texts.size(); ++i) log(texts[i].c_str());
            EXPECT_EQ(files(), Texts(12 / lines, file)) << maximum << (batch ? " batched" : "");
        }
    }
}

TEST_P(FileLogger, NewestFileIsReusedOnlyBelowSizeAndAgeAndUnarchived) {
    const std::tuple<const char*, std::uint64_t, double, bool, bool> cases[] = {
        {"below all", 11, 86400, false, true},      {"as large", 10, 86400, false, false},
        {"as old", 11, 3600, false, false},         {"younger", 11, 3700, false, true},
        {"archived", 11, 86400, true, false},       {"no limits", 0, 0, false, true},
        {"no limits, archived", 0, -1, true, false}};
    for (const auto& [name, maximumFileSize, rollingFrequency, isArchived, isReused] : cases) {
        SCOPED_TRACE(name);
        startAfresh();
        manager->archived.clear();
        DDLogFileInfo earlier(manager->createNewLogFile());
        support::WriteFile(earlier.filePath(), "123456789\n");
        ASSERT_TRUE(earlier.setCreationDate(platform::wallClock().now() - std::chrono::seconds(3601)));
        earlier.setIsArchived(isArchived);
        logger->setMaximumFileSize(maximumFileSize);
        logger->setRollingFrequency(rollingFrequency);
        log("next");
        EXPECT_EQ(files(), isReused ? Texts{"123456789\nnext\n"} : (Texts{"123456789\n", "next\n"}));
        EXPECT_EQ(manager->archived, isReused ? Texts{} : Texts{earlier.filePath()});
        EXPECT_TRUE(earlier.isArchived() || isReused);
    }
}

TEST_P(FileLogger, FileThatEndsIsLeftAndWhatFollowsIsKeptAlsoWhatAnotherLoggerOfItWrites) {
    manager->only = folder / "log-day.txt";
    // How it ends, and what its successor begins with. Where nothing happens to it, it is rolled.
    for (const auto& [end, begin] :
         {std::pair("", ""), std::pair("rm $F", ""), std::pair("mv $F elsewhere", ""),
          std::pair("mv $F log-renamed.txt", ""), std::pair("mv $F elsewhere; ln -s elsewhere $F", ""),
          std::pair("(cat $F; echo edited) > new; mv new $F", "one\nother\nedited\n")}) {
        SCOPED_TRACE(end);
        startAfresh();
        const auto otherManager = std::make_shared<TellingManager>(folder.path().string());
        otherManager->only = manager->only;
        DDFileLogger other(otherManager);
        log("one");
        deliver(other, "other");
        // No end of it. A timer is delivered behind what the file has told so far.
        run("chmod 640 $F; ln $F backup; mv backup renamed; rm renamed");
        std::binary_semaphore behind(0);
        const auto timer =
            platform::dispatchSources().dispatch_source_timer({}, *logger->loggerQueue(), [&] { behind.release(); });
        behind.acquire();
        EXPECT_FALSE(manager->rolls.try_acquire());
        // The other one is busy until there is a new file.
        other.loggerQueue()->dispatch_sync([&, how = end] {
            *how ? run(how) : logger->rollLogFile();
            manager->rolls.acquire();
            log("new");
        });
        otherManager->rolls.acquire();
        for (int i = 0; i < 3; ++i) deliver(other, "other"), log("one");
        EXPECT_EQ(files().back(), begin + std::string("new\nother\none\nother\none\nother\none\n"));
        EXPECT_EQ(takeSystemLog(), Texts{});
    }
}

TEST_P(FileLogger, LinesAreLostWhereAnArchivedFileCannotBeReplaced) {
    manager->only = folder / "log-day.txt";
    manager->replaces = false;
    support::WriteFile(manager->only, "old\n");
    DDLogFileInfo(manager->only).setIsArchived(true);
    log("lost");
    EXPECT_EQ(files(), Texts{"old\n"});
    EXPECT_EQ(takeSystemLog().size(), 1U);
    manager->replaces = true;
    log("kept");
    EXPECT_EQ(files(), Texts{"kept\n"});
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
    EXPECT_EQ(files(), (Texts{"first\n", "second\n", "third\n"}));
}

TEST_P(FileLogger, FullDiskLosesLinesButLeavesNoTornOneAndEndsWithTheSpace) {
    log("the file is there");         // and SIGXFSZ is ignored from the first use of the core on
    logger->setMaximumFileSize(300);  // would be reached if what fails were counted
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit full{105, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
    const Texts lines(12, std::string(29, 'x'));
    deliver(*logger, lines);
    log(std::string(29, 'y').c_str());
    log("short");
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    log("space again");
    EXPECT_EQ(files(), Texts{"the file is there\n" + lines[0] + "\n" + lines[0] + "\nshort\nspace again\n"});

    Texts reported(10, "DDFileLogger.logMessage: File too large");
    reported.push_back("DDFileLogger.logMessage: Too many exceptions -- will not log any more of them.");
    EXPECT_EQ(takeSystemLog(), reported);
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
    info.setIsArchived(true);
    // Another file that takes the name does not have the mark.
    support::WriteFile(info.filePath() + ".new", "");
    std::filesystem::rename(info.filePath() + ".new", info.filePath());
    EXPECT_FALSE(info.isArchived());

    EXPECT_TRUE(takeSystemLog().empty());
    DDLogFileInfo missing(folder / "missing.txt");
    missing.setIsArchived(true);
    missing.renameFile("other.txt");
    EXPECT_EQ(takeSystemLog(),
              (Texts{"DDLogFileInfo: setxattr(modogriomu.log.archived, " + missing.filePath() + "): error = 2",
                     "DDLogFileInfo: Error renaming file (" + missing.filePath() + "): No such file or directory"}));
}

INSTANTIATE_TEST_SUITE_P(Attributes, FileLogger, testing::Bool(),
                         [](const auto& tested) { return tested.param ? "BesideTheFile" : "OnTheFile"; });

}  // namespace
