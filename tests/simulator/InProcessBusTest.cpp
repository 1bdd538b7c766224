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

TEST(InProcessBus, DevicesPluggedTogetherArriveInOneNotification) {
    SimulatedWorld world;
    world.bus.addDevice(Profile::wearable());
    Profile other;
    other.productId = 4;
    world.bus.addDevice(other);
    struct Seen {
        std::vector<std::vector<std::string>> groups;
        static void callback(void* refCon, platform::IOIterator& iterator) {
            auto& group = static_cast<Seen*>(refCon)->groups.emplace_back();
            for (const auto& one : contract::drain(iterator)) group.push_back(one.path);
        }
    } seen;
    const auto port = world.bus.IONotificationPortCreate();
    std::unique_ptr<platform::IOIterator> iterator;
    ASSERT_EQ(world.bus.IOServiceAddMatchingNotification(*port, platform::kIOServiceMatched, contract::matchingTrovik(),
                                                         Seen::callback, &seen, iterator),
              platform::kIOReturnSuccess);
    // Armed, but not yet on a loop: what arrives now is told once it is.
    world.bus.plug({0, 1, 2});
    world.runUntilQuiet();
    EXPECT_TRUE(seen.groups.empty());
    world.loops.CFRunLoopGetCurrent()->CFRunLoopAddSource(port->IONotificationPortGetRunLoopSource(),
                                                          platform::kCFRunLoopDefaultMode);
    world.runUntilQuiet();
    EXPECT_EQ(seen.groups, (std::vector<std::vector<std::string>>{{world.path(0), world.path(1)}}));
    world.loops.CFRunLoopGetCurrent()->CFRunLoopRemoveSource(port->IONotificationPortGetRunLoopSource());
}

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

TEST(InProcessBus, EveryOperationCanBeMadeToFailWithAnyResult) {
    using Op = BusOperation;
    // Reached by opening, in this order, and passed by once each.
    const Op opening[] = {Op::IORegistryEntryFromPath,
                          Op::CreateDevicePlugIn,
                          Op::QueryDeviceInterface,
                          Op::USBDeviceOpen,
                          Op::GetConfigurationDescriptorPtr,
                          Op::SetConfiguration,
                          Op::CreateInterfaceIterator,
                          Op::InterfaceIteratorNext,
                          Op::CreateInterfacePlugIn,
                          Op::QueryInterfaceInterface,
                          Op::USBInterfaceOpen,
                          Op::GetNumEndpoints,
                          Op::GetPipeProperties,
                          Op::CreateInterfaceAsyncEventSource};
    WorldBackend backend;
    SimulatedWorld& world = backend.world;
    world.plug();
    for (const Op operation : opening) {
        SCOPED_TRACE(static_cast<int>(operation));
        world.addFault(Fault::onOperation(operation, platform::kIOReturnBusy));
        std::string failure;
        try {
            Opened opened(backend, world.path());
        } catch (const std::runtime_error& error) {
            failure = error.what();
        }
        const bool answersNull = operation == Op::IORegistryEntryFromPath || operation == Op::InterfaceIteratorNext;
        EXPECT_EQ(failure.substr(0, 3), answersNull ? "no " : "bus") << failure;
        EXPECT_EQ(world.device().faults().size(), 0u);
        EXPECT_EQ(world.bus.openDevices(), 0u) << "what was opened is closed again";
    }

    Opened opened(backend, world.path());
    std::uint16_t number = 0;
    const auto fails = [&](Op operation) { world.addFault(Fault::onOperation(operation, platform::kIOReturnIOError)); };
    fails(Op::GetDeviceVendor);
    fails(Op::GetDeviceProduct);
    fails(Op::GetDeviceReleaseNumber);
    fails(Op::ReadPipeAsync);
    fails(Op::WritePipeAsync);
    EXPECT_EQ(opened.device->GetDeviceVendor(number), platform::kIOReturnIOError);
    EXPECT_EQ(opened.device->GetDeviceProduct(number), platform::kIOReturnIOError);
    EXPECT_EQ(opened.device->GetDeviceReleaseNumber(number), platform::kIOReturnIOError);
    EXPECT_EQ(opened.read(opened.interruptIn), platform::kIOReturnIOError);
    EXPECT_EQ(opened.write(contract::kStart), platform::kIOReturnIOError);

    std::unique_ptr<platform::IOIterator> iterator;
    const auto port = world.bus.IONotificationPortCreate();
    for (const Op operation : {Op::IOServiceGetMatchingServices, Op::IOServiceAddMatchingNotification}) {
        world.bus.addFault(Fault::onOperation(operation, platform::kIOReturnNoMemory));
    }
    EXPECT_EQ(world.bus.IOServiceGetMatchingServices(contract::matchingTrovik(), iterator),
              platform::kIOReturnNoMemory);
    EXPECT_EQ(world.bus.IOServiceAddMatchingNotification(*port, platform::kIOServiceMatched, contract::matchingTrovik(),
                                                         nullptr, nullptr, iterator),
              platform::kIOReturnNoMemory);
    const auto entry = world.bus.IORegistryEntryFromPath(world.path());
    std::string path;
    std::uint64_t id = 0;
    fails(Op::IORegistryEntryGetPath);
    fails(Op::IORegistryEntryGetRegistryEntryID);
    EXPECT_EQ(entry->IORegistryEntryGetPath(platform::kIOServicePlane, path), platform::kIOReturnIOError);
    EXPECT_EQ(entry->IORegistryEntryGetRegistryEntryID(id), platform::kIOReturnIOError);
}

