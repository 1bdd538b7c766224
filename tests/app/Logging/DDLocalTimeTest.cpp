#include "app/Util/Logging/impl/DDLocalTime.hpp"

#include <fstream>

#include "tests/app/Logging/LoggingSupport.hpp"

namespace {

using std::chrono::system_clock;

std::tm local(std::time_t moment) {
    std::tm fields{};
    ::localtime_r(&moment, &fields);
    return fields;
}

int dayOf(DDLocalTime::Date moment) {
    return local(system_clock::to_time_t(moment)).tm_yday;
}

TEST(DDLocalTime, DaysFollowOneAnotherWithoutAGapInEveryZoneAndYear) {
    constexpr std::time_t kDay = 86400, k2020 = 1577836800, k2038 = 2145916800;
    const std::chrono::seconds second(1);
    int changes = 0;
    std::ifstream database("/usr/share/zoneinfo/tzdata.zi");
    for (std::string line; std::getline(database, line);) {
        if (!line.starts_with("Z ")) continue;
        const TimeZone zone(line.substr(2, line.find(' ', 2) - 2).c_str());
        // Four days around every change of the clocks; elsewhere all days are alike.
        for (std::time_t noon = k2020 + kDay / 2; noon < k2038; noon += kDay) {
            if (local(noon).tm_gmtoff == local(noon + kDay).tm_gmtoff) continue;
            SCOPED_TRACE(line + DDLocalTime::format(" %F", system_clock::from_time_t(noon)));
            ++changes;
            const auto first = DDLocalTime::startOfDay(system_clock::from_time_t(noon - kDay));
            ASSERT_NE(dayOf(first - second), dayOf(first));
            auto day = first;
            for (int i = 0; i < 4; ++i) {
                const auto next = DDLocalTime::adding(day, kDay);
                ASSERT_EQ(dayOf(next - second), dayOf(day));
                ASSERT_NE(dayOf(next), dayOf(day));
                day = next;
            }
            ASSERT_EQ(DDLocalTime::adding(first + 5 * second, 4 * kDay), day + 5 * second);
        }
    }
    EXPECT_GT(changes, 2000) << "the time-zone database was not read";
}

}  // namespace
