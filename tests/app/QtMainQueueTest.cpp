#include "platform/qt/QtMainQueue.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>
#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using platform::QtMainQueue;
using testing::ElementsAre;

void runUntil(const std::function<bool()>& done) {
    while (!done()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

TEST(QtMainQueue, BlocksRunLaterOnTheMainThreadInTheirOrderWhateverOneThrows) {
    QtMainQueue queue;
    std::vector<int> ran;
    std::atomic<int> submitted = 0;
    queue.dispatch_async([&] {
        ran.push_back(1);
        throw std::runtime_error("ends here");
    });
    EXPECT_TRUE(ran.empty()) << "never inside the call";
    std::thread other([&] {
        queue.dispatch_async([&] { ran.push_back(QThread::currentThread() == qApp->thread() ? 2 : -2); });
        queue.dispatch_async([&] { ran.push_back(3); });
        ++submitted;
    });
    other.join();
    ASSERT_EQ(submitted, 1);
    runUntil([&] { return ran.size() == 3; });
    EXPECT_THAT(ran, ElementsAre(1, 2, 3));
}

TEST(QtMainQueue, SynchronousSubmissionWaitsForTheBlock) {
    QtMainQueue queue;
    std::vector<int> ran;
    std::atomic<bool> returned = false;
    std::thread other([&] {
        queue.dispatch_async([&] { ran.push_back(1); });
        queue.dispatch_sync([&] { ran.push_back(2); });
        returned = true;
        queue.dispatch_async([] {});  // wakes the loop below
    });
    runUntil([&] { return returned.load(); });
    other.join();
    EXPECT_THAT(ran, ElementsAre(1, 2));
    queue.dispatch_sync([&] { ran.push_back(3); });  // on the main thread itself
    EXPECT_THAT(ran, ElementsAre(1, 2, 3));
}

TEST(QtMainQueue, ItsEndDropsWhatWaits) {
    auto queue = std::make_unique<QtMainQueue>();
    const auto held = std::make_shared<int>(0);
    bool ran = false;
    queue->dispatch_async([held, &ran] { ran = true; });
    const auto timer = queue->scheduledTimerWithTimeInterval(0, false, [held, &ran] { ran = true; });
    EXPECT_TRUE(timer->isValid());
    queue.reset();
    QCoreApplication::processEvents();
    EXPECT_FALSE(ran);
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_FALSE(timer->isValid());
}

TEST(QtMainQueue, OneShotTimerIsInvalidOnceItsHandlerRuns) {
    QtMainQueue queue;
    std::shared_ptr<platform::NSTimer> timer;
    std::vector<bool> validAtFiring;
    std::thread other([&] {
        timer = queue.scheduledTimerWithTimeInterval(0.001, false, [&] { validAtFiring.push_back(timer->isValid()); });
        EXPECT_TRUE(timer->isValid());
    });
    other.join();
    runUntil([&] { return !validAtFiring.empty(); });
    EXPECT_THAT(validAtFiring, ElementsAre(false));
}

TEST(QtMainQueue, RepeatingTimerFiresUntilItIsInvalidatedOrDropped) {
    QtMainQueue queue;
    int fired = 0;
    std::shared_ptr<platform::NSTimer> timer;
    timer = queue.scheduledTimerWithTimeInterval(0.001, true, [&] {
        if (++fired == 3) timer->invalidate();  // also from its own handler
    });
    runUntil([&] { return !timer->isValid(); });

    int droppedFired = 0;
    int otherFired = 0;
    auto dropped = queue.scheduledTimerWithTimeInterval(0.001, true, [&] { ++droppedFired; });
    std::thread([&] { dropped.reset(); }).join();
    auto other = queue.scheduledTimerWithTimeInterval(0.001, true, [&] { ++otherFired; });
    runUntil([&] { return otherFired == 5; });
    EXPECT_EQ(droppedFired, 0);
    EXPECT_EQ(fired, 3);
}

}  // namespace
