// The whole tool over the real libusb and libudev, on an emulated bus.
#include "tests/app/RealTimeApp.hpp"
#include "tests/support/ProcessResources.hpp"
#include "tests/support/UmockBackend.hpp"

#include <QLabel>
#include <gmock/gmock.h>

#include <utility>

namespace app_test {
namespace {

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

TEST_F(UmockReset, WindowSaysWhatIsPluggedInAndThatItHasGone) {
    const auto* const status = app.controller.outlets().notStartedView->findChild<QLabel*>("status");
    for (const char* const text : {"No device connected", "Trailmate 300 connected", "No device connected"}) {
        RealTimeApp::waitUntil(text, [&] { return status->text() == QLatin1String(text); });
        usb.usb.isAttached() ? usb.unplug() : usb.plug();
    }
}

TEST_F(UmockReset, MishapIsLoggedAndTheNextAttachGoesOn) {
    const std::pair<const char*, Fault> mishaps[] = {
        {"bulk pipe stalls", Fault::onAnswer(253, Stall).withPipe(Pipe::BulkIn)},
        {"cable out at the answer of the identification", Fault::onAnswer(255, Unplug)},
    };
    app.plug();
    for (const auto& [name, fault] : mishaps) {
        SCOPED_TRACE(name);
        app.startAfresh();
        app.withDevice([added = fault](Device& device) { device.addFault(added); });
        app.confirmReset();
        app.waitFor(NextAction::RebootOnAttach);
        EXPECT_TRUE(usb.isAtRest());
        usb.unplug();
        usb.plug();
        app.waitFor(app.controller.outlets().completeView);
        EXPECT_THAT(app.log.take(), Contains(StartsWith("I Reboot failed: ")));
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
