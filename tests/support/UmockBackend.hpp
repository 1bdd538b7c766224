#pragma once

#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/usb/UdevRegistry.hpp"
#include "simulator/umock/UmockUsb.hpp"
#include "tests/support/UsbBackend.hpp"

#include <utility>

namespace support {

/// The real libusb and libudev, on devices behind umockdev. Before any other thread.
class UmockBackend : public UsbBackend {
  public:
    using Node = simulator::UmockUsb::Node;
    explicit UmockBackend(Node node = Node::Queue, simulator::Profile profile = {}) : usb(node) {
        usb.addDevice(std::move(profile));
    }
    platform::IORegistry& registry() override { return mRegistry; }
    platform::CFRunLoops& runLoops() override { return mLoops; }
    void plug() override { usb.plug(); }
    void unplug() override { usb.unplug(); }
    void withDevice(const Action& action) override { usb.withDevice(0, action); }
    bool isAtRest() override { return usb.waitUntilClosed() && usb.pendingTransfers() == 0; }

    simulator::UmockUsb usb;

  private:
    platform::AsioRunLoops mLoops;
    platform::UdevRegistry mRegistry{mLoops};
};

}  // namespace support
