#include "WIN/WIN_CallbackTimer.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "platform/Dispatch.hpp"
#include "platform/Platform.hpp"

namespace {

/// A main loop on which time passes only when the test says so.
class ManualMainQueue : public platform::MainQueue {
  public:
    struct Timer : platform::NSTimer {
        bool isValid() const override { return valid; }
        void invalidate() override { valid = false; }
        double seconds = 0;
        bool repeats = false;
        bool valid = true;
        std::function<void()> handler;
    };

    void dispatch_async(std::function<void()>) override {}
    void dispatch_sync(const std::function<void()>&) override {}
    std::shared_ptr<platform::NSTimer> scheduledTimerWithTimeInterval(platform::CFTimeInterval seconds, bool repeats,
                                                                      std::function<void()> handler) override {
        auto timer = std::make_shared<Timer>();
        timer->seconds = seconds;
        timer->repeats = repeats;
        timer->handler = std::move(handler);
        timers.push_back(timer);
        return timer;
    }

    /// Lets every timer that is due expire once.
    void Tick() {
        for (const auto& timer : std::vector(timers)) {
            if (!timer->valid) continue;
            timer->valid = timer->repeats;
            timer->handler();
        }
    }
    std::size_t Running() const {
        std::size_t running = 0;
        for (const auto& timer : timers) running += timer->valid ? 1 : 0;
        return running;
    }

    std::vector<std::shared_ptr<Timer>> timers;
};

class CallbackTimer : public testing::Test, public win::TimerEventIntf_t {
  protected:
    void HandleTimeout() override {
        ++mExpiries;
        if (mOnExpiry) mOnExpiry();
    }

    ManualMainQueue mQueue;
    platform::PlatformScope mScope{{.mainQueue = &mQueue}};
    int mExpiries = 0;
    std::function<void()> mOnExpiry;
    win::CallbackTimer_t mTimer;
};

}  // namespace

TEST_F(CallbackTimer, RepeatsUntilStopped) {
    mTimer.Start(1500);
    mQueue.Tick();  // without a handler nothing happens
    mTimer.SetHandler(*this);
    mQueue.Tick();
    mQueue.Tick();
    EXPECT_EQ(mExpiries, 2);
    EXPECT_EQ(mQueue.timers.back()->seconds, 1.5);
    mTimer.Stop();
    mQueue.timers.back()->handler();  // an expiry that was on its way
    EXPECT_EQ(mExpiries, 2);
    EXPECT_EQ(mQueue.Running(), 0U);
}

TEST_F(CallbackTimer, StartWhileRunningBeginsAnewAndDropsTheOldExpiry) {
    mTimer.SetHandler(*this);
    mTimer.Start(1000);
    mTimer.Start(1000);
    EXPECT_EQ(mQueue.timers.size(), 2U);
    EXPECT_EQ(mQueue.Running(), 1U);
    mQueue.timers.front()->handler();
    EXPECT_EQ(mExpiries, 0);
    mQueue.Tick();
    EXPECT_EQ(mExpiries, 1);
}

TEST_F(CallbackTimer, OneShotExpiresOnceAndKeepsThePeriod) {
    mTimer.SetHandler(*this);
    mTimer.Start(2000);
    mTimer.OneShot(500);
    EXPECT_EQ(mQueue.Running(), 1U);
    EXPECT_EQ(mQueue.timers.back()->seconds, 0.5);
    EXPECT_FALSE(mQueue.timers.back()->repeats);
    mTimer.Duration(2000);
    EXPECT_EQ(mQueue.timers.size(), 2U) << "the stored period is still the one before";
    mQueue.Tick();
    mQueue.Tick();
    EXPECT_EQ(mExpiries, 1);
    mTimer.Duration(700);
    EXPECT_EQ(mQueue.timers.size(), 2U) << "it has ended";
}

TEST_F(CallbackTimer, DurationRestartsOnlyARunningTimerWithAnotherPeriod) {
    mTimer.Duration(100);
    EXPECT_TRUE(mQueue.timers.empty());
    mTimer.Start(100);
    mTimer.Duration(100);
    EXPECT_EQ(mQueue.timers.size(), 1U);
    mTimer.Duration(200);
    ASSERT_EQ(mQueue.timers.size(), 2U);
    EXPECT_EQ(mQueue.timers.back()->seconds, 0.2);
    EXPECT_TRUE(mQueue.timers.back()->repeats);
    EXPECT_EQ(mQueue.Running(), 1U);
}

TEST_F(CallbackTimer, HandlerMayStopOrRestartItsTimer) {
    mTimer.SetHandler(*this);
    mOnExpiry = [this] { mTimer.OneShot(10); };
    mTimer.OneShot(10);
    mQueue.Tick();
    mQueue.Tick();
    EXPECT_EQ(mExpiries, 2);
    EXPECT_EQ(mQueue.Running(), 1U);
    mOnExpiry = [this] { mTimer.Stop(); };
    mTimer.Start(10);
    mQueue.Tick();
    mQueue.Tick();
    EXPECT_EQ(mExpiries, 3);
}

TEST_F(CallbackTimer, EndsWithItsOwner) {
    {
        win::CallbackTimer_t timer;
        timer.Start(10);
        EXPECT_EQ(mQueue.Running(), 1U);
    }
    EXPECT_EQ(mQueue.Running(), 0U);
}
