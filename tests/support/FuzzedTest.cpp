// A fuzz target with its model of what must happen, on inputs that are the same in every run. Linked with one target.
#include "fuzz/Harness.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

void fuzz::require(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(what);
}
void fuzz::traceIntoNothing() {}

TEST(TROVIK_FUZZED, DoesWhatItsModelDoes) {
    for (unsigned seed = 0; seed < 3000; ++seed) {
        std::mt19937 random(seed);
        std::vector<std::uint8_t> input(random() % (seed % 2 == 0 ? 4000 : 100));
        std::generate(input.begin(), input.end(), [&] { return static_cast<std::uint8_t>(random()); });
        ASSERT_NO_THROW(LLVMFuzzerTestOneInput(input.data(), input.size())) << "seed " << seed;
    }
}
