// Drives a fuzz target without libFuzzer: random inputs, always the same ones for the same seed.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace {

constexpr std::size_t gcLongestInput = 512;

/// The number behind "-name=" among the arguments.
unsigned long option(int argc, char** argv, char const* name, unsigned long otherwise) {
    for (int i = 1; i < argc; ++i)
        if (std::strncmp(argv[i], name, std::strlen(name)) == 0)
            return std::strtoul(argv[i] + std::strlen(name), nullptr, 10);
    return otherwise;
}

}  // namespace

int main(int argc, char** argv) {
    unsigned long const runs = option(argc, argv, "-runs=", 20000);
    std::mt19937_64 random(option(argc, argv, "-seed=", 1));
    std::vector<std::uint8_t> input;
    for (unsigned long run = 0; run < runs; ++run) {
        input.resize(random() % gcLongestInput);
        for (auto& byte : input) {
            // Small numbers reach the branches that matter far more often than evenly spread ones.
            auto const value = random();
            byte = static_cast<std::uint8_t>(value & 0x100 ? value : value & 0x0F);
        }
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::printf("Done %lu runs\n", runs);
    return 0;
}
