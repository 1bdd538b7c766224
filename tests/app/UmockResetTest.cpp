// The whole tool over the real libusb and libudev, on an emulated bus.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
    for (bool waits = false; !waits;) {
        app.withDevice([&](Device& device) { waits = device.faults().size() == 0; });
    }
    usb.unplug();
    app.waitFor(NextAction::RebootOnAttach);
    EXPECT_TRUE(usb.isAtRest());
    usb.plug();
    app.waitFor(app.controller->outlets().completeView);
    EXPECT_THAT(app.lines(), Contains(StartsWith("I Reboot failed: TrovikModeIoLink: issueCommand Failed [")));
    expectCleared();
}

/// What goes wrong once, and with what line the controller says so.
struct Mishap {
    const char* name;
    Fault fault;
    std::string line;

    bool duringReboot() const { return line == "I Reboot failed: "; }
};
void PrintTo(const Mishap& mishap, std::ostream* stream) {
    *stream << mishap.name;
}

struct UmockResetMishap : UmockReset, testing::WithParamInterface<Mishap> {};

TEST_P(UmockResetMishap, IsLoggedAndTheNextAttachGoesOn) {
    const Mishap& mishap = GetParam();
    app.plug();
    app.withDevice([&](Device& device) {
        device.addFault(mishap.fault);
        // As of RealTimeApp::reset().
        if (!mishap.duringReboot()) device.addFault(Fault::onCommand(0xAE, Unplug).withDelay({}));
    });
    app.confirmReset();
    if (!mishap.duringReboot()) {
        app.waitFor(NextAction::ClearOnAttach);
        usb.plug();
    }
    // The reboot that a failure in the second half leads to finds the device if its cable is still in.
    if (mishap.duringReboot() || mishap.fault.kind == Unplug) {
        app.waitFor(NextAction::RebootOnAttach);
        EXPECT_TRUE(usb.isAtRest());
        usb.unplug();
        usb.plug();
    }
    app.waitFor(app.controller->outlets().completeView);
    EXPECT_THAT(app.lines(), Contains(StartsWith(mishap.line)));
    expectCleared();
}

const std::string kNoReboot = "I Reboot failed: ", kNoHold = "I Hold in bootloader failed: ",
                  kNoResume = "I Resume boot failed: ";

INSTANTIATE_TEST_SUITE_P(
    All, UmockResetMishap,
    testing::Values(Mishap{"StallOfTheOutPipeAtTheStart", Fault::onPacket(5, Stall).onLayer(0), kNoReboot},
                    Mishap{"StallOfTheBulkPipe", Fault::onAnswer(253, Stall).withPipe(Pipe::BulkIn), kNoReboot},
                    Mishap{"StallOfTheOutPipeAtHold", Fault::onPacket(113, Stall), kNoHold},
                    Mishap{"UnplugAtTheStart", Fault::onPacket(5, Unplug).onLayer(0), kNoReboot},
                    Mishap{"UnplugDuringIdentification", Fault::onAnswer(255, Unplug), kNoReboot},
                    Mishap{"UnplugAtHold", Fault::onPacket(113, Unplug), kNoHold},
                    Mishap{"UnplugDuringIdentificationBeforeResume",
                           Fault::onPacket(254, Unplug).inState(BootState::HeldInBootLoader).atOccurrence(2),
                           kNoResume}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace app_test
