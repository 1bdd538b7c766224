#include "platform/qt/QtMainQueue.hpp"
#include "tests/support/MainQueueContract.hpp"

#include <QCoreApplication>

#include <utility>

namespace {

struct OnQt {
    void runUntil(const std::function<bool()>& done) {
        while (!done()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    std::unique_ptr<platform::MainQueue> queue = std::make_unique<platform::QtMainQueue>();
};

TEST(QtMainQueue, ItsEndDropsWhatWaits) {
    OnQt qt;
    const auto held = std::make_shared<int>(0);
    qt.queue->dispatch_async([held] { ADD_FAILURE() << "ran"; });
    const auto timer = qt.queue->scheduledTimerWithTimeInterval(0, false, [held] { ADD_FAILURE() << "ran"; });
    bool ran = false;
    qt.queue->dispatch_sync([&] { ran = true; });  // on the main thread itself: at once
    EXPECT_TRUE(ran);
    qt.queue.reset();
    QCoreApplication::processEvents();
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_FALSE(timer->isValid());
}

TEST(QtMainQueue, PeriodsAreNeverCutAndHaveNoEnd) {
    const auto period = [](double seconds) {
        const platform::QtPeriod made(seconds);
        return std::pair(made.milliseconds, made.pieces);
    };
    EXPECT_EQ(period(-1), std::pair(0, 1UL));
    EXPECT_EQ(period(1e-4), std::pair(1, 1UL));
    EXPECT_EQ(period(2.007), std::pair(2007, 1UL)) << "which times 1000 is a little more";
    EXPECT_EQ(period(2147483.648), std::pair(1073741824, 2UL));
    EXPECT_GT(platform::QtPeriod(1e300).pieces, 1000000U);
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Qt, MainQueueContract, OnQt);
