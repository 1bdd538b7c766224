#include "simulator/engine/Fault.hpp"

namespace simulator {
namespace {

using std::chrono::milliseconds;

std::vector<Fault> makeCatalogue() {
    using Kind = FaultKind;
    return {
        Fault::onPacket(kHoldInBootLoader, Kind::Ignore, "No answer to \"hold in boot loader\""),
        Fault::onAnswer(kHoldInBootLoader, Kind::LateAnswer, "Answer to \"hold\" just in time (2.9 s)")
            .withDelay(milliseconds(2900)),
        Fault::onAnswer(kHoldInBootLoader, Kind::LateAnswer, "Answer to \"hold\" too late (3.5 s)")
            .withDelay(milliseconds(3500)),
        Fault::onAnswer(kHoldInBootLoader, Kind::WrongAnswer, "Answer to \"hold\" under another id").withNumber(114),
        Fault::onAnswer(kHoldInBootLoader, Kind::Garbage, "Garbage in place of the answer to \"hold\"")
            .withBytes({0x5A, 0xA5, 0x00, 0xFF, 0x13, 0x37, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x21}),
        Fault::onAnswer(kHoldInBootLoader, Kind::ForeignFrames, "Foreign packets before the answer to \"hold\"")
            .withNumber(5),
        Fault::onAnswer(kHoldInBootLoader, Kind::WrongSizeField, "Wrong size field in the answer to \"hold\""),
        Fault::onAnswer(kHoldInBootLoader, Kind::Padded, "Answer to \"hold\" in 4116 bytes").withNumber(4116),
        Fault::onPacket(kStartSession, Kind::Ignore, "First start of a session unanswered").onLayer(kUsbLayer),
        Fault::onPacket(kStartSession, Kind::Ignore, "No session at all").onLayer(kUsbLayer).committed(6),
        Fault::onAnswer(kLargest, Kind::NoAnswer, "Largest packet not told").onLayer(kUsbLayer),
        Fault::onPacket(kProductRequest, Kind::Ignore, "No product data"),
        Fault::onAnswer(kProtocolList, Kind::NoAnswer, "No protocol list"),
        Fault::onAnswer(kProductData, Kind::Stall, "Pipe stalls in place of the product data"),
        Fault::onPacket(kHoldInBootLoader, Kind::Stall, "Out pipe stalls at \"hold\""),
        Fault::onCommand(kReboot, Kind::Ignore, "Reboot command ignored"),
        Fault::onCommand(kReboot, Kind::NotTaken, "Reboot command not taken from the bus"),
        Fault::onCommand(kReboot, Kind::Unplug, "Cable out at the reboot command"),
        Fault::onPacket(kHoldInBootLoader, Kind::Unplug, "Cable out at \"hold\", in again after 3 s")
            .comingBackAfter(milliseconds(3000)),
        Fault::onCommand(kClearStore, Kind::Unplug, "Cable out at the clear command, in again after 3 s")
            .comingBackAfter(milliseconds(3000)),
        Fault::onPacket(kResumeBoot, Kind::Stall, "Out pipe stalls at \"resume boot\""),
        [] {
            Fault fault = Fault::onOperation(BusOperation::USBDeviceOpen, platform::kIOReturnNotPermitted);
            fault.name = "Opening the device is denied";
            return fault.committed(100);  // more often than a host that tries again for two seconds would ask
        }(),
        [] {
            Fault fault = Fault::onOperation(BusOperation::USBDeviceOpen, platform::kIOReturnExclusiveAccess);
            fault.name = "Another program holds the device";
            return fault;
        }(),
    };
}

}  // namespace

const std::vector<Fault>& faultCatalogue() {
    static const std::vector<Fault> catalogue = makeCatalogue();
    return catalogue;
}

}  // namespace simulator
