// The fuzz target of the streams with its model of what they must do, on inputs that are the same in every run.
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

TEST(Streams, InMemoryAndInFilesDoWhatTheirModelDoes) {
    for (unsigned seed = 0; seed < 1500; ++seed) {
        std::mt19937 random(seed);
        std::vector<std::uint8_t> input(random() % 4000);
        std::generate(input.begin(), input.end(), [&] { return static_cast<std::uint8_t>(random()); });
        ASSERT_NO_THROW(LLVMFuzzerTestOneInput(input.data(), input.size())) << "seed " << seed;
    }
}
