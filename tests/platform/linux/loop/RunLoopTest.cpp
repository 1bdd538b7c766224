#include "platform/Platform.hpp"
#include "platform/common/CFMessagePort.hpp"
#include "platform/common/FileDescriptor.hpp"
#include "platform/common/GlobalQueue.hpp"
#include "platform/common/RunLoopMainQueue.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "simulator/world/SimulatedRunLoops.hpp"
#include "tests/support/MainQueueContract.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <functional>
#include <future>
#include <latch>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace platform {
namespace {

constexpr double kWatchdog = 20;  // seconds; far beyond anything that a passing test needs

/// Readable until it is read.
class EventSource final : public CFRunLoopSource {
  public:
    explicit EventSource(AsioRunLoop& loop) : mLoop(loop) {}
    void scheduled(const std::shared_ptr<CFRunLoop>&, std::string_view mode) override {
        mWatch = mLoop.watchReadable(mode, mEvent.get(), [this] {
            eventfd_t count = 0;
            EXPECT_EQ(eventfd_read(mEvent.get(), &count), 0);
            ++served;
            onServed();
        });
    }
    void cancelled() override {
        mWatch.reset();
        ++cancellations;
    }
    void Signal() { eventfd_write(mEvent.get(), 1); }

    int served = 0, cancellations = 0;
    std::function<void()> onServed = [] {};

  private:
    AsioRunLoop& mLoop;
    const FileDescriptor mEvent{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::unique_ptr<DescriptorWatch> mWatch;
};

/// The real loop, and a source in its mode "mine" that is ready from Signal() until it has been served.
struct RealLoop {
    RealLoop() { loop->CFRunLoopAddSource(source, "mine"); }
    ~RealLoop() { loop->end(); }
    void Signal() { source->Signal(); }
    const std::shared_ptr<AsioRunLoop> loop = std::make_shared<AsioRunLoop>();
    const std::shared_ptr<EventSource> source = std::make_shared<EventSource>(*loop);
    std::function<void()>& onServed = source->onServed;
};

class RunLoop : public ::testing::Test, public RealLoop {
  protected:
    CFRunLoopRunResult Run(std::string_view mode, double seconds = kWatchdog) {
        return loop->CFRunLoopRunInMode(mode, seconds, true);
    }
    CFAbsoluteTime In(double seconds) { return CFAbsoluteTimeGetCurrent() + seconds; }
};

TEST_F(RunLoop, ServesOnlyWhatBelongsToTheModeThatRuns) {
    int served = 0;
    source->Signal();
    loop->CFRunLoopPerformBlock("mine", [&] { ++served; });
    const auto timer = loop->CFRunLoopAddTimer("mine", In(-1), 0, [&] { ++served; });
    for (const auto mode : {std::string_view("another"), kCFRunLoopDefaultMode}) {
        EXPECT_EQ(Run(mode, 0), CFRunLoopRunResult::TimedOut);
        EXPECT_EQ(served + source->served, 0) << mode;
    }
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Run("mine"), CFRunLoopRunResult::HandledSource);
    loop->CFRunLoopRemoveSource(source);
    EXPECT_EQ(loop->modeCount(), 0U) << "the watch under way has gone with its source";
    source->Signal();
    EXPECT_EQ(Run("mine", 0), CFRunLoopRunResult::TimedOut);
    EXPECT_EQ(std::tuple(served, source->served, source->cancellations), std::tuple(2, 1, 1));
}

TEST_F(RunLoop, SourceStaysArmedAfterItsHandlerHasThrownUntilItRemovesItselfAndItsMode) {
    source->onServed = [] { throw std::runtime_error("from a handler"); };
    for (int i = 0; i < 2; ++i) {
        source->Signal();
        EXPECT_THROW(Run("mine"), std::runtime_error);
    }
    source->onServed = [&] { loop->CFRunLoopRemoveSource(source); };
    source->Signal();
    EXPECT_EQ(Run("mine"), CFRunLoopRunResult::HandledSource);
    EXPECT_EQ(source->served, 3);
    EXPECT_EQ(loop->modeCount(), 0U);
}

TEST_F(RunLoop, RepeatingTimerSkipsWhatItMissedHoweverShortItsPeriod) {
    int fired = 0, firedAlways = 0;
    const auto timer = loop->CFRunLoopAddTimer("mine", In(-10500), 1000, [&] { ++fired; });
    const auto always = loop->CFRunLoopAddTimer("mine", In(-10500), 1e-9, [&] { ++firedAlways; });
    for (int run = 0; run < 3; ++run) loop->CFRunLoopRunInMode("mine", 0, false);
    EXPECT_EQ(std::pair(fired, firedAlways), std::pair(1, 3));
    EXPECT_TRUE(timer->CFRunLoopTimerIsValid());
}

/// In simulated time there is nothing but blocks.
struct SimulatedLoop {
    void Signal() {
        loop->CFRunLoopPerformBlock("mine", [this] { onServed(); });
    }
    simulator::SimulatedClock clock;
    const PlatformScope scope{{.clock = &clock}};
    simulator::SimulatedRunLoops loops{clock};
    const std::shared_ptr<CFRunLoop> loop = loops.CFRunLoopGetCurrent();
    std::function<void()> onServed;
};

/// What holds for every loop.
template <typename Backend>
class RunLoopContract : public ::testing::Test {
  protected:
    /// A block and the source: each is ready once or, in a flood, again whenever it has been served.
    void MakeReady(bool isFlood) {
        blocksServed = sourceServed = 0;
        block = [this, isFlood] {
            if (++blocksServed < kMany && isFlood) Post(block);
        };
        backend.onServed = [this, isFlood] {
            if (++sourceServed < kMany && isFlood) backend.Signal();
        };
        Post(block);
        backend.Signal();
    }
    void Post(const std::function<void()>& action) { loop.CFRunLoopPerformBlock("mine", action); }
    std::unique_ptr<CFRunLoopTimer> AddDueTimer(const std::function<void()>& handler) {
        return loop.CFRunLoopAddTimer("mine", CFAbsoluteTimeGetCurrent() - 0.5, 0, handler);
    }
    CFRunLoopRunResult RunOnce() { return loop.CFRunLoopRunInMode("mine", kWatchdog, true); }
    void ExpectServed(int times) { EXPECT_EQ(std::pair(blocksServed, sourceServed), std::pair(times, times)); }

