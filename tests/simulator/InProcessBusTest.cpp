#include "simulator/InProcessBus.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/support/RealTimeBackend.hpp"
#include "tests/support/UsbContract.hpp"
#include "tests/support/WorldBackend.hpp"

namespace simulator {
namespace {

using contract::Opened;
using support::WorldBackend;

TEST(InProcessBus, DeviceAndInterfaceAreHeldByOneAtATime) {
    WorldBackend backend;
    SimulatedWorld& world = backend.world;
    world.plug();
    Opened opened(backend, world.path());
    EXPECT_EQ(world.bus.openDevices(), 1u);
    EXPECT_EQ(opened.device->USBDeviceOpen(), platform::kIOReturnExclusiveAccess);
    EXPECT_EQ(opened.interface->USBInterfaceOpen(), platform::kIOReturnExclusiveAccess);
    EXPECT_THROW(Opened(backend, world.path()), std::runtime_error);
    opened.close();
    EXPECT_EQ(world.bus.openDevices(), 0u);
    EXPECT_NO_THROW(Opened(backend, world.path()));
}

TEST(InProcessBus, ObjectsMayOutliveTheBus) {
    SimulatedClock clock;
    SimulatedRunLoops loops(clock);
    auto bus = std::make_unique<InProcessBus>(clock);
    bus->plug(bus->addDevice());
    const auto entry = bus->IORegistryEntryFromPath(bus->registryPath(0));
    const auto port = bus->IONotificationPortCreate();
    const auto device = contract::deviceAt(*bus, bus->registryPath(0));
    ASSERT_EQ(device->USBDeviceOpen(), platform::kIOReturnSuccess);
    bus.reset();
    EXPECT_EQ(device->SetConfiguration(1), platform::kIOReturnNoDevice);
    std::string path;
    EXPECT_EQ(entry->IORegistryEntryGetPath(platform::kIOServicePlane, path), platform::kIOReturnNoDevice);
}

TEST(InProcessBus, ObserverHearsOfWhatAPersonWouldSee) {
    SimulatedWorld world;
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

}  // namespace
}  // namespace simulator

INSTANTIATE_TYPED_TEST_SUITE_P(InProcessInSimulatedTime, UsbContract, support::WorldBackend);
INSTANTIATE_TYPED_TEST_SUITE_P(InProcessInRealTime, UsbContract, support::RealTimeBackend);
