#pragma once

#include <cstdint>

namespace explore {

/// Numbers that follow from one seed, the same on every machine and with every compiler (splitmix64).
class Dice {
  public:
    explicit Dice(std::uint64_t seed) : mState(seed) {}

    std::uint64_t next() {
        std::uint64_t value = mState += 0x9E3779B97F4A7C15;
        value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
        value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
        return value ^ (value >> 31);
    }
    unsigned below(unsigned limit) { return static_cast<unsigned>(next() % limit); }
    unsigned between(unsigned least, unsigned most) { return least + below(most - least + 1); }
    bool oneIn(unsigned many) { return below(many) == 0; }
    template <typename List>
    const auto& of(const List& list) {
        return list[below(static_cast<unsigned>(list.size()))];
    }

  private:
    std::uint64_t mState;
};

}  // namespace explore
