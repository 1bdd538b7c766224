#pragma once

#include "platform/Dispatch.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

/// What the library and the application rely on in every main queue. The backend has a `queue` and runs the test's
/// thread, the main one, in `runUntil(condition)`.
template <typename Backend>
class MainQueueContract : public testing::Test {
  protected:
    Backend backend;
    platform::MainQueue& queue = *backend.queue;
};

TYPED_TEST_SUITE_P(MainQueueContract);

TYPED_TEST_P(MainQueueContract, BlocksRunLaterOnTheMainThreadInTheirOrderWhateverOneThrows) {
    const auto mainThread = std::this_thread::get_id();
    std::vector<int> ran;
    std::atomic<bool> returned = false;
    this->queue.dispatch_async([&] {
        ran.push_back(1);
        throw std::runtime_error("ends here");
    });
    EXPECT_TRUE(ran.empty()) << "never inside the call";
    std::jthread other([&] {
        this->queue.dispatch_async([&] { ran.push_back(std::this_thread::get_id() == mainThread ? 2 : -2); });
        this->queue.dispatch_sync([&] {
            ran.push_back(3);
            throw 1;
        });
        ran.push_back(4);  // after the synchronous one, so without a race
        returned = true;
        this->queue.dispatch_async([] {});  // wakes the loop below
    });
    this->backend.runUntil([&] { return returned.load(); });
    EXPECT_THAT(ran, testing::ElementsAre(1, 2, 3, 4));
}

TYPED_TEST_P(MainQueueContract, TimerOfAnyThreadFiresOnTheMainThreadUntilInvalidatedOrDropped) {
    std::shared_ptr<platform::NSTimer> once, repeating;
    std::vector<bool> validAtFiring;
    int fired = 0, droppedFired = 0, otherFired = 0;
    std::thread([&] {
        const auto late = this->queue.scheduledTimerWithTimeInterval(3600, true, [] {});
        late->invalidate();
        EXPECT_FALSE(late->isValid());
        once =
            this->queue.scheduledTimerWithTimeInterval(0.001, false, [&] { validAtFiring.push_back(once->isValid()); });
        EXPECT_TRUE(once->isValid());
        repeating = this->queue.scheduledTimerWithTimeInterval(0.001, true, [&] {
            if (++fired == 3) repeating->invalidate();  // also from its own handler
        });
    }).join();
    this->backend.runUntil([&] { return !repeating->isValid() && !validAtFiring.empty(); });
    auto dropped = this->queue.scheduledTimerWithTimeInterval(0.001, true, [&] { ++droppedFired; });
    std::thread([&] { dropped.reset(); }).join();
    const auto other = this->queue.scheduledTimerWithTimeInterval(0.001, true, [&] { ++otherFired; });
    this->backend.runUntil([&] { return otherFired == 5; });
    EXPECT_THAT(validAtFiring, testing::ElementsAre(false));
    EXPECT_EQ(droppedFired, 0);
    EXPECT_EQ(fired, 3);
}

REGISTER_TYPED_TEST_SUITE_P(MainQueueContract, BlocksRunLaterOnTheMainThreadInTheirOrderWhateverOneThrows,
                            TimerOfAnyThreadFiresOnTheMainThreadUntilInvalidatedOrDropped);
