#include "platform/CFMessagePort.hpp"

#include <gtest/gtest.h>

#include <future>

#include "platform/CFRunLoop.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/AsioRunLoop.hpp"

namespace platform {
namespace {

constexpr double kWatchdog = 20;  // seconds; far beyond anything that a passing test needs

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

}  // namespace
}  // namespace platform
