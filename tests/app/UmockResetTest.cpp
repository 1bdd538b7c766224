// The whole tool over the real libusb and libudev, on an emulated bus.
#include "tests/app/RealTimeApp.hpp"
#include "tests/support/ProcessResources.hpp"
#include "tests/support/UmockBackend.hpp"

#include <gmock/gmock.h>

namespace app_test {
namespace {

using simulator::BootState;
using simulator::Device;
using simulator::Fault;
using simulator::Pipe;
using testing::Contains;
using testing::IsEmpty;
using testing::StartsWith;
using enum simulator::FaultKind;

struct UmockReset : testing::Test {
    support::UmockBackend usb{support::UmockBackend::Node::Queue, simulator::Profile::instant()};
    RealTimeApp app{usb};
};

TEST_F(UmockReset, ManyResetsLeaveNothingBehind) {
    app.resetsLeaveNothingBehind(support::soakRounds(5));
}

TEST_F(UmockReset, MishapIsLoggedAndTheNextAttachGoesOn) {
    const std::string noReboot = "I Reboot failed: ";
    const struct {
        const char* name;
        Fault fault;
        std::string line;
    } mishaps[] = {
        {"bulk pipe stalls", Fault::onAnswer(253, Stall).withPipe(Pipe::BulkIn), noReboot},
        {"out pipe stalls at hold", Fault::onPacket(113, Stall), "I Hold in bootloader failed: "},
        {"cable out at the start", Fault::onPacket(5, Unplug).onLayer(0), noReboot},
        {"cable out at the answer of the identification", Fault::onAnswer(255, Unplug), noReboot},
        {"cable out while the reboot command is still to be taken", Fault::onCommand(0xAE, NotTaken),
         noReboot + "TrovikModeIoLink: issueCommand Failed ["},
        {"cable out during identification before resume",
         Fault::onPacket(254, Unplug).inState(BootState::HeldInBootLoader).atOccurrence(2), "I Resume boot failed: "},
    };
    app.plug();
    for (const auto& mishap : mishaps) {
        SCOPED_TRACE(mishap.name);
        const bool duringReboot = mishap.line.starts_with(noReboot);
        app.startAfresh();
        app.withDevice([&](Device& device) {
            device.addFault(mishap.fault);
            // As of RealTimeApp::reset().
            if (!duringReboot) device.addFault(Fault::onCommand(0xAE, Unplug).withDelay({}));
        });
        app.confirmReset();
        if (mishap.fault.kind == NotTaken) {
            bool waits = false;
            RealTimeApp::waitUntil("the reboot command", [&] {
                app.withDevice([&](Device& device) { waits = device.faults().size() == 0; });
                return waits;
            });
            usb.unplug();
        }
        if (!duringReboot) {
            app.waitFor(NextAction::ClearOnAttach);
            usb.plug();
        }
        // The reboot that a failure in the second half leads to finds the device if its cable is still in.
        if (mishap.fault.kind != Stall || duringReboot) {
            app.waitFor(NextAction::RebootOnAttach);
            EXPECT_TRUE(usb.isAtRest());
            usb.unplug();
            usb.plug();
        }
        app.waitFor(app.controller.outlets().completeView);
        EXPECT_THAT(app.log.take(), Contains(StartsWith(mishap.line)));
        app.withDevice([](Device& device) {
            EXPECT_TRUE(device.store().empty());
            EXPECT_THAT(device.record().refused(), IsEmpty());
            EXPECT_EQ(device.faults().size(), 0U) << "the mishap did not happen";
        });
        EXPECT_EQ(app.controller.nextAction(), NextAction::None);
        EXPECT_TRUE(usb.isAtRest());
    }
}

}  // namespace
}  // namespace app_test
