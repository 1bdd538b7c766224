#include "GLO/GLO_Exception.hpp"
#include "WIN/WIN_CallbackTimer.hpp"
#include "WIN/WIN_CriticalSection.hpp"
#include "WIN/WIN_Timer.hpp"
#include "simulator/world/SimulatedWorld.hpp"
#include "tests/support/ManualClock.hpp"

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using std::chrono::milliseconds;

class CallbackTimer : public testing::Test, public win::TimerEventIntf_t {
  protected:
    CallbackTimer() { mTimer.SetHandler(*this); }
    void HandleTimeout() override {
        mExpiries.push_back(std::chrono::duration_cast<milliseconds>(mWorld.elapsed()).count());
        if (const auto onExpiry = mOnExpiry) onExpiry();
    }
    /// Moments of the expiries up to this one, in milliseconds from the start.
    std::vector<long> ExpiriesUntil(long moment) {
        mWorld.runFor(milliseconds(moment) - mWorld.elapsed());
        return mExpiries;
    }

    using Moments = std::vector<long>;
    simulator::SimulatedWorld mWorld;
    Moments mExpiries;
    std::function<void()> mOnExpiry;
    win::CallbackTimer_t mTimer;
};

TEST_F(CallbackTimer, RepeatsUntilStoppedAndBeginsAnewWhenStartedAgain) {
    mTimer.Start(1500);
    EXPECT_EQ(ExpiriesUntil(3100), (Moments{1500, 3000}));
    mTimer.Start(1500);
    EXPECT_EQ(ExpiriesUntil(4700), (Moments{1500, 3000, 4600}));
    mWorld.clock.advanceBy(milliseconds(1400));  // due, and on its way through the queue
    mTimer.Stop();
    EXPECT_EQ(ExpiriesUntil(20000).size(), 3U);
    {
        win::CallbackTimer_t gone;
        gone.SetHandler(*this);
        gone.Start(10);
    }
    EXPECT_EQ(ExpiriesUntil(20100).size(), 3U) << "a destroyed timer does nothing";
}

TEST_F(CallbackTimer, DurationRestartsOnlyARunningTimerWithAnotherPeriodWhichAOneShotKeeps) {
    mTimer.Duration(100);
    EXPECT_EQ(ExpiriesUntil(1000), (Moments{}));
    mTimer.Start(100);
    ExpiriesUntil(1050);
    mTimer.Duration(100);
    EXPECT_EQ(ExpiriesUntil(1150), (Moments{1100}));
    mTimer.OneShot(500);
    mTimer.Duration(100);  // the stored period is still the one before: nothing to restart
    EXPECT_EQ(ExpiriesUntil(5000), (Moments{1100, 1650}));
    mTimer.Start(700);
    mTimer.Duration(200);
    EXPECT_EQ(ExpiriesUntil(5450), (Moments{1100, 1650, 5200, 5400}));
}

TEST_F(CallbackTimer, HandlerMayStopRestartOrDestroyItsTimer) {
    mOnExpiry = [this] { mExpiries.size() < 3 ? mTimer.OneShot(10) : mTimer.Start(20); };
    mTimer.OneShot(10);
    EXPECT_EQ(ExpiriesUntil(50), (Moments{10, 20, 30, 50}));
    mOnExpiry = [this] { mTimer.Stop(); };
    EXPECT_EQ(ExpiriesUntil(500), (Moments{10, 20, 30, 50, 70}));
    for (const auto start : {&win::CallbackTimer_t::OneShot, &win::CallbackTimer_t::Start}) {
        auto* const timer = new win::CallbackTimer_t;
        timer->SetHandler(*this);
        mOnExpiry = [timer] { delete timer; };
        (timer->*start)(10);
        mWorld.runFor(milliseconds(100));
    }
    EXPECT_EQ(ExpiriesUntil(800), (Moments{10, 20, 30, 50, 70, 510, 610}));
}

TEST_F(CallbackTimer, WhatItsHandlerThrowsIsLoggedAndEndsAOneShotButNotARepeatingTimer) {
    mOnExpiry = [] { throw glo::Exception_t("some/File", 77, L"why", "sub"); };
    mTimer.OneShot(10);
    mWorld.runFor(milliseconds(100));
    mOnExpiry = [] { throw 1; };
    mTimer.Start(50);
    EXPECT_EQ(ExpiriesUntil(210), (Moments{10, 150, 200}));
    using testing::MatchesRegex;
    const std::string here = "caught at libs/WIN/mac/WINNativeTimer, [0-9]+\n";
    EXPECT_THAT(mWorld.log(), testing::ElementsAre(MatchesRegex("Exception thrown at some/File, 77; " + here),
                                                   MatchesRegex("Unknown exception " + here), testing::_));
}

TEST(Timer, CountsWhileItRunsAndOnlyThen) {
    support::ManualClock clock;
    const platform::PlatformScope scope({.clock = &clock});
    win::Timer_t timer;
    clock.MPDelayUntil(clock.CFAbsoluteTimeGetCurrent() + 1.5009);
    timer.Continue();
    EXPECT_EQ(timer.ElapsedTime(), 1500U) << "the rest is cut off";
    timer.Stop();
    clock.Advance(10000);
    timer.Stop();
    EXPECT_FALSE(timer.IsRunning());
    EXPECT_EQ(timer.ElapsedTime(), 1500U);
    timer.Continue();
    clock.Advance(500);
    EXPECT_EQ(timer.ElapsedTime(), 2000U);
    timer.Start();
    clock.Advance(250);
    EXPECT_EQ(timer.ElapsedTime(), 250U);
}

TEST(CriticalSection, IsRecursiveAndKeepsOtherThreadsOut) {
    win::CriticalSection_t section;
    int counter = 0;
    const auto count = [&] {
        for (int n = 0; n < 1000; ++n) {
            const win::SmartCriticalSection_t outer(section);
            const int before = counter;
            { const win::SmartCriticalSection_t inner(section); }
            std::this_thread::yield();  // still held: leaving once is not leaving twice
            counter = before + 1;
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(counter, 2000);
}

}  // namespace
