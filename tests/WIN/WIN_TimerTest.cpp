#include "WIN/WIN_Timer.hpp"

#include <gtest/gtest.h>

#include "platform/Clock.hpp"
#include "platform/Platform.hpp"

namespace {

class StandingClock : public platform::Clock {
  public:
    platform::CFAbsoluteTime CFAbsoluteTimeGetCurrent() override { return now; }
    bool MPDelayUntil(platform::CFAbsoluteTime) override { return true; }
    double now = 1000;
};

}  // namespace

TEST(Timer, CountsWhileItRunsAndOnlyThen) {
    StandingClock clock;
    platform::PlatformScope scope({.clock = &clock});
    win::Timer_t timer;
    EXPECT_TRUE(timer.IsRunning());
    EXPECT_EQ(timer.ElapsedTime(), 0U);
    clock.now += 1.5009765625;
    EXPECT_EQ(timer.ElapsedTime(), 1500U) << "the rest is cut off";
    timer.Continue();
    EXPECT_EQ(timer.ElapsedTime(), 1500U);
    timer.Stop();
    clock.now += 10;
    timer.Stop();
    EXPECT_FALSE(timer.IsRunning());
    EXPECT_EQ(timer.ElapsedTime(), 1500U);
    timer.Continue();
    clock.now += 0.5;
    EXPECT_EQ(timer.ElapsedTime(), 2000U);
    timer.Start();
    clock.now += 0.25;
    EXPECT_EQ(timer.ElapsedTime(), 250U);
    clock.now -= 5;
    EXPECT_EQ(timer.ElapsedTime(), 0U) << "no time is less than none";
}
