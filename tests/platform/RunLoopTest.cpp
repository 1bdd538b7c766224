#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <latch>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/CFMessagePort.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/AsioRunLoop.hpp"
#include "platform/linux/Dispatch.hpp"
#include "tests/support/Holdings.hpp"
#include "tests/support/MainQueueContract.hpp"

namespace platform {
namespace {

constexpr double kWatchdog = 20;  // seconds; far beyond anything that a passing test needs

/// Readable until it is read.
class EventSource final : public CFRunLoopSource {
  public:
    EventSource() : mEvent(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~EventSource() override { ::close(mEvent); }
    EventSource(const EventSource&) = delete;
    EventSource& operator=(const EventSource&) = delete;

    void Scheduled(const std::shared_ptr<CFRunLoop>& loop, std::string_view mode) override {
        mWatch = std::dynamic_pointer_cast<AsioRunLoop>(loop)->WatchReadable(mode, mEvent, [this] {
            eventfd_t count = 0;
            EXPECT_EQ(eventfd_read(mEvent, &count), 0);
            ++served;
            if (onServed) onServed();
        });
    }
    void Cancelled() override {
        mWatch.reset();
        ++cancelled;
    }
    void Signal() { eventfd_write(mEvent, 1); }

    int served = 0, cancelled = 0;
    std::function<void()> onServed;

  private:
    const int mEvent;
    std::unique_ptr<DescriptorWatch> mWatch;
};

class RunLoop : public ::testing::Test {
  protected:
    const std::shared_ptr<AsioRunLoop> loop = std::make_shared<AsioRunLoop>();
    const std::shared_ptr<EventSource> source = std::make_shared<EventSource>();

