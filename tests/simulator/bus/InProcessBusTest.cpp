#include "simulator/bus/InProcessBus.hpp"
#include "simulator/world/SimulatedWorld.hpp"
#include "tests/support/RealTimeBackend.hpp"
#include "tests/support/UsbContract.hpp"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

namespace simulator {
namespace {

using namespace platform;
using contract::Opened;
using std::chrono::microseconds;
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

TEST_F(InProcessBusTest, ObserverHearsOfWhatAPersonWouldSee) {
    int heard = 0;
    backend.world.bus.setObserver([&] { ++heard; });
    backend.plug();
    contract::present(backend.registry());
    EXPECT_EQ(heard, 1) << "of the cable, and not of a look";
    backend.withDevice([](Device& device, Time) { device.store().clear(); });
    EXPECT_EQ(heard, 2);
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
}

}  // namespace
}  // namespace simulator

INSTANTIATE_TYPED_TEST_SUITE_P(InProcessInSimulatedTime, UsbContract, simulator::WorldBackend);
INSTANTIATE_TYPED_TEST_SUITE_P(InProcessInRealTime, UsbContract, support::RealTimeBackend);
