#include "app/Util/Logging/impl/DDLocalTime.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <mutex>

namespace DDLocalTime {
namespace {

constexpr double kSecondsPerDay = 86400;
constexpr double kCentury = 36525 * kSecondsPerDay;  ///< more than that from now is beyond the clock's range

std::time_t secondOf(Date moment) {
    return static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(moment).time_since_epoch().count());
}

}  // namespace

std::tm fields(std::time_t moment) {
    static constinit std::mutex one;
    const std::lock_guard guard(one);  // the time zone that tzset reads anew is the process's
    ::tzset();                         // localtime_r alone would keep the one that the process started with
    std::tm result{};
    ::localtime_r(&moment, &result);
    return result;
}

std::tm fields(Date moment) {
    return fields(secondOf(moment));
}

std::string format(const char* pattern, Date moment) {
    const std::tm time = fields(moment);
    char text[128];
    return std::string(text, std::strftime(text, sizeof text, pattern, &time));
}

Date startOfDay(Date moment) {
    std::tm day = fields(moment);
    day.tm_hour = day.tm_min = day.tm_sec = 0;
    day.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&day));
}

Date adding(Date moment, double seconds) {
    using std::chrono::duration;
    seconds = std::clamp(seconds, -kCentury, kCentury);
    const Date later = moment + std::chrono::round<Date::duration>(duration<double>(seconds));
    if (std::fmod(seconds, kSecondsPerDay) != 0) return later;
    return later + std::chrono::seconds(fields(moment).tm_gmtoff - fields(later).tm_gmtoff);
}

bool Cache::update(Date moment) {
    const std::time_t second = secondOf(moment);
    milliseconds = static_cast<int>(
        std::chrono::floor<std::chrono::milliseconds>(moment - std::chrono::system_clock::from_time_t(second)).count());
    if (second == mSecond) return false;
    mSecond = second;
    fields = DDLocalTime::fields(second);
    return true;
}

}  // namespace DDLocalTime