    ~RunLoop() override { loop->End(); }
    CFRunLoopRunResult Run(std::string_view mode, double seconds = kWatchdog) {
        return loop->CFRunLoopRunInMode(mode, seconds, true);
    }
    CFAbsoluteTime In(double seconds) { return CFAbsoluteTimeGetCurrent() + seconds; }
};

TEST_F(RunLoop, ServesOnlyWhatBelongsToTheModeThatRuns) {
    std::vector<std::string> order;
    loop->CFRunLoopAddSource(source, "mine");
    source->Signal();
    loop->CFRunLoopPerformBlock("mine", [&] { order.push_back("block"); });
    const auto timer = loop->CFRunLoopAddTimer("mine", In(-1), 0, [&] { order.push_back("timer"); });

    EXPECT_EQ(Run("another", 0), CFRunLoopRunResult::TimedOut);
    EXPECT_EQ(Run(kCFRunLoopDefaultMode, 0), CFRunLoopRunResult::TimedOut);
    EXPECT_TRUE(order.empty());
    EXPECT_TRUE(timer->CFRunLoopTimerIsValid());

    for (int i = 0; i < 3; ++i) EXPECT_EQ(Run("mine"), CFRunLoopRunResult::HandledSource);
    EXPECT_EQ(Run("mine", 0), CFRunLoopRunResult::TimedOut);
    EXPECT_EQ(order, (std::vector<std::string>{"timer", "block"}));
    EXPECT_EQ(source->served, 1);
    loop->CFRunLoopRemoveSource(source);
    source->Signal();
    EXPECT_EQ(Run("mine", 0), CFRunLoopRunResult::TimedOut);
    EXPECT_EQ(source->served, 1);
    EXPECT_EQ(source->cancelled, 1);
}

TEST_F(RunLoop, SourceStaysArmedAfterItsHandlerHasThrownUntilItRemovesItselfAndItsMode) {
    loop->CFRunLoopAddSource(source, "mine");
    source->onServed = [] { throw std::runtime_error("from a handler"); };
    for (int i = 0; i < 2; ++i) {
        source->Signal();
        EXPECT_THROW(Run("mine"), std::runtime_error);
    }
    source->onServed = [&] { loop->CFRunLoopRemoveSource(source); };
    source->Signal();
    EXPECT_EQ(Run("mine"), CFRunLoopRunResult::HandledSource);
    EXPECT_EQ(source->served, 3);
    EXPECT_EQ(loop->ModeCount(), 0U);
}

TEST_F(RunLoop, TimersFireInOrderOfTheirMomentsAndEndTheirWait) {
    std::vector<int> fired;
    const auto later = loop->CFRunLoopAddTimer("mine", In(0.02), 0, [&] { fired.push_back(2); });
    std::unique_ptr<CFRunLoopTimer> sooner = loop->CFRunLoopAddTimer("mine", In(0.01), 0, [&] {
        EXPECT_FALSE(sooner->CFRunLoopTimerIsValid());
        fired.push_back(1);
        sooner.reset();  // from its own handler
    });
    const auto never = loop->CFRunLoopAddTimer("mine", In(0.015), 0, [&] { fired.push_back(3); });
    never->CFRunLoopTimerInvalidate();
    EXPECT_EQ(Run("mine"), CFRunLoopRunResult::HandledSource);
    EXPECT_EQ(Run("mine"), CFRunLoopRunResult::HandledSource);
    EXPECT_EQ(fired, (std::vector<int>{1, 2}));
    EXPECT_EQ(loop->ModeCount(), 0U);
}

TEST_F(RunLoop, RepeatingTimerFiresUntilInvalidatedAndSkipsWhatItMissed) {
    int fired = 0;
    const auto start = CFAbsoluteTimeGetCurrent();
    std::unique_ptr<CFRunLoopTimer> timer = loop->CFRunLoopAddTimer("mine", start - 0.0105, 0.001, [&] {
        if (++fired == 3) timer->CFRunLoopTimerInvalidate();
    });
    while (timer->CFRunLoopTimerIsValid()) Run("mine");
    EXPECT_EQ(fired, 3);
    EXPECT_GE(CFAbsoluteTimeGetCurrent() - start, 0.001);  // ten missed firings count as one
}

TEST_F(RunLoop, TimerThatIsAlwaysDueLeavesTheRestItsTurns) {
    constexpr double kAtOnce = 1e-9;
    int fired = 0;
    const auto timer = loop->CFRunLoopAddTimer("mine", In(0), kAtOnce, [&] {
        if (++fired == 1000) loop->CFRunLoopStop();
    });
    loop->CFRunLoopAddSource(source, "mine");
    source->Signal();
    loop->CFRunLoopPerformBlock("mine", [&] { loop->CFRunLoopStop(); });
    EXPECT_EQ(loop->CFRunLoopRunInMode("mine", kWatchdog, false), CFRunLoopRunResult::Stopped);
    EXPECT_LT(fired, 10);
    while (source->served == 0 && fired < 1000) Run("mine");
    EXPECT_LT(fired, 20);
    loop->CFRunLoopRemoveSource(source);
}

TEST_F(RunLoop, StopEndsTheInnermostRunOnly) {
    std::vector<CFRunLoopRunResult> results;
    loop->CFRunLoopPerformBlock("outer", [&] {
        std::jthread other;  // starts from within the inner run, which is the innermost by then
        loop->CFRunLoopPerformBlock("inner", [&] { other = std::jthread([&] { loop->CFRunLoopStop(); }); });
        results.push_back(loop->CFRunLoopRunInMode("inner", kWatchdog, false));
    });
    results.push_back(Run("outer"));
    EXPECT_EQ(results, (std::vector{CFRunLoopRunResult::Stopped, CFRunLoopRunResult::HandledSource}));

    loop->CFRunLoopStop();  // nothing runs: kept for CFRunLoopRun, past any run of a mode
    EXPECT_EQ(Run("outer", 0), CFRunLoopRunResult::TimedOut);
    loop->CFRunLoopRun();

    std::jthread other([&] { loop->CFRunLoopPerformBlock(kCFRunLoopDefaultMode, [&] { loop->CFRunLoopStop(); }); });
    loop->CFRunLoopRun();
}

TEST_F(RunLoop, ThousandModesLeaveNoDescriptorAndNoModeBehind) {
    const auto descriptors = support::Holdings::now().descriptors;
    for (int i = 0; i < 1000; ++i) {
        const std::string mode = CFUUIDCreateString();
        const auto own = std::make_shared<EventSource>();
        loop->CFRunLoopAddSource(own, mode);
        const auto timer = loop->CFRunLoopAddTimer(mode, In(kWatchdog), 0, [] {});
        own->Signal();
        ASSERT_EQ(Run(mode), CFRunLoopRunResult::HandledSource);
        ASSERT_EQ(loop->ModeCount(), 1U);
        loop->CFRunLoopRemoveSource(own);
    }
    EXPECT_EQ(loop->ModeCount(), 0U);
    EXPECT_EQ(support::Holdings::now().descriptors, descriptors);
}

TEST(RunLoops, EachThreadHasOneLoopAndItsEndDestroysWhatWaits) {
    AsioRunLoops loops;
    EXPECT_EQ(loops.CFRunLoopGetCurrent(), AsioRunLoops().CFRunLoopGetCurrent());

    const auto source = std::make_shared<EventSource>();
    const auto held = std::make_shared<int>(0);
    std::shared_ptr<CFRunLoop> loop;
    std::unique_ptr<CFRunLoopTimer> timer;
    std::thread([&] {
        loop = loops.CFRunLoopGetCurrent();
        loop->CFRunLoopAddSource(source, "mine");
        timer = loop->CFRunLoopAddTimer("mine", 0, 1, [held] {});
        loop->CFRunLoopPerformBlock("mine", [held] { ADD_FAILURE() << "ran on an ended thread"; });
    }).join();
    EXPECT_NE(loop, loops.CFRunLoopGetCurrent());
    EXPECT_EQ(source->cancelled, 1);
    EXPECT_FALSE(timer->CFRunLoopTimerIsValid());
    loop->CFRunLoopPerformBlock("mine", [held] { ADD_FAILURE() << "ran on an ended thread"; });
    timer.reset();
    EXPECT_EQ(held.use_count(), 1);
}

class MessagePortTest : public ::testing::Test {
  protected:
    AsioRunLoops runLoops;
    const PlatformScope scope{{.runLoops = &runLoops}};
    std::vector<int> received;
    std::unique_ptr<CFMessagePort> local = CFMessagePort::CFMessagePortCreateLocal(
        "port", [this](std::int32_t id, const CFData& data) { received.push_back(id * 100 + data.at(0)); });
    std::unique_ptr<CFMessagePort> remote = CFMessagePort::CFMessagePortCreateRemote("port");

