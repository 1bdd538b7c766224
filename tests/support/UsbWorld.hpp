#pragma once

#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "simulator/world/SimulatedWorld.hpp"
#include "tests/support/RaiseSite.hpp"
#include "tests/support/ScriptedUsb.hpp"

#include <string>
#include <utility>

namespace support {

using simulator::Bytes;
using std::chrono::milliseconds;

/// A world from whose registry a USB link can be opened.
class UsbWorld : public simulator::SimulatedWorld {
  public:
    using SimulatedWorld::SimulatedWorld;

    iou::UsbLink_t open(const std::string& registryPath) {
        return {mCancel, registryPath, iou::UsbLink_t::PacketCheckingModeDefault, iol::gcDefaultTimeout};
    }

  private:
    thr::CancelRequestedFunctor_t mCancel;
};

/// The simulated device, plugged in, on a bus that keeps USB's rules.
class SimulatedDevice : public UsbWorld {
  public:
    explicit SimulatedDevice(simulator::Profile profile = simulator::Profile::instant())
        : UsbWorld(std::move(profile)) {
        plug();
    }

    bool isUntouched() const { return bus.openDevices() == 0 && bus.pendingTransfers() == 0; }
    iou::UsbLink_t openLink() { return open(path()); }
};

/// A device that does whatever the test says.
class ScriptedDevice : public UsbWorld {
  public:
    /// Answers the start of a session as a device does.
    void startsSession() {
        usb.brings(ScriptedUsb::kInterruptIn, packet(0, 6, {1, 2, 3, 4}));
        usb.brings(ScriptedUsb::kInterruptIn, packet(0, 17, {12, 16, 0, 0}));
    }
    static Bytes packet(std::uint8_t layer, std::uint16_t id, Bytes data = {}) {
        return simulator::encodePacket({layer, id, std::move(data)});
    }
    iou::UsbLink_t openLink() { return open(usb.path); }

    ScriptedUsb usb{clock};

  private:
    platform::PlatformScope mScope{{.clock = &clock,
                                    .runLoops = &loops,
                                    .masterPort = &usb,
                                    .standardUserDefaults = &defaults,
                                    .log = [](const std::string&) {}}};
};

/// The same with a started session.
class StartedDevice : public ScriptedDevice {
  public:
    iou::UsbLink_t link{(startsSession(), openLink())};
};

}  // namespace support
