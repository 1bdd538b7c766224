#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace fuzz {

/// Reads a fuzzer's input as choices and bytes. Past its end everything is 0 and empty.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : mRest(data, size) {}

    bool isAtEnd() const { return mRest.empty(); }

    std::uint8_t byte() {
        if (mRest.empty()) return 0;
        const std::uint8_t value = mRest.front();
        mRest = mRest.subspan(1);
        return value;
    }

    std::uint16_t number() {
        const unsigned low = byte();
        return static_cast<std::uint16_t>(low | static_cast<unsigned>(byte()) << 8);
    }

    std::vector<unsigned char> bytes(std::size_t count) {
        const auto taken = mRest.first(std::min(count, mRest.size()));
        mRest = mRest.subspan(taken.size());
        return {taken.begin(), taken.end()};
    }

    std::vector<unsigned char> rest() { return bytes(mRest.size()); }

  private:
    std::span<std::uint8_t const> mRest;
};

}  // namespace fuzz
