#include "platform/DispatchSource.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <latch>

#include "platform/SerialQueue.hpp"
#include "platform/linux/FileDescriptor.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace {

using namespace std::chrono_literals;

// The file logger's tests show what tells of a file's end, and what does not.
TEST(VnodeSource, FileThatHasLostItsNameBeforeIsToldOf) {
    const support::TemporaryFolder folder;
    const std::string path = folder / "watched.txt";
    const platform::FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT, 0600));
    std::filesystem::remove(path);
    platform::SerialQueue queue("vnode");
    std::latch told(1);
    const auto source = platform::dispatch_source_vnode(file.get(), path, queue, [&] { told.count_down(); });
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
