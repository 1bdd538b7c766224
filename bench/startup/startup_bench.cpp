// Start to first painted frame, and private memory at that moment: the tool beside a window of the same toolkit that
// shows one line of text, in turn.
//   startup_bench TOOL BARE PRELOAD [ROUNDS]
#include "bench/Pairs.hpp"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

using bench::Median;
using bench::Quantile;

struct Start {
    double milliseconds = 0;
    double megabytes = 0;
};

Start start(const char* program) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) std::exit(2);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::string name = program;
    char* const arguments[] = {name.data(), nullptr};
    timespec before{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    pid_t child = 0;
    if (posix_spawn(&child, program, &actions, nullptr, arguments, environ) != 0) std::exit(2);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::FILE* output = fdopen(ends[0], "r");
    char line[512];
    long long painted = 0;
    long kilobytes = 0;
    while (std::fgets(line, sizeof line, output)) {
        if (std::sscanf(line, "FRAME %lld %ld", &painted, &kilobytes) == 2) break;
    }
    std::fclose(output);
    waitpid(child, nullptr, 0);
    if (painted == 0) {
        std::fprintf(stderr, "%s painted nothing\n", program);
        std::exit(2);
    }
    const long long began = before.tv_sec * 1000000000LL + before.tv_nsec;
    return {static_cast<double>(painted - began) / 1e6, static_cast<double>(kilobytes) / 1024};
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    setenv("LD_PRELOAD", argv[3], 1);
    if (!getenv("DISPLAY")) setenv("QT_QPA_PLATFORM", "offscreen", 0);
    const int rounds = argc > 4 ? std::atoi(argv[4]) : 15;
    start(argv[1]), start(argv[2]);  // warms the page cache
    bench::Pairs time, memory;
    for (int i = 0; i < rounds; ++i) {
        // Each begins every other round: what a start leaves behind is to harm or help both.
        const bool toolFirst = i % 2 == 0;
        const Start first = start(argv[toolFirst ? 1 : 2]);
        const Start second = start(argv[toolFirst ? 2 : 1]);
        const Start& a = toolFirst ? first : second;
        const Start& b = toolFirst ? second : first;
        time.Add(a.milliseconds, b.milliseconds);
        memory.Add(a.megabytes, b.megabytes);
    }
    std::printf(
        "first frame: tool %.1f ms, bare text %.1f ms, ratio %.3f, half of the rounds %.2f to %.2f (goal 1.10)\n",
        Median(time.Own()), Median(time.Peer()), Median(time.Ratios()), Quantile(time.Ratios(), 0.25),
        Quantile(time.Ratios(), 0.75));
    std::printf("memory: tool %.1f MB, bare text %.1f MB, difference %.1f MB (goal 10)\n", Median(memory.Own()),
                Median(memory.Peer()), Median(memory.Own()) - Median(memory.Peer()));
}
