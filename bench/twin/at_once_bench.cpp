// How long sixteen simulated devices take that are away for a second, twice, each time that they restart, beside one of
// them; in process, in real time. The two take turns, and the ratio is taken pair by pair.
//   at_once_bench [ROUNDS]
#include "bench/Pairs.hpp"
#include "cli/Commands.hpp"
#include "cli/Scenario.hpp"
#include "cli/UsbGate.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "simulator/engine/RealTimeDrive.hpp"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <system_error>

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "at_once_bench: %s\n", what.c_str());
    std::exit(1);
}

double seconds(std::uint32_t devices, const std::string& folder) {
    twin::Scenario scenario;
    scenario.arguments = {"reset", "--all", "--yes", "--keep-station"};
    for (std::uint32_t unit = 1; unit <= devices; ++unit) {
        auto profile = simulator::Profile::handheld();
        profile.unitId = unit;
        profile.rebootTime = *(profile.bootTime = std::chrono::seconds(1));
        scenario.devices.push_back({profile});
    }
    simulator::RealTimeDrive drive;
    twin::ScenarioWorld world(scenario, drive);
    platform::AsioRunLoops loops;
    twin::GatedRegistry registry(world.bus());
    twin::ScenarioScripts scripts({});
    twin::ThreadWorkers workers;
    const platform::PlatformScope scope({.runLoops = &loops,
                                         .masterPort = &registry,
                                         .scriptRunner = &scripts,
                                         .log = [](const std::string&) {},
                                         .lockFolder = folder});
    std::stringstream text;
    twin::Status status = twin::Status::Done;
    const auto options = twin::parse(scenario.arguments, "1", text, text, status);
    if (!options) fail(text.str());
    drive.start(world);
    const auto start = Clock::now();
    status = twin::run(
        *options,
        {.out = text, .people = text, .workers = workers, .journalFolder = folder + "/journal", .version = "1"});
    const double taken = std::chrono::duration<double>(Clock::now() - start).count();
    drive.requestStop();
    drive.join();
    if (status != twin::Status::Done) fail(text.str());
    return taken;
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 7;
    char folder[] = "/tmp/at_once_bench.XXXXXX";
    if (!::mkdtemp(folder)) fail("no folder");
    bench::Pairs pairs;
    for (int i = 0; i < rounds; ++i) {
        const double sixteen = seconds(16, folder);
        pairs.Add(sixteen, seconds(1, folder));
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    pairs.Tell("sixteen devices that are away for a second, twice", "one", "s", 2, " (goal 1.10)");
}
