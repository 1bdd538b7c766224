#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace bench {

/// By the name of the benchmark, in nanoseconds of processor time.
using Medians = std::map<std::string, double>;

/// Shows what the console shows, and keeps the medians.
class MedianReporter : public benchmark::ConsoleReporter {
  public:
    MedianReporter() : ConsoleReporter(OO_Tabular) {}  // no colours: scripts read this

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) hasFailed = true;
            if (run.aggregate_name == "median") medians[run.run_name.function_name] = run.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }

    Medians medians;
    bool hasFailed = false;
};

/// Runs what is registered: repetitions interleaved, so that ratios of the medians stand in one run whatever else the
/// machine does.
/// @return nothing where an argument is unknown or a benchmark has failed
inline std::optional<Medians> MeasureMedians(int argc, char** argv) {
    std::string defaults[] = {"--benchmark_enable_random_interleaving=true", "--benchmark_repetitions=15",
                              "--benchmark_min_time=0.05", "--benchmark_report_aggregates_only=true"};
    std::vector<char*> arguments{argv, argv + argc};
    // Before the caller's own, which win.
    for (std::string& option : defaults) arguments.insert(arguments.begin() + 1, option.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return std::nullopt;
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    if (reporter.hasFailed) return std::nullopt;
    return reporter.medians;
}

/// Prints "ratio <label> <value><goal>" for scripts, or nothing where one of the two benchmarks was filtered out.
/// @param goal  " goal 1.2", or empty
inline void TellRatio(const Medians& medians, const std::string& label, const std::string& own, const std::string& peer,
                      const char* goal) {
    const auto ours = medians.find(own), other = medians.find(peer);
    if (ours == medians.end() || other == medians.end()) return;
    std::printf("ratio %s %.3f%s\n", label.c_str(), ours->second / other->second, goal);
}

}  // namespace bench
