// Encodes and decodes the 64-byte position record and a protocol list of 40 entries: through packet and frame, through
// a reused standard string stream, and through a bounds-checked cursor written by hand. Repetitions are interleaved and
// medians compared, so the ratios stand in one run whatever else the machine does. At the end the ratios are printed,
// one line each, for scripts:
//
//   ratio <record> to_stringstream <value> goal 0.333
//   ratio <record> to_cursor <value>

#include "IOA/IOA_Protocols.hpp"
#include "IOA/IOA_PvtData.hpp"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t kEntries = 40;

ioa::PvtData_t SamplePvt() {
    ioa::PvtData_t pvt;
    pvt.floats1To4 = {1.5F, 2.5F, 3.5F, 4.5F};
    pvt.fix = 3;
    pvt.timeOfWeek = 123456.5;
    pvt.latitude = 0.7;
    pvt.longitude = -1.5;
    pvt.floats9To12 = {9.5F, 10.5F, 11.5F, 12.5F};
    pvt.leapSeconds = 18;
    pvt.dayCount = 12345;
    return pvt;
}

ioa::Protocols_t SampleProtocols() {
    ioa::Protocols_t protocols;
    for (std::size_t i = 0; i < kEntries; ++i) {
        protocols.push_back({i % 2 == 0 ? 'A' : 'D', static_cast<unsigned short>(100 + i)});
    }
    return protocols;
}

/// The record as the two peers keep it, with its fields in wire order.
struct Position {
    std::array<float, 4> a{};
    unsigned short fix = 0;
    double timeOfWeek = 0;
    double latitude = 0;
    double longitude = 0;
    std::array<float, 4> b{};
    short leapSeconds = 0;
    int dayCount = 0;

    template <typename Self, typename Visit>
    static void EachField(Self& self, Visit visit) {
        for (auto& value : self.a) visit(value);
        visit(self.fix);
        visit(self.timeOfWeek);
        visit(self.latitude);
        visit(self.longitude);
        for (auto& value : self.b) visit(value);
        visit(self.leapSeconds);
        visit(self.dayCount);
    }
};

Position SamplePosition() {
    const ioa::PvtData_t pvt = SamplePvt();
    return {pvt.floats1To4, pvt.fix,         pvt.timeOfWeek,  pvt.latitude,
            pvt.longitude,  pvt.floats9To12, pvt.leapSeconds, pvt.dayCount};
}

/// The cursor that one would write by hand: a buffer that stays, every access checked.
class Cursor {
  public:
    template <typename T>
    void Put(const T& value) {
        if (mBytes.size() - mPosition < sizeof value) mBytes.resize(mPosition + sizeof value);
        std::memcpy(mBytes.data() + mPosition, &value, sizeof value);
        mPosition += sizeof value;
    }
    template <typename T>
    bool Get(T& value) {
        if (mEnd - mPosition < sizeof value) return false;
        std::memcpy(&value, mBytes.data() + mPosition, sizeof value);
        mPosition += sizeof value;
        return true;
    }
    void Turn() { mEnd = std::exchange(mPosition, 0); }

  private:
    std::vector<unsigned char> mBytes;
    std::size_t mPosition = 0;
    std::size_t mEnd = 0;
};

template <typename T>
void Put(std::stringstream& stream, const T& value) {
    stream.write(reinterpret_cast<const char*>(&value), sizeof value);
}

template <typename T>
bool Get(std::stringstream& stream, T& value) {
    return static_cast<bool>(stream.read(reinterpret_cast<char*>(&value), sizeof value));
}

void Rewind(std::stringstream& stream) {
    stream.clear();
    stream.seekp(0);
    stream.seekg(0);
}

void Require(benchmark::State& state, bool condition) {
    if (!condition) state.SkipWithError("the record did not come back");
}

void PvtFrame(benchmark::State& state) {
    const ioa::PvtData_t sent = SamplePvt();
    ioa::PvtData_t read;
    for (auto _ : state) {
        read.AcceptFrame(sent.ProduceFrame());
        benchmark::DoNotOptimize(read.dayCount);
    }
    Require(state, read.dayCount == sent.dayCount && read.latitude == sent.latitude);
}

