// What a trace on a switched-off server costs, beside the call of an empty function: at most the same.

#include "WIN/WIN_DebugServer.hpp"
#include "WIN/WIN_Trace.hpp"
#include "bench/trace/empty.hpp"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

template <typename Call>
void Measure(benchmark::State& state, Call call) {
    static win::DebugServer_t switchedOff{win::DebugServer_t::SwitchedOff_t{}};
    win::DebugServer_t* server = &switchedOff;
    for (auto _ : state) {
        benchmark::DoNotOptimize(server);  // the switch is looked at each time, as at a call of its own
        call(*server);
    }
}

/// Shows what the console shows, and keeps the medians.
class MedianReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.aggregate_name == "median") medians[run.run_name.function_name] = run.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }

    std::map<std::string, double> medians;  ///< nanoseconds of processor time
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark("empty", [](auto& state) { Measure(state, [](auto&) { bench::Empty("text\n"); }); });
    benchmark::RegisterBenchmark("PrintStr",
                                 [](auto& state) { Measure(state, [](auto& s) { s.PrintStr("text\n"); }); });
    benchmark::RegisterBenchmark("PrintData", [](auto& state) { Measure(state, [](auto& s) { s.PrintData(1234U); }); });
    benchmark::RegisterBenchmark("Trace", [](auto& state) {
        Measure(state, [](auto& s) {
            win::Trace(
                s, "Id: ", 1234U, " Size: ", [] { return std::string(99, 'x'); }, "\n");
        });
    });

    std::string defaults[] = {"--benchmark_enable_random_interleaving=true", "--benchmark_repetitions=15",
                              "--benchmark_min_time=0.05", "--benchmark_report_aggregates_only=true"};
    std::vector<char*> arguments{argv, argv + argc};
    // Before the caller's own, which win.
    for (std::string& option : defaults) arguments.insert(arguments.begin() + 1, option.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 1;
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const char* name : {"PrintStr", "PrintData", "Trace"}) {
        std::printf("ratio %s to_empty_function %.3f goal 1.0\n", name,
                    reporter.medians[name] / reporter.medians["empty"]);
    }
    return 0;
}
