#pragma once

#include "platform/WallClock.hpp"

#include <ctime>
#include <string>

/// Days, hours and offsets of the user's time zone. Any thread.
namespace DDLocalTime {

using Date = platform::WallClock::Date;

/// The calendar's fields of a moment; follows a change of the system's time zone. tm_gmtoff is in seconds.
std::tm fields(std::time_t moment);
std::tm fields(Date moment);

/// strftime in local time.
std::string format(const char* pattern, Date moment);

/// The day's first moment: midnight, the first one where clocks go back at midnight, or the moment after the gap where
/// they go forward.
Date startOfDay(Date moment);

/// A moment later by a span. Whole days are days of the calendar: the result lies as long after the start of its day as
/// `moment` lies after the start of its own, and from the start of a day it is the start of another, however many hours
/// are between them. Every other span is counted in seconds.
/// @param seconds  positive
Date adding(Date moment, double seconds);

/// Fields and milliseconds of one message after the other, most of them in the same second. One thread at a time.
class Cache {
  public:
    /// True when the second is another one than that of the call before, and `fields` is new.
    bool update(Date moment);

    std::tm fields{};
    int milliseconds = 0;

  private:
    std::time_t mSecond = -1;
};

}  // namespace DDLocalTime
