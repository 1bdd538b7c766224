// The whole tool over the real libusb and libudev, on an emulated bus.
#include "tests/app/RealTimeApp.hpp"
#include "tests/support/ProcessResources.hpp"
#include "tests/support/UmockBackend.hpp"

#include <QLabel>
#include <gtest/gtest.h>

namespace app_test {
namespace {

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

}  // namespace
}  // namespace app_test
