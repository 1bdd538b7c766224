// Queues and what is delivered on them: the logging's are their only users.
#include "platform/common/FileDescriptor.hpp"
#include "platform/common/SerialQueue.hpp"
#include "platform/linux/loop/LinuxDispatchSources.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <dlfcn.h>
#include <fcntl.h>
#include <latch>
#include <stdexcept>
#include <sys/timerfd.h>
#include <thread>

static std::atomic<bool> gClockIsSet = false;

/// In the place of the C library's: a step of the clock can take a timer's expiry with it.
extern "C" ssize_t read(int descriptor, void* buffer, std::size_t size) {
    const ssize_t count = reinterpret_cast<decltype(&read)>(::dlsym(RTLD_NEXT, "read"))(descriptor, buffer, size);
    itimerspec left;
    if (count < 0 || ::timerfd_gettime(descriptor, &left) != 0 || !gClockIsSet.exchange(false)) return count;
    errno = ECANCELED;
    return -1;
}

namespace {

using namespace std::chrono_literals;
using platform::SerialQueue;

TEST(SerialQueue, BlocksOfManyThreadsRunOneAtATimeAndInEachThreadsOrder) {
    constexpr int kThreads = 4, kBlocks = 500;
    std::array<int, kThreads> next{};
    int inside = 0, faults = 0;
    {
        SerialQueue queue("serial");
        std::vector<std::jthread> threads;
        for (int& mine : next)
            threads.emplace_back([&] {
                for (int i = 0; i < kBlocks; ++i) {
                    const auto block = [&, i] {
                        if (inside++ != 0 || mine++ != i) ++faults;
                        --inside;
                    };
                    i % 3 ? queue.dispatch_async(block) : queue.dispatch_sync(block);
                }
            });
        threads.clear();
    }  // runs what still waits
    EXPECT_EQ(faults, 0);
    EXPECT_THAT(next, testing::Each(kBlocks));
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

    // What a block holds goes within the queue, and what a block submits while the queue ends still runs.
    bool within = false;
    int left = 1000;
    std::function<void()> again;
    {
        SerialQueue ending("ending");
        ending.dispatch_async([held = std::shared_ptr<void>(nullptr, [&](void*) { within = ending.isCurrent(); })] {});
        again = [&] {
            if (--left > 0) ending.dispatch_async(again);
        };
        ending.dispatch_async(again);
    }
    EXPECT_TRUE(within);
    EXPECT_EQ(left, 0);
}

platform::LinuxDispatchSources sources;

// The file logger's tests show what tells of a file's end, and what does not.
TEST(VnodeSource, FileThatHasLostItsNameBeforeIsToldOf) {
    const support::TemporaryFolder folder;
    const std::string path = folder / "watched.txt";
    const platform::FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT, 0600));
    std::filesystem::remove(path);
    std::latch told(1);
    platform::SerialQueue queue("vnode");
    const auto source = sources.dispatch_source_vnode(file.get(), path, queue, [&] { told.count_down(); });
    told.wait();
}

TEST(TimerSource, FiresNotBeforeItsMomentAlsoWhereTheClockIsSetThen) {
    gClockIsSet = true;
    std::latch fired(1);
    platform::SerialQueue queue("timer");
    const auto date = std::chrono::system_clock::now() + 20ms;
    const auto source = sources.dispatch_source_timer(date, queue, [&] {
        EXPECT_GE(std::chrono::system_clock::now(), date);
        EXPECT_FALSE(gClockIsSet);
        fired.count_down();
    });
    fired.wait();
}

TEST(TimerSource, HandlerThatAlreadyWaitsInTheQueueDoesNotRunAfterTheCancel) {
    platform::SerialQueue queue("timer");
    std::atomic<bool> ran{false};
    std::latch fired(1);
    queue.dispatch_sync([&] {
        auto cancelled = sources.dispatch_source_timer({}, queue, [&] { ran = true; });
        // The second timer is behind the first one; once it is delivered, so is the first.
        platform::SerialQueue other("other");
        const auto behind = sources.dispatch_source_timer({}, other, [&] { fired.count_down(); });
        fired.wait();
        cancelled.reset();
    });
    queue.dispatch_sync([] {});
    EXPECT_FALSE(ran);
}

}  // namespace
