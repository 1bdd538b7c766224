#include "tests/app/RealTimeApp.hpp"

#include "app/Util/Logging/DDLog.hpp"
#include "tests/support/ProcessResources.hpp"

#include <QApplication>
#include <QTest>
#include <gmock/gmock.h>

#include <filesystem>
#include <stdexcept>

namespace app_test {

using simulator::Device;

const support::TemporaryFolder& RealTimeApp::folder() {
    static const support::TemporaryFolder shared;
    return shared;
}

RealTimeApp::RealTimeApp(support::UsbBackend& usb) : mUsb(usb) {
    // Before anything asks for it: the log folder is looked up, and made, once in a process.
    setenv("XDG_DATA_HOME", folder().path().c_str(), 1);
    setenv("XDG_CACHE_HOME", folder().path().c_str(), 1);
    std::filesystem::remove_all(folder() / "Trovik");
    std::filesystem::create_directories(folder() / "Trovik/ResetTool");
    controller.applicationWillFinishLaunching();
    controller.applicationDidFinishLaunching();
    controller.waitUntilListening();
    devices.start();
    window.show();
}

RealTimeApp::~RealTimeApp() {
    mGlobalQueue.join();  // its block may have been through for long, but only this says so
    controller.stopListener();
    DDLog::removeAllLoggers();
    DDLog::flushLog();
}

void RealTimeApp::plug() {
    mUsb.plug();
    waitUntil("the listener to see the device", [this] {
        const auto lines = log.take();
        return !lines.empty() && lines.back() == "I Device detected but no action taken";
    });
}

void RealTimeApp::reset() {
    withDevice([](Device& device) {
        device.addFault(simulator::Fault::onCommand(0xAE, simulator::FaultKind::Unplug).withDelay({}));
    });
    confirmReset(controller.outlets());
    waitUntil("the clear", [this] { return controller.nextAction() == NextAction::ClearOnAttach; });
    EXPECT_TRUE(controller.outlets().inProgressView->isVisible());
    mUsb.plug();
    waitUntil("the screen", [this] { return controller.outlets().completeView->isVisible(); });
    mGlobalQueue.join();
}

void RealTimeApp::startAfresh() {
    withDevice([](Device& device) {
        device.store() = simulator::SettingsStore::wellUsed();
        device.record().clear();
    });
    log.take();
    controller.returnToMainMenuButtonClicked();
    QApplication::processEvents();
}

void RealTimeApp::waitUntil(const char* what, const std::function<bool()>& condition) {
    constexpr int kLimit = 60'000;  // milliseconds
    if (!QTest::qWaitFor(condition, kLimit)) throw std::runtime_error(std::string("waited for ") + what);
}

void RealTimeApp::resetsLeaveNothingBehind(int rounds) {
    // Threads, descriptors, caches and the log's recycled messages that stay for good are there by then.
    const int warmUp = 3 + rounds / 5;
    support::ProcessResources before;
    plug();
    for (int round = 0; round < warmUp + rounds; ++round) {
        startAfresh();
        reset();
        withDevice([](Device& device) {
            ASSERT_TRUE(device.store().empty());
            ASSERT_THAT(device.record().received(), testing::ElementsAreArray(expectedTrafficOfAReset()));
            ASSERT_THAT(device.record().refused(), testing::IsEmpty());
        });
        ASSERT_TRUE(mUsb.isAtRest());
        mScripts.calls.clear();
        if (round + 1 == warmUp) before = support::ProcessResources::now();
    }
    support::ProcessResources::now().expectNoMoreSince(before);
}

}  // namespace app_test
