#include "simulator/umock/ProgramOnBus.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>
extern "C" {  // glibc 2.36 forgets to say so itself
#include <sys/pidfd.h>
}

namespace simulator {
namespace {

constexpr int kGrace = 10'000;                                                  // milliseconds
constexpr std::chrono::milliseconds kLongest{std::numeric_limits<int>::max()};  // that poll can wait

}  // namespace

ProgramOnBus::ProgramOnBus(char** command) : mStop(eventfd(0, EFD_CLOEXEC)) {
    mId = fork();
    if (mId == 0) {
        setenv("LD_PRELOAD", "libumockdev-preload.so.0", 1);
        execvp(command[0], command);
        std::perror(command[0]);
        _exit(127);
    }
    mProcess = platform::FileDescriptor(mId > 0 ? pidfd_open(mId, 0) : -1);
    if (!mStop || !mProcess) throw std::runtime_error("no process is to be had\n");
}

void ProgramOnBus::stop() noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(mStop.get(), &one, sizeof one);  // can't fail before 2^64 - 1 of them
}

bool ProgramOnBus::endsBefore(std::chrono::steady_clock::time_point moment) const {
    pollfd files[] = {{mProcess.get(), POLLIN, 0}, {mStop.get(), POLLIN, 0}};
    return platform::uninterrupted([&] {
               using std::chrono::milliseconds;
               const auto left = std::chrono::ceil<milliseconds>(moment - std::chrono::steady_clock::now());
               return poll(files, 2, static_cast<int>(std::clamp(left, milliseconds(0), kLongest).count()));
           }) > 0;
}

int ProgramOnBus::wait() {
    pollfd files[] = {{mProcess.get(), POLLIN, 0}, {mStop.get(), POLLIN, 0}};
    platform::uninterrupted([&] { return poll(files, 2, -1); });
    if (files[0].revents == 0) {
        kill(mId, SIGTERM);
        if (platform::uninterrupted([&] { return poll(files, 1, kGrace); }) == 0) kill(mId, SIGKILL);
    }
    int status = 0;
    if (waitpid(mId, &status, 0) != mId) throw std::runtime_error("the program's end is not to be had\n");
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace simulator