void PvtStringstream(benchmark::State& state) {
    std::stringstream stream;
    const Position sent = SamplePosition();
    Position read;
    bool isWhole = true;
    for (auto _ : state) {
        Rewind(stream);
        Position::EachField(sent, [&stream](const auto& value) { Put(stream, value); });
        Position::EachField(read, [&](auto& value) { isWhole = Get(stream, value) && isWhole; });
        benchmark::DoNotOptimize(read.dayCount);
    }
    Require(state, isWhole && read.dayCount == sent.dayCount && read.latitude == sent.latitude);
}

void PvtCursor(benchmark::State& state) {
    Cursor cursor;
    const Position sent = SamplePosition();
    Position read;
    bool isWhole = true;
    for (auto _ : state) {
        Position::EachField(sent, [&cursor](const auto& value) { cursor.Put(value); });
        cursor.Turn();
        Position::EachField(read, [&](auto& value) { isWhole = cursor.Get(value) && isWhole; });
        cursor.Turn();
        benchmark::DoNotOptimize(read.dayCount);
    }
    Require(state, isWhole && read.dayCount == sent.dayCount && read.latitude == sent.latitude);
}

void ProtocolsFrame(benchmark::State& state) {
    const ioa::Protocols_t sent = SampleProtocols();
    std::size_t count = 0;
    for (auto _ : state) {
        ioa::Protocols_t read;
        read.AcceptFrame(sent.ProduceFrame());
        count = read.size();
        benchmark::DoNotOptimize(count);
    }
    Require(state, count == kEntries);
}

void ProtocolsStringstream(benchmark::State& state) {
    const ioa::Protocols_t sent = SampleProtocols();
    std::stringstream stream;
    std::size_t count = 0;
    for (auto _ : state) {
        Rewind(stream);
        for (const ioa::Protocol_t& protocol : sent) {
            Put(stream, protocol.tag);
            Put(stream, protocol.number);
        }
        std::vector<ioa::Protocol_t> read;
        for (ioa::Protocol_t next; Get(stream, next.tag) && Get(stream, next.number);) read.push_back(next);
        count = read.size();
        benchmark::DoNotOptimize(count);
    }
    Require(state, count == kEntries);
}

void ProtocolsCursor(benchmark::State& state) {
    const ioa::Protocols_t sent = SampleProtocols();
    Cursor cursor;
    std::size_t count = 0;
    for (auto _ : state) {
        for (const ioa::Protocol_t& protocol : sent) {
            cursor.Put(protocol.tag);
            cursor.Put(protocol.number);
        }
        cursor.Turn();
        std::vector<ioa::Protocol_t> read;
        for (ioa::Protocol_t next; cursor.Get(next.tag) && cursor.Get(next.number);) read.push_back(next);
        cursor.Turn();
        count = read.size();
        benchmark::DoNotOptimize(count);
    }
    Require(state, count == kEntries);
}

BENCHMARK(PvtFrame)->Name("pvt/frame");
BENCHMARK(PvtStringstream)->Name("pvt/stringstream");
BENCHMARK(PvtCursor)->Name("pvt/cursor");
BENCHMARK(ProtocolsFrame)->Name("protocols/frame");
BENCHMARK(ProtocolsStringstream)->Name("protocols/stringstream");
BENCHMARK(ProtocolsCursor)->Name("protocols/cursor");

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

    std::map<std::string, double> medians;  ///< nanoseconds of processor time
    bool hasFailed = false;
};

}  // namespace

int main(int argc, char** argv) {
    std::vector<char*> arguments{argv, argv + argc};
    std::string defaults[] = {"--benchmark_enable_random_interleaving=true", "--benchmark_repetitions=15",
                              "--benchmark_min_time=0.05", "--benchmark_report_aggregates_only=true"};
    // Before the caller's own, which win.
    for (std::size_t i = 0; i < std::size(defaults); ++i) {
        arguments.insert(arguments.begin() + 1 + static_cast<std::ptrdiff_t>(i), defaults[i].data());
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return EXIT_FAILURE;
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const std::string record : {"pvt", "protocols"}) {
        const auto ratioTo = [&](const char* peer) {
            return reporter.medians[record + "/frame"] / reporter.medians[record + "/" + peer];
        };
        std::printf("ratio %s to_stringstream %.3f goal 0.333\n", record.c_str(), ratioTo("stringstream"));
        std::printf("ratio %s to_cursor %.3f\n", record.c_str(), ratioTo("cursor"));
    }
    return reporter.hasFailed ? EXIT_FAILURE : EXIT_SUCCESS;
}
