// trovik-simulator: runs a program on a simulated USB bus, behind the real libusb and libudev, so that it can be tried
// out or tested on a machine without a device.
#include "simulator/umock/UmockUsb.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr char kUsage[] =
    "Usage: trovik-simulator run [OPTION]... [--] PROGRAM [ARGUMENT]...\n"
    "       trovik-simulator faults\n"
    "Runs a program with a simulated device attached, behind the real libusb and libudev. Ends with the program's "
    "status\n"
    "and a line on standard error; with 1 where that is 0 but the device had to refuse something.\n"
    "\n"
    "  --profile NAME   attaches a handheld (what there is without this option), wearable, old or instant device; may "
    "be\n"
    "                   given several times\n"
    "  --fault NAME     has the first device commit that fault once; may be given several times (faults lists them)\n"
    "  --reset          1 also where the first device's settings store is not empty at the end\n";

struct Options {
    std::vector<simulator::Profile> profiles;
    std::vector<simulator::Fault> faults;
    bool mustBeReset = false;
    char** command = nullptr;
};

Options parse(char** argument) {
    Options options;
    for (; *argument && **argument == '-'; ++argument) {
        const std::string option = *argument;
        if (option == "--") {
            ++argument;
            break;
        }
        if (option == "--reset") {
            options.mustBeReset = true;
            continue;
        }
        const char* const name = argument[1];
        if ((option != "--profile" && option != "--fault") || !name) throw std::runtime_error(kUsage);
        ++argument;
        if (option == "--profile") {
            const auto profile = simulator::Profile::named(name);
            if (!profile) throw std::runtime_error("no profile is called " + std::string(name) + "\n");
            options.profiles.push_back(*profile);
        } else {
            const auto& faults = simulator::faultCatalogue();
            const auto fault = std::ranges::find(faults, name, &simulator::Fault::name);
            if (fault == faults.end()) throw std::runtime_error("no fault is called \"" + std::string(name) + "\"\n");
            options.faults.push_back(*fault);
        }
    }
    if (options.profiles.empty()) options.profiles.push_back(simulator::Profile::handheld());
    if (!*argument) throw std::runtime_error(kUsage);
    options.command = argument;
    return options;
}

/// Runs the program behind umockdev's preload library, which finds the bus through the environment.
/// @return its exit status as a shell would tell it
int runOnBus(char** command) {
    const pid_t child = fork();
    if (child == 0) {
        setenv("LD_PRELOAD", "libumockdev-preload.so.0", 1);
        execvp(command[0], command);
        std::perror(command[0]);
        _exit(127);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) throw std::runtime_error("no process is to be had\n");
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int run(const Options& options) {
    simulator::UmockUsb bus;
    std::vector<std::size_t> ports;
    for (const auto& profile : options.profiles) ports.push_back(bus.addDevice(profile));
    bus.withDevice(ports.front(), [&](simulator::Device& device, simulator::Time) {
        for (const auto& fault : options.faults) device.addFault(fault);
    });
    bus.plug(ports);
    const int status = runOnBus(options.command);

    bool isReset = true;
    std::size_t refused = 0;
    for (const std::size_t port : ports) {
        bus.withDevice(port, [&](const simulator::Device& device, simulator::Time) {
            if (port == ports.front()) isReset = device.store().entries().empty();
            for (const auto& refusal : device.record().refused()) {
                std::fprintf(stderr, "trovik-simulator: device %zu refused: %s\n", port, refusal.c_str());
                ++refused;
            }
        });
    }
    std::fprintf(stderr, "trovik-simulator: %s ended with status %d, %s; %zu refused\n", options.command[0], status,
                 isReset ? "the settings store is empty" : "the settings store holds settings", refused);
    if (status != EXIT_SUCCESS) return status;
    return refused == 0 && (isReset || !options.mustBeReset) ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc == 2 && std::strcmp(argv[1], "faults") == 0) {
            for (const auto& fault : simulator::faultCatalogue()) std::puts(fault.name.c_str());
            return EXIT_SUCCESS;
        }
        if (argc == 2 && std::strcmp(argv[1], "--help") == 0) return std::fputs(kUsage, stdout), EXIT_SUCCESS;
        if (argc < 3 || std::strcmp(argv[1], "run") != 0) throw std::runtime_error(kUsage);
        return run(parse(argv + 2));
    } catch (const std::exception& error) {
        std::fputs(error.what(), stderr);
        return 2;
    }
}
