#include "platform/DispatchSource.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <latch>

#include "platform/SerialQueue.hpp"
#include "platform/linux/FileDescriptor.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace {

using namespace std::chrono_literals;

struct WatchedFile {
    support::TemporaryFolder folder;
    std::string path = folder / "watched.txt";
    platform::FileDescriptor file{::open(path.c_str(), O_WRONLY | O_CREAT, 0600)};
};

TEST(VnodeSource, TellsOnceThatTheFileHasGone) {
    for (const bool renamed : {false, true}) {
        WatchedFile watched;
        platform::SerialQueue queue("vnode");
        std::latch told(1);
        std::atomic<int> count{0};
        const auto source = platform::dispatch_source_vnode(watched.file.get(), queue, [&] {
            if (count++ == 0) told.count_down();
        });
        // What is no end of the file does not count: the handler would run for it before it runs for the end.
        ASSERT_EQ(::write(watched.file.get(), "x", 1), 1);
        ASSERT_EQ(::fchmod(watched.file.get(), 0644), 0);
        const std::string& path = watched.path;
        ASSERT_EQ(renamed ? std::rename(path.c_str(), (path + ".moved").c_str()) : ::unlink(path.c_str()), 0);
        told.wait();
        queue.dispatch_sync([] {});
        EXPECT_EQ(count, 1);
    }
}

TEST(VnodeSource, FileThatIsAlreadyUnlinkedIsToldOf) {
    WatchedFile watched;
    ::unlink(watched.path.c_str());
    platform::SerialQueue queue("vnode");
    std::latch told(1);
    const auto source = platform::dispatch_source_vnode(watched.file.get(), queue, [&] { told.count_down(); });
    told.wait();
}

TEST(TimerSource, FiresNotBeforeItsMomentAndAtOnceForOneThatHasPassed) {
    platform::SerialQueue queue("timer");
    const auto now = std::chrono::system_clock::now();
    for (const auto& date : {decltype(now)(), now - 24h, now + 20ms}) {
        std::latch fired(1);
        std::atomic<bool> early{false};
        const auto source = platform::dispatch_source_timer(date, queue, [&] {
            early = std::chrono::system_clock::now() < date;
            fired.count_down();
        });
        fired.wait();
        EXPECT_FALSE(early);
    }
}

TEST(TimerSource, HandlerThatAlreadyWaitsInTheQueueDoesNotRunAfterTheCancel) {
    platform::SerialQueue queue("timer");
    std::atomic<bool> ran{false};
    std::latch fired(1);
    queue.dispatch_sync([&] {
        auto cancelled = platform::dispatch_source_timer({}, queue, [&] { ran = true; });
        // The second timer is behind the first one; once it is delivered, so is the first.
        platform::SerialQueue other("other");
        const auto behind = platform::dispatch_source_timer({}, other, [&] { fired.count_down(); });
        fired.wait();
        cancelled.reset();
    });
    queue.dispatch_sync([] {});
    EXPECT_FALSE(ran);
}

}  // namespace
