// trovik-reset for 1, 4, 16 and 40 devices at once on an emulated bus (umockdev): processor time, memory and
// descriptors, beside a program of bare libusb that has a thread for each device and makes the same transfers. The two
// take turns, round by round. Each is a process of its own, so that nothing of the bus is counted but what its preload
// library does in it.
//   twin_bench TROVIK_RESET BARE_MANY [ROUNDS]
#include "bench/Pairs.hpp"
#include "simulator/umock/UmockUsb.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Command = std::vector<std::string>;
using simulator::Device;
using simulator::RecordEntry;
using simulator::Time;

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "twin_bench: %s\n", what.c_str());
    std::exit(1);
}

/// What a process took.
struct Cost {
    double milliseconds = 0;  ///< of processor time
    double megabytes = 0;     ///< the most that was resident
    double descriptors = 0;   ///< the most that were seen open
};

double median(const std::vector<Cost>& costs, double Cost::*member) {
    std::vector<double> values;
    for (const Cost& cost : costs) values.push_back(cost.*member);
    return bench::Median(std::move(values));
}

class Bench {
  public:
    Bench(std::string twin, std::string peer) : mTwin(std::move(twin)), mPeer(std::move(peer)) {
        char name[] = "/tmp/twin_bench.XXXXXX";
        if (!::mkdtemp(name)) fail("no folder");
        mFolder = name;
        ::setenv("HOME", name, 1);
        ::setenv("XDG_RUNTIME_DIR", name, 1);
        ::unsetenv("XDG_STATE_HOME");
        ::unsetenv("XDG_DATA_HOME");
        ::setenv("LD_PRELOAD", "libumockdev-preload.so.0", 1);  // for the programs that are started
    }
    ~Bench() {
        std::error_code ignored;
        fs::remove_all(mFolder, ignored);
    }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    void many(int rounds) {
        plugUpTo(1, std::chrono::milliseconds(50));
        run(twinCommand());
        record();
        std::printf("  devices  CPU ms  bare    MB     bare    descriptors  bare\n");
        std::map<std::size_t, std::pair<Cost, Cost>> costs;
        for (const std::size_t count : {1U, 4U, 16U, 40U}) {
            plugUpTo(count, std::chrono::milliseconds(50));
            std::vector<Cost> ours, bare;
            for (int i = 0; i < rounds; ++i) {
                ours.push_back(run(twinCommand()));
                bare.push_back(run({mPeer, recording()}));
            }
            costs[count] = {middle(ours), middle(bare)};
            const auto& [a, b] = costs[count];
            std::printf("  %7zu  %6.1f  %6.1f  %5.1f  %5.1f   %11.0f  %4.0f\n", count, a.milliseconds, b.milliseconds,
                        a.megabytes, b.megabytes, a.descriptors, b.descriptors);
        }
        tell("processor time", "ms", costs, &Cost::milliseconds);
        tell("memory", "MB", costs, &Cost::megabytes);
        tell("descriptors", "", costs, &Cost::descriptors);
    }

  private:
    using Costs = std::map<std::size_t, std::pair<Cost, Cost>>;

    static Cost middle(const std::vector<Cost>& costs) {
        return {median(costs, &Cost::milliseconds), median(costs, &Cost::megabytes), median(costs, &Cost::descriptors)};
    }

    /// What each further device costs, and whether the last ones cost more than the first ones.
    static void tell(const char* what, const char* unit, const Costs& costs, double Cost::*member) {
        const auto each = [&](std::size_t from, std::size_t to, auto side) {
            return (costs.at(to).*side.*member - costs.at(from).*side.*member) / static_cast<double>(to - from);
        };
        using Pair = Costs::mapped_type;
        const double ours = each(1, 40, &Pair::first), bare = each(1, 40, &Pair::second);
        std::printf(
            "%s of each further device: %.2f %s, bare libusb %.2f, ratio %.2f (goal 1.20); from 16 to 40 beside 1 "
            "to 16: %.2f (linear: 1), bare %.2f\n",
            what, ours, unit, bare, ours / bare, each(16, 40, &Pair::first) / each(1, 16, &Pair::first),
            each(16, 40, &Pair::second) / each(1, 16, &Pair::second));
    }

    Command twinCommand() const { return {mTwin, "reset", "--all", "--yes", "--keep-station"}; }
    std::string recording() const { return mFolder / "recording"; }

