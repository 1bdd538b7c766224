#include "platform/Platform.hpp"
#include "platform/linux/AsioRunLoop.hpp"
#include "platform/linux/UdevRegistry.hpp"
#include "simulator/umock/UmockUsb.hpp"
#include "tests/support/UsbContract.hpp"

namespace {

/// The real libusb and libudev, on devices behind umockdev.
template <simulator::UmockUsb::Node kNode>
class UmockBackend final : public contract::UsbBackend {
  public:
    UmockBackend() { mUsb.addDevice(); }
    platform::IORegistry& registry() override { return mRegistry; }
    platform::CFRunLoop& loop() override { return *sharedLoop(); }
    std::shared_ptr<platform::CFRunLoop> sharedLoop() override { return mLoops.CFRunLoopGetCurrent(); }
    void plug() override { mUsb.plug(); }
    void unplug() override { mUsb.unplug(); }
    void withDevice(const std::function<void(simulator::Device&, simulator::Time)>& action) override {
        mUsb.withDevice(0, action);
    }

  private:
    simulator::UmockUsb mUsb{kNode};
    platform::AsioRunLoops mLoops;
    platform::UdevRegistry mRegistry;
};

using OnQueueNode = UmockBackend<simulator::UmockUsb::Node::Queue>;
using OnTerminalNode = UmockBackend<simulator::UmockUsb::Node::Terminal>;

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(RealLibrariesOnQueue, UsbContract, OnQueueNode);
INSTANTIATE_TYPED_TEST_SUITE_P(RealLibrariesOnTerminal, UsbContract, OnTerminalNode);