TEST(InProcessBus, FaultOfALaterOccurrenceLetsTheFirstOnesPass) {
    WorldBackend backend;
    SimulatedWorld& world = backend.world;
    world.plug();
    Opened opened(backend, world.path());
    world.addFault(Fault::onOperation(BusOperation::ReadPipeAsync, platform::kIOReturnNoMemory, 3));
    EXPECT_EQ(opened.read(opened.interruptIn), platform::kIOReturnSuccess);
    EXPECT_EQ(opened.read(opened.interruptIn), platform::kIOReturnSuccess);
    EXPECT_EQ(opened.read(opened.interruptIn), platform::kIOReturnNoMemory);
    EXPECT_EQ(opened.read(opened.interruptIn), platform::kIOReturnSuccess);
}

TEST(InProcessBus, LateAnswerArrivesAtItsVeryMoment) {
    for (const int delay : {2999, 3000, 3001}) {
        WorldBackend backend;
        SimulatedWorld& world = backend.world;
        world.plug();
        Opened opened(backend, world.path());
        world.addFault(Fault::onAnswer(kSessionStarted, FaultKind::LateAnswer).withDelay(milliseconds(delay)));
        opened.read(opened.interruptIn);
        opened.writeWhole(contract::kStart);
        const auto loop = world.loops.CFRunLoopGetCurrent();
        // As a session waits: a one-shot timer of three seconds, slices of 0.2 seconds.
        const auto timer = loop->CFRunLoopAddTimer("contract", world.clock.CFAbsoluteTimeGetCurrent() + 3.0, 0, [] {});
        while (opened.on(opened.interruptIn).empty() && timer->CFRunLoopTimerIsValid()) {
            loop->CFRunLoopRunInMode("contract", 0.2, true);
        }
        EXPECT_EQ(world.elapsed(), milliseconds(std::min(delay, 3000)));
        EXPECT_EQ(opened.on(opened.interruptIn).size(), delay <= 3000 ? 1u : 0u) << delay;
    }
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

TEST(InProcessBus, ManyRoundsLeaveNothingBehind) {
    WorldBackend backend(Profile::instant());
    SimulatedWorld& world = backend.world;
    world.plug();
    const Bytes reboot = encodePacket({kApplicationLayer, kCommand, Writer().u16(kReboot).take()});
    for (int round = 0; round < 1000; ++round) {
        Opened opened(backend, world.path(), "round " + std::to_string(round));
        // The second read is ended by the device's leaving, and nobody waits for its completion.
        opened.read(opened.interruptIn);
        opened.read(opened.interruptIn);
        opened.writeWhole(contract::kStart);
        opened.writeWhole(reboot);
        ASSERT_TRUE(opened.runUntil([&] { return opened.on(opened.bulkOut).size() == 2; }));
        EXPECT_EQ(opened.on(opened.bulkOut)[1].result, platform::kIOReturnSuccess) << "ended before the device left";
        opened.close();
        ASSERT_EQ(world.bus.pendingTransfers(), 0u);
        ASSERT_EQ(world.bus.openDevices(), 0u);
        ASSERT_FALSE(world.loops.hasReadyBlocks()) << "a block would keep its mode for ever";
    }
    EXPECT_TRUE(world.bus.isAttached(0));
    EXPECT_TRUE(world.device().record().refused().empty());
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
