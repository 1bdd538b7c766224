#include "simulator/engine/Fault.hpp"

#include <algorithm>
#include <chrono>

namespace simulator {
namespace {

using std::chrono::milliseconds;

/// What the device does wrong, one line each. "Hold" is the host's packet that stops the device in its boot loader.
std::vector<Fault> makeCatalogue() {
    using Kind = FaultKind;
    constexpr auto kHold = kHoldInBootLoader;
    const Bytes garbage = {0x5A, 0xA5, 0x00, 0xFF, 0x13, 0x37, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x21};
    const auto cantOpen = [](platform::IOReturn result, const char* name) {
        Fault fault = Fault::onOperation(BusOperation::USBDeviceOpen, result);
        fault.name = name;
        return fault;
    };
    return {
        Fault::onPacket(kHold, Kind::Ignore, "hold-ignored").saying("Does not answer “hold in boot loader”"),
        Fault::onAnswer(kHold, Kind::LateAnswer, "hold-late")
            .withDelay(milliseconds(2900))
            .saying("Answers “hold” just in time (2.9 s)"),
        Fault::onAnswer(kHold, Kind::LateAnswer, "hold-too-late")
            .withDelay(milliseconds(3500))
            .saying("Answers “hold” too late (3.5 s)"),
        Fault::onAnswer(kHold, Kind::WrongAnswer, "hold-wrong-id")
            .withNumber(114)
            .saying("Answers “hold” with another packet"),
        Fault::onAnswer(kHold, Kind::Garbage, "hold-garbage").withBytes(garbage).saying("Answers “hold” with garbage"),
        Fault::onAnswer(kHold, Kind::ForeignFrames, "hold-after-strays")
            .withNumber(5)
            .saying("Answers “hold” after five stray packets"),
        Fault::onAnswer(kHold, Kind::WrongSizeField, "hold-wrong-size").saying("Answers “hold” with a wrong length"),
        Fault::onAnswer(kHold, Kind::Padded, "hold-4116-bytes").withNumber(4116).saying("Answers “hold” in 4116 bytes"),
        Fault::onPacket(kStartSession, Kind::Ignore, "first-session-ignored")
            .onLayer(kUsbLayer)
            .saying("Ignores the first start of a session"),
        Fault::onPacket(kStartSession, Kind::Ignore, "no-session")
            .onLayer(kUsbLayer)
            .committed(6)
            .saying("Ignores six starts of a session"),
        Fault::onAnswer(kLargest, Kind::NoAnswer, "no-largest-packet")
            .onLayer(kUsbLayer)
            .saying("Does not tell its largest packet"),
        Fault::onPacket(kProductRequest, Kind::Ignore, "no-product-data").saying("Does not say what product it is"),
        Fault::onAnswer(kProtocolList, Kind::NoAnswer, "no-protocol-list").saying("Does not list its protocols"),
        Fault::onAnswer(kProductData, Kind::Stall, "product-data-stall").saying("Stalls instead of naming its product"),
        Fault::onPacket(kHold, Kind::Stall, "hold-stall").saying("Stalls at “hold”"),
        Fault::onCommand(kReboot, Kind::Ignore, "reboot-ignored").saying("Ignores the command to restart"),
        Fault::onCommand(kReboot, Kind::NotTaken, "reboot-not-taken").saying("Does not take the command to restart"),
        Fault::onCommand(kReboot, Kind::Unplug, "reboot-unplug").saying("Loses its cable at the restart"),
        Fault::onPacket(kHold, Kind::Unplug, "hold-unplug")
            .comingBackAfter(milliseconds(3000))
            .saying("Loses its cable for 3 s at “hold”"),
        Fault::onCommand(kClearStore, Kind::Unplug, "clear-unplug")
            .comingBackAfter(milliseconds(3000))
            .saying("Loses its cable for 3 s at the erasing"),
        Fault::onPacket(kResumeBoot, Kind::Stall, "resume-stall").saying("Stalls when told to go on starting"),
        cantOpen(platform::kIOReturnNotPermitted, "open-denied")
            .committed(100)  // more often than a host that tries again for two seconds would ask
            .saying("May not be opened by the tool"),
        cantOpen(platform::kIOReturnExclusiveAccess, "open-held").saying("Is held by another program"),
    };
}

}  // namespace

const std::vector<Fault>& faultCatalogue() {
    static const std::vector<Fault> catalogue = makeCatalogue();
    return catalogue;
}

std::string_view faultSentence(std::string_view name) {
    const auto& all = faultCatalogue();
    const auto fault = std::ranges::find(all, name, &Fault::name);
    return fault == all.end() ? name : std::string_view(fault->sentence);
}

}  // namespace simulator
