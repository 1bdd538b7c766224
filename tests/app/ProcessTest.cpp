// What the tool's own process leaves behind, from its main function to its end.
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <tuple>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;

/// The text of the one file in a folder, crash reports aside.
std::string onlyFileIn(const std::string& folder) {
    std::error_code missing;
    std::vector<std::string> texts;
    for (const auto& entry : fs::directory_iterator(folder, missing))
        if (entry.path().extension() != ".crash") texts.push_back(support::ReadFile(entry.path()));
    return texts.size() == 1 ? texts[0] : std::to_string(texts.size()) + " files in " + folder;
}

struct Process : testing::Test {
    /// Runs the tool with nothing in its environment but a home, and has it do one thing. @return its wait status
    /// @param settings  further variables
    /// @param streams   redirections; what went to standard error is kept for errors() otherwise
    int run(const std::string& action, const std::string& settings = {},
            const std::string& streams = ">/dev/null 2>run/errors",
            const std::string& program = TROVIK_PROBE_PROGRAM) const {
        const std::string command =
            "cd '" + home.path().string() +
            "' && exec env -i PATH=/usr/bin:/bin QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR=\"$PWD/run\" "
            "HOME=\"$PWD\" TROVIK_PROBE=" +
            action + " " + settings + " '" + program + "' " + streams;
        return std::system(command.c_str());
    }
    void writeSettings(const std::string& entries) const {
        support::WriteFile(
            home / ".config/Trovik/org.trovik.ResetTool.plist",
            R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)" + entries + "</dict></plist>");
    }
    std::string log() const { return onlyFileIn(logs); }
    std::string errors() const { return support::ReadFile(home / "run/errors"); }
    void SetUp() override {
        fs::create_directory(home / "run");
        fs::permissions(home / "run", fs::perms::owner_all);
    }

    support::TemporaryFolder home;
    const std::string logs = home / ".local/share/Trovik/ResetTool";
};

TEST_F(Process, HasItsLastLineInTheLogAndItsFilesInItsUsersFoldersHoweverItIsQuit) {
    writeSettings(
        R"(<key>RegistryRoot</key><dict><key>Software</key><dict><key>Trovik</key><dict><key>Settings</key><dict>
<key>ShowDebug</key><data>AQ==</data></dict></dict></dict></dict>)");
    for (const auto& [way, signal, end] :
         {std::tuple("quit", 0, "Quit was chosen"), std::tuple("close", 0, "the window was closed"),
          std::tuple("term", SIGTERM, "the system sent the signal TERM"),
          std::tuple("hup", SIGHUP, "the system sent the signal HUP")}) {
        fs::remove_all(home / ".local");
        fs::remove_all(home / ".cache");
        fs::create_directory(home / ".cache");  // as on every desktop
        fs::create_directories(logs);
        fs::permissions(logs, fs::perms(0755));  // as an earlier version left it
        EXPECT_EQ(run(way), signal) << way;
        EXPECT_EQ(fs::status(logs).permissions(), fs::perms(0700)) << way;
        EXPECT_THAT(log(), ContainsRegex(R"( \| I \| Trovik Reset Tool [0-9.]+(~dev\S*)? has started\.)"));
        EXPECT_THAT(log(),
                    ContainsRegex(" [|] I [|] line 499\n[^\n]* [|] I [|] The tool ends: " + std::string(end) + "\n$"));
        EXPECT_THAT(log(),
                    ContainsRegex("started.\n[^\n]*System: [^\n]+\n[^\n]*Kernel: Linux [^\n]+\n[^\n]*USB library: "
                                  "libusb 1[^\n]+\n[^\n]*Toolkit: Qt 6[^\n]+\n[^\n]*Display server: offscreen "
                                  "[^\n]+\n[^\n]*Language: en\n[^\n]*Build: 1[^\n]+20[^\n]+\n"));
        for (const char* const text : {"Trovik Reset Tool", "006-B0000-00", "Release", "Trovik"})
            EXPECT_THAT(log(), HasSubstr(std::string("metadata ") + text + "\n"));
        EXPECT_THAT(errors(), ContainsRegex(R"(\] Trovik Reset Tool \S+ has started\.)")) << "on the console as well";
        EXPECT_THAT(onlyFileIn(home / ".cache/Trovik"), HasSubstr("probe")) << "the trace that the settings ask for";
    }
}

TEST_F(Process, KeepsTheLogsOfSevenDays) {
    for (const char day : {'1', '2', '3', '4', '5', '6', '7', '8', '9'}) {
        support::WriteFile(logs + "/ResetTool_2001.01.0" + day + ".txt", std::string(1 << 20, '.'));  // full
    }
    EXPECT_EQ(run("quit"), 0);
    EXPECT_EQ(std::distance(fs::directory_iterator(logs), {}), 7);
    EXPECT_TRUE(fs::exists(logs + "/ResetTool_2001.01.04.txt")) << "the oldest of six, beside today's";
}

