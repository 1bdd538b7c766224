#include "app/Util/Logging/impl/DDLocalTime.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace DDLocalTime {
namespace {

constexpr double kSecondsPerDay = 86400;
constexpr double kCentury = 36525 * kSecondsPerDay;  ///< more than that from now is beyond the clock's range

std::time_t secondOf(Date moment) {
    return static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(moment).time_since_epoch().count());
}

/// The first second of a day of the calendar. It is searched for: where clocks go forward at midnight the day has no
/// 00:00, and where they go back there it has two. Of a day that the zone has left out it is that of the day behind.
Date startOf(std::tm day) {
    const auto date = [](const std::tm& time) { return std::pair(time.tm_year, time.tm_yday); };
    day.tm_hour = 12;
    day.tm_min = day.tm_sec = 0;
    ::timegm(&day);  // a day behind the month's end becomes one of the next month
    std::tm found = day;
    found.tm_isdst = -1;
    std::time_t noon = std::mktime(&found);
    // For a day that was left out the C library answers the one before or the one behind, as it comes.
    if (date(found) < date(day)) noon += static_cast<std::time_t>(kSecondsPerDay);
    std::time_t first = noon;
    for (std::time_t before = noon - static_cast<std::time_t>(kSecondsPerDay); first - before > 1;) {
        const std::time_t middle = before + (first - before) / 2;
        (date(DDLocalTime::fields(middle)) < date(day) ? before : first) = middle;
    }
    return std::chrono::system_clock::from_time_t(first);
}

}  // namespace

std::tm fields(std::time_t moment) {
    ::tzset();  // localtime_r alone would keep the time zone that the process started with
    std::tm result{};
    ::localtime_r(&moment, &result);
    return result;
}

std::tm fields(Date moment) {
    return fields(secondOf(moment));
}

std::string format(const char* pattern, const std::tm& time) {
    char text[128];
    return std::string(text, std::strftime(text, sizeof text, pattern, &time));
}

std::string format(const char* pattern, Date moment) {
    return format(pattern, fields(moment));
}

Date startOfDay(Date moment) {
    return startOf(fields(moment));
}

Date adding(Date moment, double seconds) {
    using std::chrono::duration;
    seconds = std::clamp(seconds, -kCentury, kCentury);
    if (std::fmod(seconds, kSecondsPerDay) != 0)
        return moment + std::chrono::round<Date::duration>(duration<double>(seconds));
    std::tm day = fields(moment);
    day.tm_mday += static_cast<int>(seconds / kSecondsPerDay);
    return startOf(day) + (moment - startOfDay(moment));
}

void appendMilliseconds(Date moment, std::string& text) {
    const auto part = moment - std::chrono::floor<std::chrono::seconds>(moment);
    const auto count = std::chrono::floor<std::chrono::milliseconds>(part).count();
    for (const auto unit : {100, 10, 1}) text.push_back(static_cast<char>('0' + count / unit % 10));
}

const std::string& Cache::text(Date moment) {
    const std::time_t second = secondOf(moment);
    if (second != mSecond) {
        mText = mForm(fields(second));
        mSecond = second;
    }
    return mText;
}

}  // namespace DDLocalTime
