#pragma once

#include <compare>
#include <cstdint>
#include <string>

namespace glo {

/// A span of time, in seconds; 64-bit floating point, also on disk.
class TimeSpan_t {
  public:
    TimeSpan_t() = default;
    /// @plain
    /// @{
    explicit TimeSpan_t(double seconds) : mSeconds(seconds) {}
    double Seconds() const { return mSeconds; }
    auto operator<=>(const TimeSpan_t&) const = default;
    /// @}

  private:
    double mSeconds = 0;
};

/// A moment, in whole seconds since the GPS epoch, 1980-01-06 00:00:00 UTC. Counts UTC seconds: leap seconds are the
/// business of whoever reads a device's clock.
class Time_t {
  public:
    Time_t() = default;                                                                     ///< the GPS epoch
    explicit Time_t(std::int64_t secondsSinceGpsEpoch) : mSeconds(secondsSinceGpsEpoch) {}  ///< @plain

    static Time_t GpsEpoch() { return Time_t(); }      ///< @plain
    static Time_t FromUnixTime(std::int64_t seconds);  ///< since 1970-01-01 00:00:00 UTC
    static Time_t Now();                               ///< by the wall clock

    std::int64_t SecondsSinceGpsEpoch() const { return mSeconds; }                       ///< negative before it
    std::int64_t UnixTime() const;                                                       ///< seconds, as FromUnixTime()
    Time_t operator+(std::int64_t seconds) const { return Time_t(mSeconds + seconds); }  ///< @plain
    auto operator<=>(const Time_t&) const = default;                                     ///< the earlier one is less

    /// For LocalText(); of the form of the time there is one.
    /// @{
    enum class DateFlag_t { NoDate = 0, WithDate = 1 };
    enum class TimeFlag_t { HoursMinutesSeconds = 2 };
    /// @}

    /// The moment in the user's time zone: "HH:MM:SS", after "YYYY-MM-DD " where the date is wanted.
    /// @return empty when the moment has no calendar date
    std::wstring LocalText(DateFlag_t date, TimeFlag_t time = TimeFlag_t::HoursMinutesSeconds) const;

  private:
    std::int64_t mSeconds = 0;
};

}  // namespace glo