TEST_F(Process, HasTheLinesAboutADamagedResourceInTheLog) {
    support::WriteFile(home / "share/trovik-reset-tool/Info.plist", "damaged");
    fs::create_directory(home / "bin");
    for (const auto& [program, options, folder] : std::vector<std::tuple<std::string, std::string, std::string>>{
             {TROVIK_PROBE_PROGRAM, "", logs},
             {TROVIK_DEMO_PROGRAM, "--run ", home / ".cache/trovik-reset-tool-demo/Trovik/ResetTool"}}) {
        SCOPED_TRACE(program);
        const std::string copy = home / "bin" / fs::path(program).filename();
        fs::copy_file(program, copy);
        EXPECT_EQ(run("quit", "", options + ">/dev/null 2>run/errors", copy), 0) << errors();
        EXPECT_THAT(onlyFileIn(folder),
                    ContainsRegex("TRV-504 A file[^\n]*/Info.plist can't be read as a property list.\n"));
    }
}

TEST_F(Process, HasNoStrangerForAStandardStream) {
    EXPECT_EQ(run("quit", "", "<&- >&- 2>&-"), 0);
    for (const char* const stream : {"0", "1", "2"})
        EXPECT_THAT(log(), HasSubstr("stream " + std::string(stream) + " /dev/null\n"));
}

TEST_F(Process, LeavesNothingWhereItsUserHasNoFolderAndIgnoresRelativeOnes) {
    for (const char* const none : {"HOME=", "HOME=run XDG_DATA_HOME=run XDG_CACHE_HOME=run XDG_CONFIG_HOME=run"}) {
        EXPECT_EQ(run("quit", none), 0) << none;
        EXPECT_THAT(onlyFileIn(home / "run"), HasSubstr("has started.\n")) << "on the console, in the only file";
        const std::string line = "TRV-501 There is no home folder, so no log files are kept. ";
        const std::size_t first = errors().find(line);
        EXPECT_NE(first, std::string::npos) << none;
        EXPECT_EQ(errors().find(line, first + 1), std::string::npos) << none;
    }
    EXPECT_EQ(run("quit", "HOME=run XDG_DATA_HOME=run PROBE_HOME=\"$PWD\""), 0) << "the user's entry knows one";
    EXPECT_THAT(log(), HasSubstr("has started."));
}

TEST_F(Process, RefusesInOneLineWithoutADisplay) {
    for (const char* const program : {TROVIK_PROBE_PROGRAM, TROVIK_DEMO_PROGRAM}) {
        for (const auto& [settings, reason] : std::vector<std::pair<std::string, std::string>>{
                 {"QT_QPA_PLATFORM=", "(neither DISPLAY nor WAYLAND_DISPLAY is set)"},
                 {"QT_QPA_PLATFORM= DISPLAY=:987", "(DISPLAY=:987)"},
                 {"QT_QPA_PLATFORM=wayland WAYLAND_DISPLAY=none", "(QT_QPA_PLATFORM=wayland, WAYLAND_DISPLAY=none)"},
                 {"QT_QPA_PLATFORM=nosuch", "(QT_QPA_PLATFORM=nosuch): Could not find the Qt platform plugin"}}) {
            EXPECT_EQ(run("quit", settings, ">/dev/null 2>run/errors", program), W_EXITCODE(1, 0))
                << program << settings;
            EXPECT_THAT(errors(), testing::MatchesRegex("No display for the window [^\n]* \\(TRV-505\\)\n"));
            EXPECT_THAT(errors(), HasSubstr(reason));
        }
    }
    const int status = run("quit", "PROBE_THREADS=fatal");
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
    EXPECT_EQ(errors(), "gone wrong\n") << "by then there is a display";
}

TEST_F(Process, StartsWithTheThreadsOfAResetOrRefusesInOneLine) {
    int threads = 0;
    for (; run("reset", "PROBE_THREADS=" + std::to_string(threads)) == W_EXITCODE(3, 0); ++threads)
        EXPECT_THAT(errors(), testing::MatchesRegex("No thread for the reset[^\n]* \\(TRV-506\\)\n")) << threads;
    EXPECT_GE(threads, 3) << "the drawing's, the worker's, the listener's";
    for (const char* const logger : {"ttyLogger", "fileLogger"})
        EXPECT_THAT(errors(), HasSubstr(logger + std::string(" gets no thread and works on those of its callers: ")));
    EXPECT_THAT(log(), testing::EndsWith("Quit was chosen\n"));
    for (const int last = threads + 4; threads <= last; ++threads)  // for the logs some are missing at first
        EXPECT_EQ(run("reset", "PROBE_THREADS=" + std::to_string(threads)), 0) << threads << '\n' << errors();

    for (const char* const settings : {"", "HOME=/dev/null"}) {  // the log folder can't be made
        EXPECT_EQ(run("reset", settings), 0) << "the button starts none";
        EXPECT_THAT(errors(), HasSubstr("No device found, waiting for connection\n")) << settings;
        EXPECT_THAT(errors(), ContainsRegex("Quit was chosen\n(DDFileLogger[^\n]*\n)*$")) << "no device was touched";
        EXPECT_EQ(errors().find("TRV-502 ") != std::string::npos, settings != std::string()) << settings;
    }
}

TEST_F(Process, LogsAnExceptionThatNobodyCatchesWithItsStack) {
    writeSettings("<key>logLevel</key><integer>1</integer>");  // errors alone
    const int status = run("throw");
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
    EXPECT_THAT(log(), HasSubstr(" | E | Exception: name: std::runtime_error reason: no more\n"));
    EXPECT_THAT(log(), testing::Not(HasSubstr(" | I | ")));
    EXPECT_THAT(log(), ContainsRegex(" [|] E [|] Stack:\n.+\n.+\n"));
}

}  // namespace
