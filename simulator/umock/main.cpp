// Runs a program on a simulated USB bus with one device attached, so that an installed tool can be tried out on a
// machine without one. Status 0: the program ended with 0, the device's settings store is empty, and the device had
// nothing to refuse.
#include "simulator/umock/UmockUsb.hpp"

#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Runs the program behind umockdev's preload library, which finds the bus through the environment.
/// @return its wait status, -1 when it could not be started
int runOnBus(char** command) {
    const pid_t child = fork();
    if (child == 0) {
        setenv("LD_PRELOAD", "libumockdev-preload.so.0", 1);
        execvp(command[0], command);
        std::perror(command[0]);
        _exit(127);
    }
    int status = -1;
    return child > 0 && waitpid(child, &status, 0) == child ? status : -1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs("Usage: trovik-simulated-bus PROGRAM [ARGUMENT]...\n", stderr);
        return 2;
    }
    simulator::UmockUsb bus;
    bus.addDevice(simulator::Profile::handheld());
    bus.plug();
    const int status = runOnBus(argv + 1);

    std::size_t left = 0;
    std::size_t refused = 0;
    bus.withDevice(0, [&](simulator::Device& device, simulator::Time) {
        left = device.store().entries().size();
        refused = device.record().refused().size();
    });
    std::printf("%s %s %d; settings left on the device: %zu; refused by it: %zu\n", argv[1],
                WIFEXITED(status) ? "ended with status" : "was ended by signal",
                WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status), left, refused);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 && left == 0 && refused == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
