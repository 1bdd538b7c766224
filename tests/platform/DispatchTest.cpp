#include "platform/linux/Dispatch.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/linux/AsioRunLoop.hpp"

namespace platform {
namespace {

struct MainQueueTest : ::testing::Test {
    AsioRunLoops loops;
    RunLoopMainQueue queue{loops};

    void RunMainLoop() { loops.CFRunLoopGetCurrent()->CFRunLoopRun(); }
    void StopMainLoop() { loops.CFRunLoopGetCurrent()->CFRunLoopStop(); }
};

TEST_F(MainQueueTest, BlocksOfOtherThreadsRunOnTheMainThreadAndSurviveAnException) {
    const auto mainThread = std::this_thread::get_id();
    std::vector<int> order;
    std::jthread other([&] {
        queue.dispatch_async([&] { order.push_back(1); });
        queue.dispatch_async([] { throw std::runtime_error("from a block"); });
        queue.dispatch_sync([&] {
            EXPECT_EQ(std::this_thread::get_id(), mainThread);
            order.push_back(2);
            throw 1;
        });
        order.push_back(3);  // after the synchronous one, so without a race
        queue.dispatch_async([&] { StopMainLoop(); });
    });
    RunMainLoop();
    EXPECT_EQ(order, (std::vector{1, 2, 3}));
}

TEST_F(MainQueueTest, TimerOfAnotherThreadFiresOnTheMainThreadAndCanBeInvalidatedAnywhere) {
    std::atomic<int> fired = 0;
    std::shared_ptr<NSTimer> repeating;
    std::jthread other([&] {
        const auto late = queue.scheduledTimerWithTimeInterval(3600, true, [] {});
        late->invalidate();
        EXPECT_FALSE(late->isValid());
        queue.dispatch_sync([&] {
            const auto due = queue.scheduledTimerWithTimeInterval(0, true, [] { ADD_FAILURE() << "invalidated"; });
            due->invalidate();
        });
        queue.dispatch_sync([&] {
            repeating = queue.scheduledTimerWithTimeInterval(0.0005, true, [&] {
                if (++fired < 3) return;
                repeating.reset();
                StopMainLoop();
            });
        });
    });
    RunMainLoop();
    EXPECT_EQ(fired, 3);
    auto once = queue.scheduledTimerWithTimeInterval(0, false, [&] { StopMainLoop(); });
    RunMainLoop();
    EXPECT_FALSE(once->isValid());
}

TEST(MainQueueEnd, SynchronousSubmissionReturnsWhenTheMainThreadEnds) {
    AsioRunLoops loops;
    std::unique_ptr<RunLoopMainQueue> queue;
    std::latch made(1), submitted(1);
    std::jthread main([&] {
        queue = std::make_unique<RunLoopMainQueue>(loops);
        made.count_down();
        submitted.wait();
    });
    made.wait();
    const auto held = std::make_shared<int>(0);
    queue->dispatch_async([held] { ADD_FAILURE() << "nobody runs the loop"; });
    submitted.count_down();
    queue->dispatch_sync([] { ADD_FAILURE() << "nobody runs the loop"; });
    main.join();
    EXPECT_EQ(held.use_count(), 1);
}

TEST(GlobalQueueTest, BlocksThatWaitForEachOtherAllRunAndAreJoined) {
    constexpr int kBlocks = 8;
    std::atomic<int> done = 0;
    {
        GlobalQueue queue;
        std::latch together(kBlocks);
        for (int i = 0; i < kBlocks; ++i) {
            queue.dispatch_async([&] {
                together.arrive_and_wait();  // ends only with a thread for each
                if (done++ == 0) throw 1;
            });
        }
        together.wait();
        queue.dispatch_async([&] { queue.dispatch_async([&] { ++done; }); });
    }
    EXPECT_EQ(done, kBlocks + 1);
}

}  // namespace
}  // namespace platform