    static void Serve(double seconds = 0) {
        CFRunLoopGetCurrent()->CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, seconds > 0);
    }
};

TEST_F(MessagePortTest, NamesAreUniqueWhileTheyLive) {
    EXPECT_FALSE(CFMessagePort::CFMessagePortCreateLocal("port", {}));
    EXPECT_FALSE(CFMessagePort::CFMessagePortCreateRemote("nobody"));
    local.reset();
    EXPECT_FALSE(remote->CFMessagePortIsValid());
    EXPECT_EQ(remote->CFMessagePortSendRequest(1, {1}, 0), kCFMessagePortIsInvalid);
    EXPECT_TRUE(CFMessagePort::CFMessagePortCreateLocal("port", {}));
}

TEST_F(MessagePortTest, MessagesArriveInOrderAndAFullQueueTimesOut) {
    for (unsigned char i = 1; i <= 3; ++i) EXPECT_EQ(remote->CFMessagePortSendRequest(7, {i}, 0), 0);
    Serve();
    EXPECT_TRUE(received.empty()) << "the port is on no run loop yet";
    local->CFRunLoopAddSource();
    for (unsigned char i = 4; i <= 5; ++i) EXPECT_EQ(remote->CFMessagePortSendRequest(7, {i}, 0), 0);
    EXPECT_EQ(remote->CFMessagePortSendRequest(7, {6}, 0), kCFMessagePortSendTimeout);
    EXPECT_TRUE(received.empty()) << "delivered inside a send";
    Serve();
    EXPECT_EQ(received, (std::vector{701, 702, 703, 704, 705}));
}

TEST_F(MessagePortTest, AWaitingSenderGoesOnWhenTheReceiverServesOrEnds) {
    local->CFRunLoopAddSource();
    auto sent = std::async(std::launch::async, [this] {
        int count = 0;
        while (remote->CFMessagePortSendRequest(count, {0}, kWatchdog) == kCFMessagePortSuccess) ++count;
        return count;
    });
    while (received.size() < 50) Serve(kWatchdog);
    local->CFMessagePortInvalidate();
    EXPECT_GE(sent.get(), 50);
    EXPECT_TRUE(std::is_sorted(received.begin(), received.end()));
}

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
