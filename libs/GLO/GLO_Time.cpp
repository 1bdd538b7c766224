#include "GLO/GLO_Time.hpp"

#include <chrono>
#include <ctime>

namespace glo {
namespace {

constexpr std::int64_t gcUnixTimeOfGpsEpoch = 315964800;  // 1980-01-06 00:00:00 UTC

}  // namespace

Time_t Time_t::FromUnixTime(std::int64_t seconds) {
    return Time_t(seconds - gcUnixTimeOfGpsEpoch);
}

Time_t Time_t::Now() {
    return FromUnixTime(
        std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()).time_since_epoch().count());
}

std::int64_t Time_t::UnixTime() const {
    return mSeconds + gcUnixTimeOfGpsEpoch;
}

std::wstring Time_t::LocalText(DateFlag_t date, TimeFlag_t) const {
    const std::time_t seconds = UnixTime();
    std::tm fields{};
    if (!localtime_r(&seconds, &fields)) return {};
    wchar_t text[64];
    const std::size_t length = std::wcsftime(
        text, std::size(text), date == DateFlag_t::WithDate ? L"%Y-%m-%d %H:%M:%S" : L"%H:%M:%S", &fields);
    return {text, length};
}

}  // namespace glo
