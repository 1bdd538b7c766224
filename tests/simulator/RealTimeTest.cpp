#include "simulator/RealTimeDrive.hpp"

#include <atomic>
#include <thread>

#include "tests/support/RealTimeBackend.hpp"
#include "tests/support/UsbContract.hpp"

namespace {

using simulator::Fault;
using simulator::FaultKind;
using support::RealTimeBackend;

TEST(RealTimeDrive, LateAnswerAndReturnFromARebootComeByThemselves) {
    RealTimeBackend backend;
    backend.withDevice([](simulator::Device& device, simulator::Time) {
        device.profile().leaveDelay = std::chrono::milliseconds(2);
        device.profile().rebootTime = std::chrono::milliseconds(5);
        device.addFault(Fault::onAnswer(simulator::kSessionStarted, FaultKind::LateAnswer)
                            .withDelay(std::chrono::milliseconds(30)));
    });
    backend.plug();
    contract::Opened opened(backend, backend.bus.registryPath(0));
    opened.read(opened.interruptIn, true);
    opened.writeWhole(contract::kStart);
    ASSERT_TRUE(opened.runUntilCompletions(2));
    opened.writeWhole(simulator::encodePacket(
        {simulator::kApplicationLayer, simulator::kCommand, simulator::Writer().u16(simulator::kReboot).take()}));
    ASSERT_TRUE(opened.runUntil([&] { return opened.on(opened.interruptIn).size() == 2; }));
    EXPECT_EQ(opened.on(opened.interruptIn)[1].result, platform::kIOReturnNoDevice);
    opened.close();
    ASSERT_TRUE(opened.runUntil([&] { return !contract::present(backend.bus).empty(); }));
    backend.withDevice([](simulator::Device& device, simulator::Time) {
        EXPECT_EQ(device.bootState(), simulator::BootState::Starting);
    });
}

TEST(RealTimeDrive, HostAndPersonMayWorkAtTheSameTime) {
    RealTimeBackend backend;
    backend.withDevice([](simulator::Device& device, simulator::Time) {
        device.profile().answerDelay = std::chrono::microseconds(50);
    });
    backend.plug();
    std::atomic<bool> done{false};
    std::thread person([&] {
        for (int i = 0; i < 200; ++i) {
            backend.unplug();
            backend.plug();
        }
        done = true;
    });
    do {
        try {
            contract::Opened opened(backend, backend.bus.registryPath(0));
            opened.read(opened.interruptIn);
            opened.read(opened.interruptIn);
            if (opened.write(contract::kStart) == platform::kIOReturnSuccess) opened.runUntilCompletions(2);
            for (const auto& one : opened.completions)
                EXPECT_TRUE(one.result == platform::kIOReturnSuccess || one.result == platform::kIOReturnNoDevice);
        } catch (const std::runtime_error&) {
            // The device left while it was being opened.
        }
    } while (!done);
    person.join();
    EXPECT_TRUE(backend.isAtRest());
    EXPECT_EQ(dynamic_cast<platform::AsioRunLoop&>(backend.loop()).ModeCount(), 0u);
}

}  // namespace
