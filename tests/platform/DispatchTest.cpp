#include "platform/linux/Dispatch.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>

#include "platform/linux/AsioRunLoop.hpp"
#include "tests/support/MainQueueContract.hpp"

namespace platform {
namespace {

struct OnRunLoop {
    void runUntil(const std::function<bool()>& done) {
        while (!done()) loops.CFRunLoopGetCurrent()->CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1, true);
    }
    AsioRunLoops loops;
    std::unique_ptr<MainQueue> queue = std::make_unique<RunLoopMainQueue>(loops);
};

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

INSTANTIATE_TYPED_TEST_SUITE_P(RunLoop, MainQueueContract, OnRunLoop);

}  // namespace platform
