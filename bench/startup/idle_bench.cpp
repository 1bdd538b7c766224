// Wake-ups of the idle tool: how often each of its threads was scheduled in a span of time with nobody touching it.
//   idle_bench TOOL [SECONDS]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <signal.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace {

struct Task {
    std::string name;
    long switches = 0;
};

std::map<std::string, Task> tasks(pid_t process) {
    std::map<std::string, Task> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        std::ifstream status(entry.path() / "status");
        Task task;
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("Name:")) task.name = line.substr(6);
            if (line.find("ctxt_switches:") != std::string::npos)
                task.switches += std::stol(line.substr(line.find(':') + 1));
        }
        found[entry.path().filename()] = task;
    }
    return found;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    const int seconds = argc > 2 ? std::atoi(argv[2]) : 10;
    if (!getenv("DISPLAY")) setenv("QT_QPA_PLATFORM", "offscreen", 0);
    std::string name = argv[1];
    char* const arguments[] = {name.data(), nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, argv[1], nullptr, nullptr, arguments, environ) != 0) return 2;
    std::this_thread::sleep_for(std::chrono::seconds(3));  // start-up is over
    const auto before = tasks(child);
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const auto after = tasks(child);
    long total = 0;
    for (const auto& [id, task] : after) {
        const auto it = before.find(id);
        const long count = task.switches - (it == before.end() ? 0 : it->second.switches);
        total += count;
        std::printf("  %-16s %ld\n", task.name.c_str(), count);
    }
    std::printf("idle: %ld wake-ups of %zu threads in %d s (goal 0)\n", total, after.size(), seconds);
    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
}
