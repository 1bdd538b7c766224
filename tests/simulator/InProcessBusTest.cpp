#include "simulator/InProcessBus.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/UsbContract.hpp"
#include "tests/support/WorldBackend.hpp"

namespace simulator {
namespace {

using contract::Opened;
using platform::IOReturn;
using std::chrono::milliseconds;
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

TEST(InProcessBus, ReadWithTooLittleRoomOverruns) {
    WorldBackend backend;
    SimulatedWorld& world = backend.world;
    world.plug();
    Opened opened(backend, world.path());
    std::array<unsigned char, 10> small{};
    std::optional<std::pair<IOReturn, std::size_t>> ended;
    opened.interface->ReadPipeAsync(
        static_cast<std::uint8_t>(opened.interruptIn), small,
        [](void* refCon, IOReturn result, void* count) {
            *static_cast<decltype(ended)*>(refCon) = {result, reinterpret_cast<std::size_t>(count)};
        },
        &ended);
    opened.writeWhole(contract::kStart);
    ASSERT_TRUE(opened.runUntil([&] { return ended.has_value(); }));
    EXPECT_EQ(*ended, std::pair(platform::kIOReturnOverrun, std::size_t{10}));
}

TEST(InProcessBus, ObjectsMayOutliveTheBus) {
    SimulatedClock clock;
    SimulatedRunLoops loops(clock);
    auto bus = std::make_unique<InProcessBus>(clock);
    bus->plug(bus->addDevice());
    const auto entry = bus->IORegistryEntryFromPath(bus->registryPath(0));
    const auto port = bus->IONotificationPortCreate();
    std::unique_ptr<platform::IOCFPlugInInterface> plugIn;
    std::unique_ptr<platform::IOUSBDeviceInterface> device;
    entry->IOCreatePlugInInterfaceForService(platform::IOUserClientType::kIOUSBDeviceUserClientTypeID, plugIn);
    plugIn->QueryInterface(device);
    ASSERT_EQ(device->USBDeviceOpen(), platform::kIOReturnSuccess);
    bus.reset();
    EXPECT_EQ(device->SetConfiguration(1), platform::kIOReturnNoDevice);
    std::string path;
    EXPECT_EQ(entry->IORegistryEntryGetPath(platform::kIOServicePlane, path), platform::kIOReturnNoDevice);
}

TEST(InProcessBus, ObserverHearsOfWhatAPersonWouldSee) {
    SimulatedWorld world;
    int heard = 0;
    world.bus.setObserver([&] { ++heard; });
    const auto hears = [&](const std::function<void()>& action) {
        const int before = heard;
        action();
        return heard > before;
    };
    EXPECT_TRUE(hears([&] { world.plug(); }));
    EXPECT_FALSE(hears([&] { contract::present(world.bus); })) << "nobody would see that";
    EXPECT_TRUE(hears([&] {
        world.bus.withDevice(0, [](Device& device, Time now) { device.setBootState(BootState::Starting, now); });
    }));
    EXPECT_TRUE(hears([&] { world.bus.withDevice(0, [](Device& device, Time) { device.store().clear(); }); }));
    EXPECT_TRUE(hears([&] { world.unplug(); }));
    world.bus.setObserver({});
    EXPECT_FALSE(hears([&] { world.plug(); }));
}

}  // namespace
}  // namespace simulator
