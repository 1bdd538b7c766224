#include "platform/SerialQueue.hpp"

#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/QueueFrame.hpp"

using platform::SerialQueue;

TEST(SerialQueue, SynchronousBlockOnAnIdleQueueRunsOnTheCallersThreadAndWhatItPostsAfterIt) {
    SerialQueue queue("idle");
    std::thread::id ranOn;
    std::string order;
    queue.dispatch_sync([&] {
        ranOn = std::this_thread::get_id();
        queue.dispatch_async([&] { order += 'b'; });
        queue.dispatch_async([&] { order += 'c'; });
        order += 'a';
        EXPECT_STREQ(platform::QueueFrame::currentLabel(), "idle");
        EXPECT_TRUE(queue.isCurrent());
    });
    queue.dispatch_sync([&] { order += 'd'; });
    EXPECT_EQ(order, "abcd");
    EXPECT_EQ(ranOn, std::this_thread::get_id());
    EXPECT_FALSE(queue.isCurrent());
    EXPECT_STREQ(platform::QueueFrame::currentLabel(), "main");
}

TEST(SerialQueue, BlocksOfManyThreadsRunOneAtATimeAndInEachThreadsOrder) {
    constexpr int kThreads = 4, kBlocks = 500;
    std::vector<std::vector<int>> seen(kThreads);
    int inside = 0, overlaps = 0;
    {
        SerialQueue queue("serial");
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                for (int i = 0; i < kBlocks; ++i) {
                    const auto block = [&, t, i] {
                        overlaps += inside++;
                        seen[static_cast<std::size_t>(t)].push_back(i);
                        --inside;
                    };
                    i % 3 ? queue.dispatch_async(block) : queue.dispatch_sync(block);
                }
            });
        for (auto& thread : threads) thread.join();
    }  // runs what still waits
    EXPECT_EQ(overlaps, 0);
    std::vector<int> inOrder(kBlocks);
    std::iota(inOrder.begin(), inOrder.end(), 0);
    for (const auto& ofThread : seen) EXPECT_EQ(ofThread, inOrder);
}

TEST(SerialQueue, BlockThatThrowsOrLetsGoOfTheQueueHarmsNothing) {
    std::latch done(1);
    auto queue = std::make_shared<SerialQueue>("last");
    queue->dispatch_async([] { throw std::runtime_error("left the block"); });
    auto* raw = queue.get();
    raw->dispatch_async([&done, queue = std::move(queue)]() mutable {
        queue.reset();  // ends the queue on its own thread
        done.count_down();
    });
    done.wait();
}
