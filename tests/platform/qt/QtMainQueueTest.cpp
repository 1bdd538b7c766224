#include "platform/qt/QtMainQueue.hpp"
#include "tests/support/MainQueueContract.hpp"

#include <QCoreApplication>

#include <tuple>

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
    constexpr double kDay = 86400;
    const std::tuple<double, int, std::uint64_t> cases[] = {{0, 0, 1},
                                                            {1e-4, 1, 1},
                                                            {1.001, 1001, 1},
                                                            {1.1, 1100, 1},
                                                            {2147483.647, 2147483647, 1},
                                                            {-1, 0, 1},
                                                            {2147483.648, 1073741824, 2},
                                                            {100 * kDay, 1728000000, 5}};
    for (const auto& [seconds, milliseconds, pieces] : cases) {
        const platform::QtPeriod period(seconds);
        EXPECT_EQ(period.milliseconds, milliseconds) << seconds;
        EXPECT_EQ(period.pieces, pieces) << seconds;
    }
    EXPECT_GT(platform::QtPeriod(1e300).pieces, 1000000U);
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Qt, MainQueueContract, OnQt);
