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

TEST(VnodeSource, TellsOnceThatTheFileHasLostItsName) {
    // What is done to f before it is watched, what is no end of it, and its end.
    struct Case {
        const char *before, *harmless, *end;
    };
    for (const Case& tested : {Case{"", "echo x >> f; chmod 640 f", "rm f"}, Case{"", "ln f g; mv g h; rm h", "mv f g"},
                               Case{"rm f", "", ""}, Case{"ln f g", "", "rm f"}, Case{"", "", "ln f g; rm f"},
                               Case{"", "", "echo > new; mv new f"}}) {
        SCOPED_TRACE(std::string(tested.before) + " | " + tested.harmless + " | " + tested.end);
        const support::TemporaryFolder folder;
        const auto run = [&](const std::string& commands) {
            EXPECT_EQ(std::system(("cd " + folder.path().string() + "\n" + commands).c_str()), 0);
        };
        const platform::FileDescriptor file(::open((folder / "f").c_str(), O_WRONLY | O_CREAT, 0600));
        run(tested.before);
        platform::SerialQueue queue("vnode");
        std::latch told(1), behind(1);
        std::atomic<int> count{0};
        const auto source = platform::dispatch_source_vnode(file.get(), folder / "f", queue, [&] {
            if (count++ == 0) told.count_down();
        });
        run(tested.harmless);
        // A timer is delivered behind what the file has told so far.
        const auto timer = platform::dispatch_source_timer({}, queue, [&] { behind.count_down(); });
        behind.wait();
        EXPECT_EQ(count, *tested.end ? 0 : 1);
        run(tested.end);
        told.wait();
        queue.dispatch_sync([] {});
        EXPECT_EQ(count, 1);
    }
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
