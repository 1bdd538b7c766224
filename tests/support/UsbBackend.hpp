#pragma once

#include "platform/CFRunLoop.hpp"
#include "platform/IORegistry.hpp"
#include "simulator/engine/Device.hpp"

#include <functional>

namespace support {

/// One way of having the simulated device on a bus, on port 0 and its cable not yet in. Tests that are for every way
/// are written against this.
class UsbBackend {
  public:
    using Action = std::function<void(simulator::Device&, simulator::Time)>;

    virtual ~UsbBackend() = default;
    virtual platform::IORegistry& registry() = 0;
    virtual platform::CFRunLoops& runLoops() = 0;

    virtual void plug() = 0;
    virtual void unplug() = 0;

    /// Has the action work on the device, safe against the backend's own threads; what the device then has to say
    /// reaches the bus before or soon after this returns.
    virtual void withDevice(const Action& action) = 0;

    /// Has the device send a packet that nobody asked for.
    void send(const simulator::UsbPacket& packet) {
        withDevice([&](simulator::Device& device, simulator::Time now) { device.send(packet, now); });
    }

    /// Nothing is pending, nothing is open; waits for a bus that is told late.
    virtual bool isAtRest() = 0;

    /// Of the test's thread, for as long as it lives.
    platform::CFRunLoop& loop() { return *runLoops().CFRunLoopGetCurrent(); }
};

}  // namespace support
