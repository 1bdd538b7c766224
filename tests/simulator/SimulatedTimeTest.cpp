#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simulator/world/SimulatedWorld.hpp"

namespace simulator {
namespace {

using platform::CFRunLoopRunResult;
using std::chrono::milliseconds;

class SimulatedTime : public ::testing::Test {
  protected:
    double in(double seconds) { return world.clock.CFAbsoluteTimeGetCurrent() + seconds; }

    SimulatedWorld world;
    std::shared_ptr<platform::CFRunLoop> loop = world.loops.CFRunLoopGetCurrent();
    std::string log;
};

TEST_F(SimulatedTime, SliceEndsAtItsTimeOrAfterOnePieceOfWork) {
    EXPECT_EQ(loop->CFRunLoopRunInMode("m", 0.2, true), CFRunLoopRunResult::TimedOut);
    EXPECT_EQ(world.elapsed(), milliseconds(200));
    loop->CFRunLoopPerformBlock("m", [this] { log += 'a'; });
    loop->CFRunLoopPerformBlock("other", [this] { log += 'x'; });
    loop->CFRunLoopPerformBlock("m", [this] { log += 'b'; });
    EXPECT_EQ(loop->CFRunLoopRunInMode("m", 0.2, true), CFRunLoopRunResult::HandledSource);
    EXPECT_EQ(log, "a");
    EXPECT_EQ(loop->CFRunLoopRunInMode("m", 0, false), CFRunLoopRunResult::TimedOut);
    EXPECT_EQ(log, "ab") << "another mode's block waits for its own mode";
    EXPECT_EQ(world.elapsed(), milliseconds(200));
    EXPECT_TRUE(world.loops.hasReadyBlocks());
}

TEST_F(SimulatedTime, TimersFireAtTheirMomentsInTheirMode) {
    const auto once = loop->CFRunLoopAddTimer("m", in(3.0), 0, [&] { log += 'o'; });
    const auto often = loop->CFRunLoopAddTimer("m", in(1.0), 1.0, [&] { log += 'r'; });
    auto gone = loop->CFRunLoopAddTimer("m", in(0.5), 0, [&] { log += 'x'; });
    const auto elsewhere = loop->CFRunLoopAddTimer("other", in(0.1), 0, [&] { log += 'x'; });
    gone.reset();
    EXPECT_EQ(loop->CFRunLoopRunInMode("m", 2.999, false), CFRunLoopRunResult::TimedOut);
    EXPECT_EQ(log, "rr");
    EXPECT_TRUE(once->CFRunLoopTimerIsValid());
    loop->CFRunLoopRunInMode("m", 0.001, false);
    EXPECT_EQ(log, "rror");
    EXPECT_FALSE(once->CFRunLoopTimerIsValid());
    EXPECT_TRUE(often->CFRunLoopTimerIsValid());
    EXPECT_EQ(world.elapsed(), milliseconds(3000));
}

TEST_F(SimulatedTime, StopEndsARunAndAQuietLoopReturns) {
    loop->CFRunLoopPerformBlock(platform::kCFRunLoopDefaultMode, [&] { loop->CFRunLoopStop(); });
    EXPECT_EQ(loop->CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, 60, false), CFRunLoopRunResult::Stopped);
    const auto timer = loop->CFRunLoopAddTimer(platform::kCFRunLoopDefaultMode, in(5), 0, [&] { log += 't'; });
    loop->CFRunLoopRun();
    EXPECT_EQ(log, "t");
    EXPECT_EQ(world.elapsed(), std::chrono::seconds(5));
}

TEST_F(SimulatedTime, SleepLetsTheDeviceDoItsWorkOnTheWay) {
    Fault fault;
    fault.step.at = FaultStep::At::Attach;
    fault.kind = FaultKind::Unplug;
    world.addFault(fault.withDelay(milliseconds(100)));
    world.plug();
    EXPECT_TRUE(world.clock.MPDelayUntil(in(0.2)));
    EXPECT_FALSE(world.bus.isAttached(0));
    EXPECT_EQ(world.device().record().entries().back().time - world.clock.now(), -milliseconds(100));
    EXPECT_TRUE(world.clock.MPDelayUntil(in(-1)));
    EXPECT_EQ(world.elapsed(), milliseconds(200));
}

TEST_F(SimulatedTime, QueuesKeepTheirWorkUntilTheyAreDrained) {
    auto& queue = world.mainQueue;
    queue.dispatch_async([&] {
        log += 'a';
        queue.dispatch_async([&] { log += 'c'; });
    });
    const auto once = queue.scheduledTimerWithTimeInterval(1, false, [&] { log += 'o'; });
    const auto often = queue.scheduledTimerWithTimeInterval(2, true, [&] { log += 'r'; });
    auto gone = queue.scheduledTimerWithTimeInterval(1, false, [&] { log += 'x'; });
    gone.reset();
    EXPECT_EQ(log, "");
    queue.dispatch_sync([&] { log += 's'; });
    EXPECT_EQ(log, "acs");
    world.clock.advanceBy(std::chrono::seconds(2));
    EXPECT_EQ(log, "acs");
    EXPECT_EQ(queue.drain(), 2u);
    EXPECT_EQ(log, "acsor");
    EXPECT_FALSE(once->isValid());
    world.runFor(std::chrono::seconds(4));
    EXPECT_EQ(log, "acsorrr");
    EXPECT_EQ(world.elapsed(), std::chrono::seconds(6));
}

}  // namespace
}  // namespace simulator
