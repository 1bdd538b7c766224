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

/// strftime.
std::string format(const char* pattern, const std::tm& time);
/// The same in local time.
std::string format(const char* pattern, Date moment);

/// Appends the three digits of the moment's milliseconds.
void appendMilliseconds(Date moment, std::string& text);

/// The day's first moment: midnight, the first one where clocks go back at midnight, or the moment after the gap where
/// they go forward.
Date startOfDay(Date moment);

/// A moment later by a span. Whole days are days of the calendar: the result lies as long after the start of its day as
/// `moment` lies after the start of its own, and from the start of a day it is the start of another, however many hours
/// are between them. Every other span is counted in seconds.
/// @param seconds  positive
Date adding(Date moment, double seconds);

/// The texts of one moment after the other, most of them in the same second. One thread at a time.
class Cache {
  public:
    using Form = std::string (*)(const std::tm& time);

    /// @param form  makes the text of a second
    explicit Cache(Form form) : mForm(form) {}

    /// The text of the moment's second; valid until the next call.
    const std::string& text(Date moment);

  private:
    const Form mForm;
    std::time_t mSecond = -1;
    std::string mText;
};

}  // namespace DDLocalTime
