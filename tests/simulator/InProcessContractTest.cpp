#include "simulator/world/SimulatedWorld.hpp"
#include "tests/support/UsbContract.hpp"

namespace {

/// The in-process bus in simulated time.
class SimulatedBackend final : public contract::UsbBackend {
  public:
    platform::IORegistry& registry() override { return mWorld.bus; }
    platform::CFRunLoop& loop() override { return *sharedLoop(); }
    std::shared_ptr<platform::CFRunLoop> sharedLoop() override { return mWorld.loops.CFRunLoopGetCurrent(); }
    void plug() override { mWorld.plug(); }
    void unplug() override { mWorld.unplug(); }
    void withDevice(const std::function<void(simulator::Device&, simulator::Time)>& action) override {
        mWorld.bus.withDevice(0, action);
    }

  private:
    simulator::SimulatedWorld mWorld;
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(InProcessInSimulatedTime, UsbContract, SimulatedBackend);
