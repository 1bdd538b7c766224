// Reads a file of numbers, one by one, through the binary file streams, and beside it through std::ifstream::read().
// The numbers are of 2, 4 and 8 bytes in turn, as in a record. A peer of the second kind asks for the file's size
// before each number, which std::ifstream by itself never does: between the two lies what such a question costs. At the
// end the ratios are printed, one line each, for scripts:
//
//   ratio <stream> to_<peer> <value> goal 1.2
#include "BIN/BIN_fstream.hpp"
#include "GLO/GLO_String.hpp"
#include "bench/Medians.hpp"
#include "platform/common/FileDescriptor.hpp"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <ios>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kRecords = 10'000;
constexpr int kNumbersPerRecord = 3;

std::string gPath;

std::wstring widePath() {
    return glo::wstring(gPath, glo::gcUtf8Encoding);
}

void write() {
    bin::ofstream stream(widePath());
    for (int i = 0; i < kRecords; ++i) stream << static_cast<unsigned short>(i) << i << i * 0.5;
    if (!stream) std::abort();
}

std::ifstream& operator>>(std::ifstream& stream, auto& number) {
    stream.read(reinterpret_cast<char*>(&number), sizeof number);
    return stream;
}

/// Reads what write() has written, through whatever takes a number out of a stream.
void readAll(benchmark::State& state, auto open, auto take) {
    double sum = 0;
    for (auto _ : state) {
        auto stream = open();
        for (int i = 0; i < kRecords; ++i) {
            unsigned short small = 0;
            int middle = 0;
            double large = 0;
            take(*stream, small);
            take(*stream, middle);
            take(*stream, large);
            sum += small + middle + large;
        }
        if (stream->fail()) state.SkipWithError("the numbers did not come back");
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * kRecords * kNumbersPerRecord);
}

const auto takePlainly = [](auto& stream, auto& number) { stream >> number; };

void Ifstream(benchmark::State& state) {
    readAll(
        state, [] { return std::make_unique<bin::ifstream>(widePath()); }, takePlainly);
}

void Fstream(benchmark::State& state) {
    readAll(
        state, [] { return std::make_unique<bin::fstream>(widePath(), std::ios_base::in); }, takePlainly);
}

void StandardIfstream(benchmark::State& state) {
    readAll(
        state, [] { return std::make_unique<std::ifstream>(gPath, std::ios_base::binary); }, takePlainly);
}

void StandardIfstreamAsking(benchmark::State& state) {
    const platform::FileDescriptor file(::open(gPath.c_str(), O_RDONLY | O_CLOEXEC));
    readAll(
        state, [] { return std::make_unique<std::ifstream>(gPath, std::ios_base::binary); },
        [&file](auto& stream, auto& number) {
            struct stat status {};
            if (::fstat(file.get(), &status) != 0) std::abort();
            benchmark::DoNotOptimize(status.st_size);
            stream >> number;
        });
}

BENCHMARK(Ifstream)->Name("ifstream");
BENCHMARK(Fstream)->Name("fstream");
BENCHMARK(StandardIfstream)->Name("standard");
BENCHMARK(StandardIfstreamAsking)->Name("standard_asking_for_the_size");

}  // namespace

int main(int argc, char** argv) {
    gPath = std::filesystem::temp_directory_path() / ("file_bench." + std::to_string(::getpid()));
    write();
    const auto medians = bench::MeasureMedians(argc, argv);
    std::filesystem::remove(gPath);
    if (!medians) return EXIT_FAILURE;
    for (const std::string stream : {"ifstream", "fstream"}) {
        for (const auto& [peer, goal] : {std::pair("standard", " goal 1.2"), {"standard_asking_for_the_size", ""}})
            bench::TellRatio(*medians, stream + " to_" + peer, stream, peer, goal);
    }
}
