// The whole tool over the real libusb and libudev, on an emulated bus.
#include <gmock/gmock.h>

#include "tests/app/RealTimeApp.hpp"
#include "tests/support/Holdings.hpp"
#include "tests/support/UmockBackend.hpp"

namespace app_test {
namespace {

using simulator::BootState;
using simulator::Device;
using simulator::Fault;
using simulator::Pipe;
using testing::Contains;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::StartsWith;
using enum simulator::FaultKind;

struct UmockReset : testing::Test {
    void expectCleared() {
        app.withDevice([&](Device& device) {
            EXPECT_TRUE(device.store().empty());
            EXPECT_THAT(device.record().refused(), IsEmpty());
            EXPECT_EQ(device.faults().size(), 0U) << "the mishap did not happen";
        });
        EXPECT_EQ(app.controller->nextAction(), NextAction::None);
        EXPECT_TRUE(usb.isAtRest());
    }

    support::UmockBackend usb{support::UmockBackend::Node::Queue, simulator::Profile::instant()};
    RealTimeApp app{usb};
};

TEST_F(UmockReset, SendsByteForByteWhatItSendsToTheDeviceInProcess) {
    app.plug();
    app.reset();
    expectCleared();
    app.withDevice(
        [](Device& device) { EXPECT_THAT(device.record().received(), ElementsAreArray(expectedTrafficOfAReset())); });
}

TEST_F(UmockReset, ManyResetsLeaveNothingBehind) {
    app.resetsLeaveNothingBehind(support::soakRounds(5));
}

TEST_F(UmockReset, CableMayBePulledWhileTheRebootCommandIsStillToBeTaken) {
    app.plug();
    app.withDevice([](Device& device) { device.addFault(Fault::onCommand(0xAE, NotTaken)); });
    app.confirmReset();
    bool waits = false;
    RealTimeApp::waitUntil("the reboot command", [&] {
        app.withDevice([&](Device& device) { waits = device.faults().size() == 0; });
        return waits;
    });
    usb.unplug();
    app.waitFor(NextAction::RebootOnAttach);
    EXPECT_TRUE(usb.isAtRest());
    usb.plug();
    app.waitFor(app.controller->outlets().completeView);
    EXPECT_THAT(app.lines(), Contains(StartsWith("I Reboot failed: TrovikModeIoLink: issueCommand Failed [")));
    expectCleared();
}

TEST_F(UmockReset, MishapIsLoggedAndTheNextAttachGoesOn) {
    const std::string noReboot = "I Reboot failed: ", noHold = "I Hold in bootloader failed: ";
    const struct {
        const char* name;
        Fault fault;
        std::string line;
    } mishaps[] = {
        {"out pipe stalls at the start", Fault::onPacket(5, Stall).onLayer(0), noReboot},
        {"bulk pipe stalls", Fault::onAnswer(253, Stall).withPipe(Pipe::BulkIn), noReboot},
        {"out pipe stalls at hold", Fault::onPacket(113, Stall), noHold},
        {"cable out at the start", Fault::onPacket(5, Unplug).onLayer(0), noReboot},
        {"cable out during identification", Fault::onAnswer(255, Unplug), noReboot},
        {"cable out at hold", Fault::onPacket(113, Unplug), noHold},
        {"cable out at the answer to hold", Fault::onAnswer(113, Unplug), noHold},
        {"cable out during identification before resume",
         Fault::onPacket(254, Unplug).inState(BootState::HeldInBootLoader).atOccurrence(2), "I Resume boot failed: "},
    };
    app.plug();
    for (const auto& mishap : mishaps) {
        SCOPED_TRACE(mishap.name);
        const bool duringReboot = mishap.line == noReboot;
        app.startAfresh();
        app.withDevice([&](Device& device) {
            device.addFault(mishap.fault);
            // As of RealTimeApp::reset().
            if (!duringReboot) device.addFault(Fault::onCommand(0xAE, Unplug).withDelay({}));
        });
        app.confirmReset();
        if (!duringReboot) {
            app.waitFor(NextAction::ClearOnAttach);
            usb.plug();
        }
        // The reboot that a failure in the second half leads to finds the device if its cable is still in.
        if (duringReboot || mishap.fault.kind == Unplug) {
            app.waitFor(NextAction::RebootOnAttach);
            EXPECT_TRUE(usb.isAtRest());
            usb.unplug();
            usb.plug();
        }
        app.waitFor(app.controller->outlets().completeView);
        EXPECT_THAT(app.log->take(), Contains(StartsWith(mishap.line)));
        expectCleared();
    }
}

}  // namespace
}  // namespace app_test
