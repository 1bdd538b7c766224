#pragma once

#include "simulator/engine/Device.hpp"
#include "simulator/gadget/Aio.hpp"
#include "simulator/gadget/FunctionFs.hpp"

#include <array>
#include <functional>
#include <optional>

namespace simulator {

/// Plugs a simulated device into a kernel's USB device controller: the engine on one side, the endpoints of a
/// FunctionFS gadget on the other. One thread: step() waits for whatever comes first (a transfer, an event of the
/// function, the engine's next due moment, a further descriptor of the caller's) and deals with it.
class GadgetPlug {
  public:
    /// Both must outlive the plug.
    GadgetPlug(FunctionFs& function, Device& device) : mFunction(function), mDevice(device) {}
    ~GadgetPlug();  ///< off the bus
    GadgetPlug(const GadgetPlug&) = delete;
    GadgetPlug& operator=(const GadgetPlug&) = delete;

    /// Waits until there is something to do and does it. Blocks.
    /// @param descriptors  further descriptors to wait for; `ready` is called for each one that can be read
    void step(std::initializer_list<int> descriptors, const std::function<void(int)>& ready);

    static Time now();

  private:
    void followWish();
    void joinBus();
    void leaveBus();
    void followEvents();
    void setEnabled(bool enabled);
    void pump();
    void readNext();
    void offer();
    void writeNext(Pipe pipe);
    void halt(Pipe pipe);

    FunctionFs& mFunction;
    Device& mDevice;
    Aio mAio;
    bool mEnabled = false;
    unsigned mGeneration = 0;        ///< counts enablings; what completes in a later one than it began is dropped
    bool mReading = false;           ///< a read of the out endpoint is under way
    std::optional<Bytes> mOffer;     ///< a packet that the device has not taken yet
    std::array<bool, 2> mWriting{};  ///< by in pipe
    std::array<bool, 3> mHalted{};
};

}  // namespace simulator
