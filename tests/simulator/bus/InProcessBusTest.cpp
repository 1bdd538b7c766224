#include "simulator/bus/InProcessBus.hpp"
#include "simulator/world/SimulatedWorld.hpp"
#include "tests/support/RealTimeBackend.hpp"
#include "tests/support/UsbContract.hpp"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <utility>

namespace simulator {
namespace {

using namespace platform;
using contract::Opened;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using support::RealTimeBackend;

/// The in-process bus in simulated time, and all that is around it.
struct WorldBackend final : support::UsbBackend {
    IORegistry& registry() override { return world.bus; }
    CFRunLoops& runLoops() override { return world.loops; }
    void plug() override { world.plug(); }
    void unplug() override { world.unplug(); }
    void withDevice(const Action& action) override { world.bus.withDevice(0, action); }
    bool isAtRest() override { return world.bus.pendingTransfers() == 0 && world.bus.openDevices() == 0; }

    SimulatedWorld world;
};

using InProcessBusTest = contract::UsbContract<WorldBackend>;
using RealTimeDriveTest = contract::UsbContract<RealTimeBackend>;

TEST_F(InProcessBusTest, DeviceAndInterfaceAreHeldByOneAtATime) {
    Opened opened = open();
    EXPECT_EQ(opened.device->USBDeviceOpen(), kIOReturnExclusiveAccess);
    EXPECT_EQ(opened.interface->USBInterfaceOpen(), kIOReturnExclusiveAccess);
    EXPECT_THROW(Opened(backend, backend.world.path()), std::runtime_error);
    opened.close();
    EXPECT_NO_THROW(Opened(backend, backend.world.path()));
}

TEST(InProcessBus, ObjectsMayOutliveTheBus) {
    SimulatedClock clock;
    SimulatedRunLoops loops(clock);
    auto bus = std::make_unique<InProcessBus>(clock);
    bus->plug(bus->addDevice());
    const auto entry = bus->IORegistryEntryFromPath(bus->registryPath(0));
    const auto port = bus->IONotificationPortCreate();
    const auto device = contract::deviceAt(*bus, bus->registryPath(0));
    ASSERT_EQ(device->USBDeviceOpen(), kIOReturnSuccess);
    bus.reset();
    EXPECT_EQ(device->SetConfiguration(1), kIOReturnNoDevice);
    std::string path;
    EXPECT_EQ(entry->IORegistryEntryGetPath(kIOServicePlane, path), kIOReturnNoDevice);
}

TEST_F(InProcessBusTest, ObserverHearsOfWhatAPersonWouldSee) {
    SimulatedWorld& world = backend.world;
    bool heard = false;
    world.bus.setObserver([&] { heard = true; });
    const auto hears = [&](const auto& action) {
        action();
        return std::exchange(heard, false);
    };
    const auto reboot = [](Device& device, Time now) { device.setBootState(BootState::Starting, now); };
    EXPECT_TRUE(hears([&] { world.plug(); }));
    EXPECT_FALSE(hears([&] { contract::present(world.bus); })) << "nobody would see that";
    EXPECT_TRUE(hears([&] { world.bus.withDevice(0, reboot); }));
    EXPECT_TRUE(hears([&] { world.bus.withDevice(0, [](Device& device, Time) { device.store().clear(); }); }));
    EXPECT_TRUE(hears([&] { world.unplug(); }));
    world.bus.setObserver({});
    EXPECT_FALSE(hears([&] { world.plug(); }));
}

TEST_F(RealTimeDriveTest, LateAnswerAndReturnFromARebootComeByThemselves) {
    backend.withDevice([](Device& device, Time) {
        device.profile().leaveDelay = milliseconds(2);
        device.profile().rebootTime = milliseconds(5);
    });
    addFault(Fault::onAnswer(kSessionStarted, FaultKind::LateAnswer).withDelay(milliseconds(30)));
    Opened opened = open();
    opened.read(opened.interruptIn, true);
    opened.writeWhole(contract::kStart);
    ASSERT_TRUE(opened.runUntilCompletions(2));
    opened.writeWhole(encodePacket({kApplicationLayer, kCommand, Writer().u16(kReboot).take()}));
    ASSERT_TRUE(opened.runUntil([&] { return opened.on(opened.interruptIn).size() == 2; }));
    EXPECT_EQ(opened.on(opened.interruptIn)[1].result, kIOReturnNoDevice);
    opened.close();
    ASSERT_TRUE(opened.runUntil([&] { return !contract::present(backend.bus).empty(); }));
    backend.withDevice([](Device& device, Time) { EXPECT_EQ(device.bootState(), BootState::Starting); });
}

TEST_F(RealTimeDriveTest, HostAndPersonMayWorkAtTheSameTime) {
    backend.withDevice([](Device& device, Time) { device.profile().answerDelay = microseconds(50); });
    backend.plug();
    const auto person = std::async(std::launch::async, [&] {
        for (int i = 0; i < 200; ++i) {
            backend.unplug();
            backend.plug();
        }
    });
    do {
        try {
            Opened opened(backend, backend.bus.registryPath(0));
            opened.read(opened.interruptIn);
            opened.read(opened.interruptIn);
            if (opened.write(contract::kStart) == kIOReturnSuccess) opened.runUntilCompletions(2);
            for (const auto& one : opened.completions)
                EXPECT_TRUE(one.result == kIOReturnSuccess || one.result == kIOReturnNoDevice);
        } catch (const std::runtime_error&) {
            // The device left while it was being opened.
        }
    } while (person.wait_for(microseconds(0)) != std::future_status::ready);
    EXPECT_TRUE(backend.isAtRest());
    EXPECT_EQ(AsioRunLoops().current()->modeCount(), 0u);
}

}  // namespace
}  // namespace simulator

INSTANTIATE_TYPED_TEST_SUITE_P(InProcessInSimulatedTime, UsbContract, simulator::WorldBackend);
INSTANTIATE_TYPED_TEST_SUITE_P(InProcessInRealTime, UsbContract, support::RealTimeBackend);
