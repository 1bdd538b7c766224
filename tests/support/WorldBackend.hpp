#pragma once

#include <utility>

#include "simulator/world/SimulatedWorld.hpp"
#include "tests/support/UsbBackend.hpp"

namespace support {

/// The in-process bus in simulated time, and all that is around it.
class WorldBackend final : public UsbBackend {
  public:
    explicit WorldBackend(simulator::Profile profile = {}) : world(std::move(profile)) {}
    platform::IORegistry& registry() override { return world.bus; }
    platform::CFRunLoops& runLoops() override { return world.loops; }
    void plug() override { world.plug(); }
    void unplug() override { world.unplug(); }
    void withDevice(const std::function<void(simulator::Device&, simulator::Time)>& action) override {
        world.bus.withDevice(0, action);
    }
    bool isAtRest() override { return world.bus.pendingTransfers() == 0 && world.bus.openDevices() == 0; }

    simulator::SimulatedWorld world;
};

}  // namespace support
