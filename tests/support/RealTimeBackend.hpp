#pragma once

#include "platform/linux/loop/AsioRunLoop.hpp"
#include "simulator/bus/InProcessBus.hpp"
#include "simulator/engine/RealTimeDrive.hpp"
#include "tests/support/UsbBackend.hpp"

#include <utility>

namespace support {

/// The in-process bus in real time, with its own thread, on the system's run loops.
class RealTimeBackend final : public UsbBackend {
  public:
    explicit RealTimeBackend(simulator::Profile profile = {}) {
        bus.addDevice(std::move(profile));
        mDrive.start(bus);
    }
    ~RealTimeBackend() override {
        mDrive.requestStop();
        mDrive.join();
    }
    RealTimeBackend(const RealTimeBackend&) = delete;
    RealTimeBackend& operator=(const RealTimeBackend&) = delete;

    platform::IORegistry& registry() override { return bus; }
    platform::CFRunLoops& runLoops() override { return mLoops; }
    void plug() override { bus.plug(0); }
    void unplug() override { bus.unplug(0); }
    void withDevice(const Action& action) override { bus.withDevice(0, action); }
    bool isAtRest() override { return bus.pendingTransfers() == 0 && bus.openDevices() == 0; }

  private:
    platform::AsioRunLoops mLoops;
    simulator::RealTimeDrive mDrive;

  public:
    simulator::InProcessBus bus{mDrive};
};

}  // namespace support
