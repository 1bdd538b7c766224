// What the tool's own process leaves behind, from its main function to its end.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.hpp"

namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

/// The text of the one file in a folder.
std::string onlyFileIn(const std::string& folder) {
    std::error_code missing;
    std::vector<std::string> texts;
    for (const auto& entry : fs::directory_iterator(folder, missing)) texts.push_back(support::ReadFile(entry.path()));
    return texts.size() == 1 ? texts[0] : std::to_string(texts.size()) + " files in " + folder;
}

struct Process : testing::Test {
    /// Runs the tool with nothing in its environment but a home, and has it do one thing. @return its wait status
    int run(const std::string& action) const {
        const std::string command = "exec env -i PATH=/usr/bin:/bin QT_QPA_PLATFORM=offscreen TROVIK_PROBE=" + action +
                                    " HOME='" + home.path().string() + "' '" TROVIK_PROBE_PROGRAM "' >/dev/null 2>&1";
        return std::system(command.c_str());
    }
    std::string log() const { return onlyFileIn(logs); }

    support::TemporaryFolder home;
    const std::string logs = home / ".local/share/Trovik/ResetTool";
};

TEST_F(Process, HasItsLastLineInTheLogHoweverItIsQuit) {
    for (const char* const way : {"quit", "close"}) {
        fs::remove_all(home / ".local");
        EXPECT_EQ(run(way), 0) << way;
        EXPECT_THAT(log(), HasSubstr(" | I | Trovik Reset Tool 1.0.0 has started.\n"));
        EXPECT_THAT(log(), EndsWith(" | I | line 499\n"));
    }
}

TEST_F(Process, KeepsTheLogsOfSevenDays) {
    for (const char day : {'1', '2', '3', '4', '5', '6', '7', '8', '9'}) {
        support::WriteFile(logs + "/ResetTool_2001.01.0" + day + ".txt", std::string(1 << 20, '.'));  // full
    }
    EXPECT_EQ(run("quit"), 0);
    std::vector<std::string> old;
    for (const auto& entry : fs::directory_iterator(logs)) {
        if (entry.path().filename().string().starts_with("ResetTool_2001")) old.push_back(entry.path().stem());
    }
    EXPECT_THAT(old, UnorderedElementsAre(EndsWith("04"), EndsWith("05"), EndsWith("06"), EndsWith("07"),
                                          EndsWith("08"), EndsWith("09")));
}

TEST_F(Process, KeepsSettingsLogsAndTracesInTheFoldersOfItsUser) {
    support::WriteFile(home / ".config/Trovik/org.trovik.ResetTool.plist",
                       R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>RegistryRoot</key><dict>
<key>Software</key><dict><key>Trovik</key><dict><key>Settings</key><dict><key>ShowDebug</key><data>AQ==</data>
</dict></dict></dict></dict></dict></plist>)");
    fs::create_directory(home / ".cache");  // as on every desktop
    EXPECT_EQ(run("quit"), 0);
    EXPECT_THAT(log(), HasSubstr("has started."));
    EXPECT_THAT(onlyFileIn(home / ".cache/Trovik"), HasSubstr("probe"));
}

TEST_F(Process, LogsAnExceptionThatNobodyCatchesWithItsStack) {
    const int status = run("throw");
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
    std::string text;  // beside it lies the crash report
    for (const auto& entry : fs::directory_iterator(logs))
        if (entry.path().extension() == ".txt") text = support::ReadFile(entry.path());
    EXPECT_THAT(text, ContainsRegex("| E | Exception: name: std::runtime_error reason: no more\n"));
    EXPECT_THAT(text, ContainsRegex("| E | Stack:\n.+\n.+\n"));
}

}  // namespace
