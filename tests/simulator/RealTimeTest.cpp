#include "simulator/RealTimeDrive.hpp"

#include <atomic>
#include <thread>

#include "platform/Platform.hpp"
#include "platform/linux/AsioRunLoop.hpp"
#include "simulator/InProcessBus.hpp"
#include "tests/support/UsbContract.hpp"

namespace {

using simulator::Fault;
using simulator::FaultKind;

/// The in-process bus in real time, with its own thread, on the system's run loops.
class RealTimeBackend final : public contract::UsbBackend {
  public:
    RealTimeBackend() {
        bus.addDevice();
        drive.start(bus);
    }
    ~RealTimeBackend() override {
        drive.requestStop();
        drive.join();
    }
    RealTimeBackend(const RealTimeBackend&) = delete;
    RealTimeBackend& operator=(const RealTimeBackend&) = delete;

    platform::IORegistry& registry() override { return bus; }
    platform::CFRunLoop& loop() override { return *sharedLoop(); }
    std::shared_ptr<platform::CFRunLoop> sharedLoop() override { return loops.CFRunLoopGetCurrent(); }
    void plug() override { bus.plug(0); }
    void unplug() override { bus.unplug(0); }
    void withDevice(const std::function<void(simulator::Device&, simulator::Time)>& action) override {
        bus.withDevice(0, action);
    }

    platform::AsioRunLoops loops;
    simulator::RealTimeDrive drive;
    simulator::InProcessBus bus{drive};
};

TEST(RealTimeDrive, LateAnswerAndReturnFromARebootComeByThemselves) {
    RealTimeBackend backend;
    backend.withDevice([](simulator::Device& device, simulator::Time) {
        device.profile().leaveDelay = std::chrono::milliseconds(2);
        device.profile().rebootTime = std::chrono::milliseconds(5);
        device.addFault(Fault::onAnswer(simulator::kSessionStarted, FaultKind::LateAnswer)
                            .withDelay(std::chrono::milliseconds(30)));
    });
    int attaches = 0;  // not call-backs: two attaches may come in one
    const auto port = backend.bus.IONotificationPortCreate();
    backend.loop().CFRunLoopAddSource(port->IONotificationPortGetRunLoopSource(), platform::kCFRunLoopDefaultMode);
    std::unique_ptr<platform::IOIterator> iterator;
    backend.bus.IOServiceAddMatchingNotification(
        *port, platform::kIOServiceMatched, contract::matchingTrovik(),
        [](void* refCon, platform::IOIterator& arrived) {
            while (arrived.IOIteratorNext()) ++*static_cast<int*>(refCon);
        },
        &attaches, iterator);
    backend.plug();

    contract::Opened opened(backend, backend.bus.registryPath(0));
    opened.read(opened.interruptIn, true);
    opened.writeWhole(contract::kStart);
    ASSERT_TRUE(opened.runUntilCompletions(1));
    EXPECT_TRUE(opened.on(opened.interruptIn).empty()) << "the write has ended, the answer is still to come";
    ASSERT_TRUE(opened.runUntilCompletions(2));
    opened.writeWhole(simulator::encodePacket(
        {simulator::kApplicationLayer, simulator::kCommand, simulator::Writer().u16(simulator::kReboot).take()}));
    ASSERT_TRUE(opened.runUntil([&] { return opened.on(opened.interruptIn).size() == 2; }));
    EXPECT_EQ(opened.on(opened.interruptIn)[1].result, platform::kIOReturnNoDevice);
    opened.close();
    for (int slice = 0; slice < 200 && attaches < 2; ++slice) {
        backend.loop().CFRunLoopRunInMode(platform::kCFRunLoopDefaultMode, 0.05, true);
    }
    EXPECT_EQ(attaches, 2);
    backend.withDevice([](simulator::Device& device, simulator::Time) {
        EXPECT_EQ(device.bootState(), simulator::BootState::Starting);
    });
    backend.loop().CFRunLoopRemoveSource(port->IONotificationPortGetRunLoopSource());
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
    int rounds = 0;
    for (; !done || rounds == 0; ++rounds) {
        try {
            contract::Opened opened(backend, backend.bus.registryPath(0), "round " + std::to_string(rounds));
            opened.read(opened.interruptIn);
            opened.read(opened.interruptIn);
            if (opened.write(contract::kStart) == platform::kIOReturnSuccess) {
                opened.runUntilCompletions(2);
                for (const auto& one : opened.completions) {
                    EXPECT_TRUE(one.result == platform::kIOReturnSuccess || one.result == platform::kIOReturnNoDevice);
                }
            }
        } catch (const std::runtime_error&) {
            // The device left while it was being opened.
        }
    }
    person.join();
    EXPECT_EQ(backend.bus.pendingTransfers(), 0u);
    EXPECT_EQ(backend.bus.openDevices(), 0u);
    EXPECT_EQ(dynamic_cast<platform::AsioRunLoop&>(backend.loop()).ModeCount(), 0u);
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(InProcessInRealTime, UsbContract, RealTimeBackend);
