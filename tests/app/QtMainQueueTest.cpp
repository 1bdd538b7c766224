#include "platform/qt/QtMainQueue.hpp"

#include <QCoreApplication>

#include "tests/support/MainQueueContract.hpp"

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

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Qt, MainQueueContract, OnQt);
