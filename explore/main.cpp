// explore SEED... | --count N [--first S]: carries out worlds, each in a process of its own. A world that fails is made
// as small as possible, and the command that replays it is printed.
#include "explore/Plan.hpp"
#include "explore/Report.hpp"
#include "explore/World.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <numeric>
#include <optional>
#include <sched.h>
#include <stdlib.h>
#include <string>
#include <string_view>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace explore {
namespace {

std::ofstream gReport;  ///< in a world's process: what its parent reads afterwards
bool gIsTraced = false;

}  // namespace

void fail(const std::string& what) {
    gReport << '!' << what << std::endl;
    _exit(1);
}

void fact(std::string_view kind, std::string_view what) {
    gReport << kind << ": " << what << std::endl;
}

void trace(const std::string& line) {
    if (gIsTraced) std::cout << line << std::endl;  // a crash loses none
}

namespace {

constexpr unsigned kPatience = 20;       ///< seconds of processor time for one world
constexpr unsigned kLastPatience = 200;  ///< seconds of real time
constexpr const char* kReport = "report";

/// Has the calling process run on one processor: of a world's flows one runs at a time, and handing the baton to a
/// thread of the same processor takes half as long. Where it may not run there, it stays where it is.
void runOn(std::size_t number) {
    cpu_set_t chosen{};
    CPU_SET(number % std::max(1U, std::thread::hardware_concurrency()), &chosen);
    sched_setaffinity(0, sizeof chosen, &chosen);
}

/// One world's process. It is forked, so that it shares no process-wide object with another world, and an assertion or
/// a crash is a result like any other.
struct Child {
    /// @param number  of the worlds that run at a time; it is on a processor of its own as far as there are enough
    Child(Plan carriedOut, const std::filesystem::path& parent, std::size_t number = 0)
        : plan(std::move(carriedOut)), folder(parent / std::to_string(plan.seed)) {
        std::filesystem::create_directory(folder);
        process = fork();
        if (process < 0) std::exit((std::perror("No process can be made"), 1));
        if (process != 0) return;
        gReport.open(folder / kReport);
        const itimerval patience{{}, {kPatience, 0}};
        setitimer(ITIMER_PROF, &patience, nullptr);
        alarm(kLastPatience);
        runOn(number);
        run(plan, folder);
        _exit(0);  // flows may be abandoned in it
    }

    /// Waits for its end.
    /// @param facts  is given what the world has reached, between tabs in one line
    /// @return what has failed
    std::optional<std::string> end(std::ostream* facts = nullptr) const {
        int status = 0;
        std::optional<std::string> failure;
        if (waitpid(process, &status, 0) != process) failure = "Nobody knows how its process ended.";
        std::ifstream lines(folder / kReport);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with('!')) failure = line.substr(1);
            if (facts) *facts << line << '\t';
        }
        if (facts) *facts << std::endl;
        std::filesystem::remove_all(folder);
        if (!failure && status != 0)
            failure = WIFSIGNALED(status) ? "Signal " + std::to_string(WTERMSIG(status)) : "It ended by itself.";
        return failure;
    }

    const Plan plan;
    const std::filesystem::path folder;
    pid_t process = -1;
};

/// Leaves events out, one after the other, as long as the world fails without them, and tells what is left.
void tellSmallest(const Plan& whole, const std::filesystem::path& folder, std::string failure) {
    std::cout << "seed " << whole.seed << " fails: " << failure << std::endl;
    std::vector<std::size_t> kept(whole.events.size());
    std::iota(kept.begin(), kept.end(), 0);
    for (std::size_t i = kept.size(); i-- > 0;) {
        auto fewer = kept;
        fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(i));
        if (const auto still = Child(whole.only(fewer), folder).end()) {
            kept = fewer;
            failure = *still;
            i = kept.size();  // from the start: what could not be left out before may now
        }
    }
    std::cout << "at its smallest: " << failure << "\n" << whole.only(kept).text() << "  explore " << whole.seed;
    const char* separator = " --only ";
    for (const auto index : kept) std::cout << std::exchange(separator, ",") << index;
    std::cout << (kept.empty() ? " --plain" : "") << " --trace" << std::endl;
}

}  // namespace
}  // namespace explore

int main(int argc, char** argv) {
    using namespace explore;
    CLI::App app("Explores the whole system on simulated devices in simulated time.", "explore");
    std::vector<std::uint64_t> seeds;
    std::uint64_t first = 1, count = 0;
    std::size_t processes = std::max(1U, std::thread::hardware_concurrency());
    std::vector<std::size_t> only;
    bool isPlain = false, facts = false;
    app.add_option("SEED", seeds, "worlds");
    app.add_option("--count", count, "so many worlds, but none after one has failed");
    app.add_option("--first", first, "the first of them");
    app.add_option("--processes", processes, "worlds at a time")->check(CLI::Range(1, 1024));
    app.add_option("--only", only, "of the events those of these numbers")->delimiter(',')->allow_extra_args(false);
    app.add_flag("--plain", isPlain, "none of the events");
    app.add_flag("--trace", gIsTraced, "prints all that happens");
    app.add_flag("--facts", facts, "prints what each world has reached, in a line");
    CLI11_PARSE(app, argc, argv);
    if (gIsTraced) processes = 1;  // one world's lines after the other's
    for (std::uint64_t i = 0; i < count; ++i) seeds.push_back(first + i);
    if (seeds.empty()) {
        std::cerr << "No world is named.\n";
        return 2;
    }
    const auto lacks = [&](std::uint64_t seed) { return std::ranges::max(only) >= Plan::of(seed).events.size(); };
    if (!only.empty() && std::ranges::any_of(seeds, lacks)) {
        std::cerr << "There is no event " << std::ranges::max(only) << ".\n";
        return 2;
    }

    std::string pattern = std::filesystem::temp_directory_path() / "explore-XXXXXX";
    if (!mkdtemp(pattern.data())) return 1;
    const std::filesystem::path folder = std::filesystem::canonical(pattern);
    setenv("TZ", "UTC", 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    setenv("XDG_RUNTIME_DIR", pattern.c_str(), 1);  // of the window's toolkit
    std::size_t done = 0, failures = 0;
    std::deque<Child> running;
    const auto endOne = [&] {
        const Child& child = running.front();
        const auto failure = child.end(facts ? &std::cout : nullptr);
        if (failure && gIsTraced) std::cout << "fails: " << *failure << std::endl;
        if (failure && !gIsTraced) tellSmallest(child.plan, folder, *failure);
        failures += failure ? 1 : 0;
        running.pop_front();
        ++done;
    };
    for (const std::uint64_t seed : seeds) {
        if (running.size() >= processes) endOne();
        if (failures > 0) break;
        const Plan plan = only.empty() && !isPlain ? Plan::of(seed) : Plan::of(seed).only(only);
        trace(plan.text());
        running.emplace_back(plan, folder, (done + running.size()) % processes);
    }
    while (!running.empty()) endOne();
    std::filesystem::remove_all(folder);
    if (!gIsTraced) std::cout << done << " worlds, " << failures << " failed\n";
    return failures == 0 ? 0 : 1;
}
