#include "platform/linux/process/SignalScriptRunner.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <future>
#include <signal.h>
#include <stop_token>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace platform {
namespace {

namespace fs = std::filesystem;

/// A running copy of a program of the system under a name of the test's choice. The name is unique to the test process:
/// no other process is to be hit, and tests run side by side.
class Child {
  public:
    Child(const fs::path& folder, const std::string& name, bool stubborn = false) {
        const fs::path program = folder / name;
        fs::copy_file("/bin/sleep", program, fs::copy_options::skip_existing);
        int ready[2];
        EXPECT_EQ(::pipe2(ready, O_CLOEXEC), 0);
        mId = ::fork();
        if (mId == 0) {
            sigset_t blocked;
            ::sigemptyset(&blocked);
            ::sigaddset(&blocked, SIGTERM);
            ::sigprocmask(stubborn ? SIG_BLOCK : SIG_UNBLOCK, &blocked, nullptr);  // for what is run, too
            ::execl(program.c_str(), program.c_str(), "1000", nullptr);
            ::_exit(127);
        }
        ::close(ready[1]);
        char byte = 0;
        EXPECT_EQ(::read(ready[0], &byte, 1), 0);  // ends when exec closes the other side: now it has its name
        ::close(ready[0]);
    }
    ~Child() {
        ::kill(mId, SIGKILL);
        ::waitpid(mId, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    bool HasEnded() const {
        siginfo_t state{};
        EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(mId), &state, WEXITED | WNOHANG | WNOWAIT), 0);
        return state.si_pid == mId;
    }

    /// A stubborn one that has got the signal.
    bool WasAsked() const {
        const std::string status = support::ReadFile("/proc/" + std::to_string(mId) + "/status");
        return (std::stoull(status.substr(status.find("ShdPnd:") + 7), nullptr, 16) >> (SIGTERM - 1) & 1) != 0;
    }

  private:
    pid_t mId = -1;
};

class ScriptRunnerTest : public ::testing::Test {
  protected:
    static std::string Quit(const std::string& name) { return "tell application \"" + name + "\" to quit"; }

    const support::TemporaryFolder temporary;
    const fs::path folder = temporary.path();
    const std::string id = std::to_string(::getpid());
    SignalScriptRunner runner;
};

TEST(ScriptText, OnlyTheQuitRequestIsUnderstood) {
    EXPECT_EQ(applicationToQuit(R"(tell application "Trovik Station" to quit)"), "Trovik Station");
    EXPECT_EQ(applicationToQuit(R"(tell application "a\"b\\c" to quit)"), R"(a"b\c)");
    for (const char* wrong :
         {"", "tell application \"x\"", "tell application \"x\" to quit now", "tell application \"\" to quit",
          "tell application \"x to quit", "tell application \"x\\", " tell application \"x\" to quit"}) {
        EXPECT_FALSE(applicationToQuit(wrong)) << wrong;
        EXPECT_FALSE(SignalScriptRunner().executeAndReturnError(wrong, {})) << wrong;
    }
}

TEST_F(ScriptRunnerTest, EveryProcessOfTheExactNameQuitsAndNoOther) {
    const std::string shortName = "T " + id, longName = "Trovik Station Service " + id;
    const Child first(folder, shortName), second(folder, shortName), service(folder, longName);
    // The same 15 characters, as far as the kernel's own name goes.
    const Child sibling(folder, longName + "s"), cut(folder, longName.substr(0, 15));
    EXPECT_TRUE(runner.executeAndReturnError(Quit(shortName), {}));
    EXPECT_TRUE(first.HasEnded() && second.HasEnded());
    EXPECT_FALSE(service.HasEnded());
    EXPECT_TRUE(runner.executeAndReturnError(Quit(longName), {}));
    EXPECT_TRUE(service.HasEnded());
    EXPECT_FALSE(sibling.HasEnded() || cut.HasEnded());
    EXPECT_TRUE(runner.executeAndReturnError(Quit(longName), {}))
        << "an ended one that nobody waited for does not count";
}

TEST_F(ScriptRunnerTest, ProcessThatStaysMakesTheScriptFailInTheEndAndAtOnceWhenItIsStopped) {
    const std::string name = "stays " + id;
    const Child other(folder, name), child(folder, name, true);
    SignalScriptRunner patient(std::chrono::hours(1));
    std::stop_source stop;
    auto ended =
        std::async(std::launch::async, [&] { return patient.executeAndReturnError(Quit(name), stop.get_token()); });
    while (!child.WasAsked()) std::this_thread::yield();
    stop.request_stop();
    EXPECT_FALSE(ended.get());
    EXPECT_FALSE(SignalScriptRunner(std::chrono::milliseconds(50)).executeAndReturnError(Quit(name), {}));
    EXPECT_FALSE(child.HasEnded());
}

TEST_F(ScriptRunnerTest, ShellCommandGivesItsExitStatus) {
    EXPECT_EQ(runner.system("exit 3"), 3);
    EXPECT_EQ(runner.system("kill -9 $$"), 128 + SIGKILL);
}

}  // namespace
}  // namespace platform
