#pragma once

#include <cstdint>

namespace win {

/// A time-out, a pause or an elapsed time: an unsigned 64-bit count of milliseconds, passed by value. It converts from
/// and to that count by itself; it is a type of its own only so that traces can tell it from any other number.
class Duration_t {
  public:
    constexpr Duration_t() = default;
    /// @plain
    /// @{
    constexpr Duration_t(std::uint64_t milliseconds) : mMilliseconds(milliseconds) {}
    constexpr operator std::uint64_t() const { return mMilliseconds; }
    constexpr std::uint64_t Milliseconds() const { return mMilliseconds; }
    /// @}

    /// The platform's unit.
    constexpr double Seconds() const { return static_cast<double>(mMilliseconds) / 1000.0; }

  private:
    std::uint64_t mMilliseconds = 0;
};

/// No limit.
inline constexpr Duration_t gcDurationInfinite{4294967295U};

}  // namespace win