    static constexpr int kMany = 1000;
    Backend backend;
    CFRunLoop& loop = *backend.loop;
    int blocksServed = 0, sourceServed = 0;
    std::function<void()> block;
};
using EveryLoop = ::testing::Types<RealLoop, SimulatedLoop>;
TYPED_TEST_SUITE(RunLoopContract, EveryLoop);

TYPED_TEST(RunLoopContract, WhatIsReadyWhenATimerIsDueIsServedOnceAndThenTheTimerFires) {
    for (const bool isFlood : {false, true}) {
        SCOPED_TRACE(isFlood);
        this->MakeReady(isFlood);
        const auto timer = this->AddDueTimer([&] { this->ExpectServed(1); });
        int runs = 0;
        for (; timer->CFRunLoopTimerIsValid() && runs < this->kMany; ++runs) this->RunOnce();
        EXPECT_EQ(runs, 3);
    }
}

TYPED_TEST(RunLoopContract, TimerThatComesDueWhileThingsAreServedLetsTheReadyOnesPass) {
    std::string order;
    std::unique_ptr<CFRunLoopTimer> timer;
    this->Post([&] {
        this->Post([&] { order += "-posted"; });
        timer = this->AddDueTimer([&] { order += "-timer"; });
        order += "first";
    });
    this->Post([&] { order += "-second"; });
    for (int i = 0; i < 4; ++i) this->RunOnce();
    EXPECT_EQ(order, "first-second-posted-timer");
}

TYPED_TEST(RunLoopContract, TimerThatIsNoMoreLeavesItsPlaceToNoOtherAndDueOnesFireByTheirMoments) {
    std::string order;
    auto gone = this->AddDueTimer([&] { order += "-gone"; });
    this->Post([&] { order += "first"; });
    this->RunOnce();
    gone.reset();
    this->Post([&] { order += "-posted"; });
    const auto timer = this->AddDueTimer([&] { order += "-timer"; });
    std::unique_ptr<CFRunLoopTimer> sooner =
        this->loop.CFRunLoopAddTimer("mine", CFAbsoluteTimeGetCurrent() - 1, 0, [&] {
            EXPECT_FALSE(sooner->CFRunLoopTimerIsValid());
            order += "-sooner";
            sooner.reset();  // from its own handler
        });
    this->RunOnce();
    EXPECT_EQ(order, "first-posted");
    this->loop.CFRunLoopRunInMode("mine", 0, false);
    EXPECT_EQ(order, "first-posted-sooner-timer");
}

TYPED_TEST(RunLoopContract, RunOfZeroSecondsServesWhatWasReadyAndALongerOneWhatIsPostedMeanwhileInAnyFlood) {
    this->MakeReady(true);
    std::vector<std::unique_ptr<CFRunLoopTimer>> timers;
    const std::function<void()> addTimer = [&] {
        if (timers.size() < this->kMany) timers.push_back(this->AddDueTimer(addTimer));
    };
    addTimer();
    for (int run = 1; run <= 2; ++run) {
        EXPECT_EQ(this->loop.CFRunLoopRunInMode("mine", 0, false), CFRunLoopRunResult::TimedOut);
        this->ExpectServed(run);
        EXPECT_EQ(timers.size(), static_cast<std::size_t>(run) + 1);
    }
    this->Post([&] { this->Post([&] { this->loop.CFRunLoopStop(); }); });
    EXPECT_EQ(this->loop.CFRunLoopRunInMode("mine", kWatchdog, false), CFRunLoopRunResult::Stopped);
    EXPECT_LT(this->blocksServed, 10);
}

TYPED_TEST(RunLoopContract, CallOfAnotherThreadStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // the thread of the event sources may be there already
    EXPECT_DEATH(std::thread([this] { this->RunOnce(); }).join(), "used by a thread that does not own it");
    EXPECT_DEATH(std::thread([this] { this->AddDueTimer({}); }).join(), "used by a thread that does not own it");
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

TEST_F(RunLoop, DescriptorThatCannotBeWatchedIsStillItsOwners) {
    static_cast<void>(loop->readinessDescriptor());
    const FileDescriptor file(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));  // epoll takes no ordinary file
    EXPECT_THROW(static_cast<void>(loop->watchReadable(kCFRunLoopDefaultMode, file.get(), [] {})), std::system_error);
    EXPECT_GE(::fcntl(file.get(), F_GETFD), 0);
}

TEST_F(RunLoop, AnotherEventLoopIsWokenForWhatTheDefaultModeHasToDoAndForNothingElse) {
    const auto readable = [&](bool wait) {
        pollfd entry{loop->readinessDescriptor(), POLLIN, 0};
        return ::poll(&entry, 1, wait ? static_cast<int>(kWatchdog * 1000) : 0) == 1;
    };
    int served = 0;
    const auto count = [&] { ++served; };
    const auto early = std::make_shared<EventSource>(*loop);
    loop->CFRunLoopAddSource(early, kCFRunLoopDefaultMode);  // before the descriptor is asked for, as is the block
    loop->CFRunLoopPerformBlock(kCFRunLoopDefaultMode, count);
    EXPECT_TRUE(readable(false));
    loop->serveDefaultMode();

    const auto late = std::make_shared<EventSource>(*loop);
    loop->CFRunLoopAddSource(late, kCFRunLoopDefaultMode);
    std::unique_ptr<CFRunLoopTimer> timer;
    const std::tuple<const char*, std::function<void()>, std::function<int()>> rows[] = {
        {"a block of another thread",
         [&] { std::thread([&] { loop->CFRunLoopPerformBlock(kCFRunLoopDefaultMode, count); }).join(); },
         [&] { return served - 1; }},
        {"a source from before", [&] { early->Signal(); }, [&] { return early->served; }},
        {"a source from later", [&] { late->Signal(); }, [&] { return late->served; }},
        {"a timer", [&] { timer = loop->CFRunLoopAddTimer(kCFRunLoopDefaultMode, In(0.01), 0, count); },
         [&] { return served - 2; }},
    };
    for (const auto& [what, begin, done] : rows) {
        SCOPED_TRACE(what);
        EXPECT_FALSE(readable(false));
        begin();
        EXPECT_TRUE(readable(true));
        loop->serveDefaultMode();
        EXPECT_EQ(done(), 1);
    }

    source->Signal();
    loop->CFRunLoopPerformBlock("mine", count);
    loop->CFRunLoopRemoveSource(late);
    late->Signal();
    EXPECT_FALSE(readable(false)) << "another mode's work, and a source that was taken out";

    loop->CFRunLoopPerformBlock(kCFRunLoopDefaultMode, [] { throw std::runtime_error("thrown"); });
    loop->CFRunLoopPerformBlock(kCFRunLoopDefaultMode, count);
    EXPECT_THROW(loop->serveDefaultMode(), std::runtime_error);
    EXPECT_TRUE(readable(false)) << "the block behind the one that threw";
}

TEST(RunLoops, EachThreadHasOneLoopAndItsEndDestroysWhatWaits) {
    AsioRunLoops loops;
    EXPECT_EQ(loops.CFRunLoopGetCurrent(), AsioRunLoops().CFRunLoopGetCurrent());

    std::shared_ptr<EventSource> source;
    const auto held = std::make_shared<int>(0);
    std::shared_ptr<CFRunLoop> loop;
    std::unique_ptr<CFRunLoopTimer> timer;
    std::unique_ptr<MainQueue> queue;
    std::thread([&] {
        queue = std::make_unique<RunLoopMainQueue>(loops);
        queue->dispatch_async([held] { ADD_FAILURE() << "ran on an ended thread"; });
        loop = loops.CFRunLoopGetCurrent();
        source = std::make_shared<EventSource>(*loops.current());
        loop->CFRunLoopAddSource(source, "mine");
        timer = loop->CFRunLoopAddTimer("mine", 0, 1, [held] {});
    }).join();
    EXPECT_NE(loop, loops.CFRunLoopGetCurrent());
    EXPECT_EQ(source->cancellations, 1);
    EXPECT_FALSE(timer->CFRunLoopTimerIsValid());
    queue->dispatch_sync([] { ADD_FAILURE() << "ran on an ended thread"; });
    timer.reset();
    EXPECT_EQ(held.use_count(), 1);
}

TEST(MessagePortTest, MessagesArriveInOrderAndAFullQueueKeepsTheSenderUntilThereIsRoomOrThePortEnds) {
    AsioRunLoops runLoops;
    const PlatformScope scope{{.runLoops = &runLoops}};
    std::vector<int> received;
    auto local = CFMessagePort::CFMessagePortCreateLocal(
        "port", [&](std::int32_t id, const CFData& data) { received.push_back(id * 100 + data.at(0)); });
    const auto remote = CFMessagePort::CFMessagePortCreateRemote("port");
    EXPECT_FALSE(CFMessagePort::CFMessagePortCreateLocal("port", {})) << "the name is taken";
    const auto fill = [&] {
        for (unsigned char i = 1; i <= 5; ++i) EXPECT_EQ(remote->CFMessagePortSendRequest(7, {i}, 0), 0);
        EXPECT_EQ(remote->CFMessagePortSendRequest(7, {6}, 0), kCFMessagePortSendTimeout);
        EXPECT_TRUE(received.empty()) << "nothing is delivered inside a send, or before the port is on a loop";
    };
    const auto send = [&] { return remote->CFMessagePortSendRequest(7, {6}, kWatchdog); };
    fill();
    auto sent = std::async(std::launch::async, send);
    local->CFRunLoopAddSource();
    while (received.size() < 6) CFRunLoopGetCurrent()->CFRunLoopRunInMode(kCFRunLoopDefaultMode, kWatchdog, true);
    EXPECT_EQ(sent.get(), kCFMessagePortSuccess);
    EXPECT_EQ(std::exchange(received, {}), (std::vector{701, 702, 703, 704, 705, 706}));
    fill();
    sent = std::async(std::launch::async, send);
    local.reset();
    EXPECT_EQ(sent.get(), kCFMessagePortIsInvalid);
    EXPECT_TRUE(CFMessagePort::CFMessagePortCreateLocal("port", {})) << "the name is free again";
}

struct OnRunLoop {
    void runUntil(const std::function<bool()>& done) {
        while (!done()) loops.CFRunLoopGetCurrent()->CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1, true);
    }
    AsioRunLoops loops;
    std::unique_ptr<MainQueue> queue = std::make_unique<RunLoopMainQueue>(loops);
};

TEST(GlobalQueueTest, BlocksThatWaitForEachOtherAllRunAndAreJoined) {
    constexpr int kBlocks = 8;
    std::atomic<int> done = 0;
    {
        std::latch together(kBlocks);  // outlives the queue, whose blocks may still be leaving it
        GlobalQueue queue;
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