    /// The cables of so many are in, those of the others out; all are away for that long when they restart.
    void plugUpTo(std::size_t count, simulator::Duration away) {
        while (mDevices < count) {
            auto profile = simulator::Profile::handheld();
            profile.unitId = static_cast<std::uint32_t>(++mDevices);
            mUsb.addDevice(profile);
        }
        for (std::size_t port = 0; port < mDevices; ++port) {
            if (port >= count && mUsb.isAttached(port)) mUsb.unplug(port);
            mUsb.withDevice(port, [&](Device& device, Time) {
                device.profile().rebootTime = *(device.profile().bootTime = away);
                // One after the other: the emulation ends when too many events wait for a program to read them.
                device.profile().leaveDelay = std::chrono::milliseconds(20 + 10 * port);
            });
            if (port < count && !mUsb.isAttached(port)) mUsb.plug(port);
        }
        mPlugged = count;
    }

    void record() {
        mUsb.withDevice(0, [&](Device& device, Time) {
            std::ofstream file(recording());
            for (const auto& entry : device.record().entries()) {
                const bool isReceived = entry.kind == RecordEntry::Kind::Received;
                if (!isReceived && entry.kind != RecordEntry::Kind::Sent) continue;
                file << (isReceived ? "> " : "< ");
                for (const unsigned char byte : entry.bytes) {
                    char digits[3];
                    std::snprintf(digits, sizeof digits, "%02X", byte);
                    file << digits;
                }
                file << '\n';
            }
        });
    }

    /// Runs a program that has to reset all devices.
    Cost run(const Command& command) {
        if (!mUsb.waitUntilClosed()) fail("a device was not closed");
        for (std::size_t port = 0; port < mPlugged; ++port) {
            mUsb.withDevice(port, [](Device& device, Time) {
                device.store() = simulator::SettingsStore::wellUsed();
                device.record().clear();
            });
        }
        const Cost cost = runProgram(command);
        for (std::size_t port = 0; port < mPlugged; ++port) {
            mUsb.withDevice(port, [](Device& device, Time) {
                if (!device.store().empty() || !device.record().refused().empty()) fail("a reset was not carried out");
                if (device.bootState() != simulator::BootState::Running) fail("a device has not started");
            });
        }
        return cost;
    }

    Cost runProgram(const Command& command) const {
        std::vector<char*> arguments;
        for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        const std::string said = mFolder / "said";
        // Not a fork: until it has become the program, a look finds the descriptors and the memory of this process. For
        // the same reason the first look comes after a pause: the descriptors are closed a moment after this returns.
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, said.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        pid_t child = -1;
        const int error = ::posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
        ::posix_spawn_file_actions_destroy(&actions);
        if (error != 0) fail(command[0] + ": " + std::strerror(error));
        Cost cost;
        int status = 0;
        rusage used{};
        while (::wait4(child, &status, WNOHANG, &used) == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            look(child, cost);
        }
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            std::stringstream text;
            text << std::ifstream(said).rdbuf();
            fail(command[0] + " failed: " + text.str());
        }
        const auto milliseconds = [](const timeval& time) {
            return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
        };
        cost.milliseconds = milliseconds(used.ru_utime) + milliseconds(used.ru_stime);
        return cost;
    }

    /// The high-water mark of the memory is the kernel's own; that of the descriptors is what these looks see.
    static void look(pid_t process, Cost& cost) {
        const std::string folder = "/proc/" + std::to_string(process);
        std::ifstream status(folder + "/status");
        long kilobytes = 0;
        for (std::string line; std::getline(status, line);) std::sscanf(line.c_str(), "VmHWM: %ld", &kilobytes);
        cost.megabytes = std::max(cost.megabytes, static_cast<double>(kilobytes) / 1024);
        std::error_code gone;
        const auto open = std::distance(fs::directory_iterator(folder + "/fd", gone), fs::directory_iterator());
        cost.descriptors = std::max(cost.descriptors, static_cast<double>(open));
    }

    simulator::UmockUsb mUsb;  // first: before any look at the devices
    const std::string mTwin, mPeer;
    fs::path mFolder;
    std::size_t mDevices = 0, mPlugged = 0;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);  // the emulation may end the process
    Bench bench(argv[1], argv[2]);
    const int rounds = argc > 3 ? std::atoi(argv[3]) : 9;
    bench.many(rounds);
}
