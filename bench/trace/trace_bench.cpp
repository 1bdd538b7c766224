// What a trace on a switched-off server costs, beside the call of an empty function: at most the same.

#include "WIN/WIN_DebugServer.hpp"
#include "WIN/WIN_Trace.hpp"
#include "bench/Medians.hpp"
#include "bench/trace/empty.hpp"

#include <benchmark/benchmark.h>

#include <string>

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

    const auto medians = bench::MeasureMedians(argc, argv);
    if (!medians) return 1;
    for (const std::string name : {"PrintStr", "PrintData", "Trace"})
        bench::TellRatio(*medians, name + " to_empty_function", name, "empty", " goal 1.0");
    return 0;
}
