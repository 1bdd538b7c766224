// explore SEED... | --count N [--first S]: carries out worlds, each in a process of its own. A world that fails is made
// as small as possible, and the command that replays it is printed.
#include "explore/Baton.hpp"
#include "explore/Plan.hpp"
#include "explore/World.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <stdlib.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace explore {
namespace {

int gReport = -1;  ///< in a world's process: where its parent reads

void report(char kind, const std::string& what) {
    const std::string line = kind + what + "\n";
    if (gReport >= 0) static_cast<void>(!write(gReport, line.data(), line.size()));
}

}  // namespace

void fail(const std::string& what) {
    report('!', what);
    std::fflush(stdout);
    _exit(1);
}

void fact(const std::string& what) {
    report('=', what);
}

namespace {

constexpr unsigned kPatience = 20;  ///< seconds of real time for one world

/// One world's process. It is forked, so that it shares no process-wide object with another world, and an assertion or
/// a crash is a result like any other.
class Child {
  public:
    Child(const Plan& plan, const std::filesystem::path& folder, bool traces)
        : mFolder(folder / std::to_string(plan.seed)) {
        int ends[2];
        if (pipe(ends) != 0) std::abort();
        std::filesystem::remove_all(mFolder);
        std::filesystem::create_directory(mFolder);
        std::fflush(stdout);
        mProcess = fork();
        if (mProcess == 0) {
            close(ends[0]);
            gReport = ends[1];
            alarm(kPatience);
            run(plan, mFolder,
                traces ? [](const std::string& line) { std::puts(line.c_str()); }
                       : std::function<void(const std::string&)>());
            std::fflush(stdout);
            _exit(0);  // flows may be abandoned in it
        }
        close(ends[1]);
        mReport = ends[0];
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// Waits for its end. @return what has failed
    std::optional<std::string> end(std::map<std::string, std::size_t>& facts) {
        std::string text;
        char buffer[4096];
        for (ssize_t size = 0; (size = read(mReport, buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<std::size_t>(size));
        close(mReport);
        int status = 0;
        waitpid(mProcess, &status, 0);
        std::filesystem::remove_all(mFolder);
        std::optional<std::string> failure;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with('=')) ++facts[line.substr(1)];
            if (line.starts_with('!')) failure = line.substr(1);
        }
        if (!failure && status != 0)
            failure = WIFSIGNALED(status) ? "Signal " + std::to_string(WTERMSIG(status)) : "It ended by itself.";
        return failure;
    }

  private:
    std::filesystem::path mFolder;
    pid_t mProcess = -1;
    int mReport = -1;
};

std::optional<std::string> failureOf(const Plan& plan, const std::filesystem::path& folder) {
    std::map<std::string, std::size_t> facts;
    return Child(plan, folder, false).end(facts);
}

/// Leaves events out, one after the other, as long as the world fails without them.
std::vector<std::size_t> shrink(const Plan& whole, const std::filesystem::path& folder, std::string& failure) {
    std::vector<std::size_t> kept(whole.events.size());
    for (std::size_t i = 0; i < kept.size(); ++i) kept[i] = i;
    for (std::size_t i = kept.size(); i-- > 0;) {
        auto fewer = kept;
        fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(i));
        if (const auto still = failureOf(whole.only(fewer), folder)) {
            kept = fewer;
            failure = *still;
            i = kept.size();  // from the start: what could not be left out before may now
        }
    }
    return kept;
}

void tell(const Plan& whole, const std::filesystem::path& folder, std::string failure) {
    std::cout << "seed " << whole.seed << " fails: " << failure << "\n";
    const auto kept = shrink(whole, folder, failure);
    std::string only;
    for (const auto index : kept) only += (only.empty() ? "" : ",") + std::to_string(index);
    std::cout << "at its smallest: " << failure << "\n" << whole.only(kept).text() << "  explore " << whole.seed;
    if (kept.size() < whole.events.size()) std::cout << " --only " << (only.empty() ? "none" : only);
    std::cout << " --trace" << std::endl;
}

int main(int argc, char** argv) {
    CLI::App app("Explores the whole system on simulated devices in simulated time.", "explore");
    std::vector<std::uint64_t> seeds;
    std::uint64_t first = 1, count = 0;
    std::size_t most = 5;
    unsigned processes = std::max(1U, std::thread::hardware_concurrency());
    std::string only;
    bool traces = false, facts = false;
    app.add_option("SEED", seeds, "worlds");
    app.add_option("--count", count, "so many worlds");
    app.add_option("--first", first, "the first of them");
    app.add_option("--most", most, "ends after so many failures");
    app.add_option("--processes", processes, "worlds at a time");
    app.add_option("--only", only, "of the events those of these numbers, or none");
    app.add_flag("--trace", traces, "prints all that happens");
    app.add_flag("--facts", facts, "prints how often what was reached");
    CLI11_PARSE(app, argc, argv);
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    for (std::uint64_t i = 0; i < count; ++i) seeds.push_back(first + i);

    std::string pattern = std::filesystem::temp_directory_path() / "explore-XXXXXX";
    if (!mkdtemp(pattern.data())) return 1;
    const std::filesystem::path folder = pattern;
    setenv("XDG_RUNTIME_DIR", pattern.c_str(), 1);  // of the window's toolkit
    std::map<std::string, std::size_t> reached;
    std::size_t failures = 0;
    std::deque<std::pair<Plan, Child>> running;
    const auto endOne = [&] {
        auto& [plan, child] = running.front();
        const auto failure = child.end(reached);
        if (failure && ++failures <= most && !traces) tell(plan, folder, *failure);
        if (failure && traces) std::cout << "fails: " << *failure << std::endl;
        running.pop_front();
    };
    const auto began = std::chrono::steady_clock::now();
    std::size_t done = 0;
    for (const std::uint64_t seed : seeds) {
        if (failures >= most) break;
        Plan plan = Plan::of(seed);
        if (only == "none")
            plan.events.clear();
        else if (!only.empty()) {
            std::vector<std::size_t> kept;
            for (const auto& number : CLI::detail::split(only, ',')) kept.push_back(std::stoul(number));
            plan = plan.only(kept);
        }
        if (traces) std::cout << plan.text() << std::flush;
        if (running.size() >= processes) endOne();
        running.emplace_back(std::piecewise_construct, std::forward_as_tuple(plan),
                             std::forward_as_tuple(plan, folder, traces));
        ++done;
    }
    while (!running.empty()) endOne();
    std::filesystem::remove_all(folder);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
    if (facts) {
        for (const auto& [what, times] : reached) std::cout << times << "\t" << what << "\n";
    }
    if (!traces)
        std::cout << done << " worlds in " << static_cast<int>(took.count()) << " s, " << failures << " failed\n";
    return failures == 0 ? 0 : 1;
}

}  // namespace
}  // namespace explore

int main(int argc, char** argv) {
    return explore::main(argc, argv);
}
