#include "tests/app/AppWorld.hpp"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <utility>

namespace app_test {

using simulator::Bytes;
using simulator::UsbPacket;

std::vector<std::string> ControllerLog::take() {
    std::vector<std::string> lines;
    for (const DDLogMessage& message : mRecorder.take()) {
        if (message.fileName() != "AppDelegate") continue;
        const char level = message.logFlag == DDLogFlagError ? 'E' : message.logFlag == DDLogFlagInfo ? 'I' : '?';
        lines.push_back(std::string(1, level) + ' ' + message.logMsg);
    }
    return lines;
}

// ---- the person at the window

bool answered(const std::function<void()>& action, const std::function<void(QMessageBox&)>& answer) {
    bool asked = false;
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, [&] {
        auto* const alert = qobject_cast<QMessageBox*>(QApplication::activeWindow());
        if (alert && !std::exchange(asked, true)) answer(*alert);
    });
    look.start(0);
    action();
    return asked;
}

QPushButton* buttonOf(QMessageBox& alert, QMessageBox::ButtonRole role) {
    for (QAbstractButton* const button : alert.buttons()) {
        if (alert.buttonRole(button) == role) return qobject_cast<QPushButton*>(button);
    }
    return nullptr;
}

void click(QWidget* widget) {
    QTest::mouseClick(widget, Qt::LeftButton);
}

void confirmReset(const AppDelegate::Outlets& outlets) {
    EXPECT_TRUE(
        answered([&] { click(outlets.resetNowButton); }, [](QMessageBox& alert) { click(buttonOf(alert, kReset)); }));
}

// ---- AppWorld

namespace {

platform::Platform platformOf(simulator::SimulatedWorld& world, platform::Bundle& bundle) {
    platform::Platform platform;
    platform.clock = &world.clock;
    platform.runLoops = &world.loops;
    platform.masterPort = &world.bus;
    platform.mainQueue = &world.mainQueue;
    platform.globalQueue = &world.globalQueue;
    platform.mainBundle = &bundle;
    platform.standardUserDefaults = &world.defaults;
    platform.scriptRunner = &world.scripts;
    platform.exceptionHandler = &world.exceptions;
    return platform;
}

}  // namespace

AppWorld::AppWorld(simulator::Profile profile, std::vector<std::string> languages)
    : world(std::move(profile)),
      bundle(TROVIK_RESOURCES, std::move(languages)),
      mScope(platformOf(world, bundle)),
      controller([this](int status) { exits.push_back(status); }),
      window(controller) {
    window.show();
    QApplication::processEvents();
    controller.runTrovikModeListenLoop();  // arms; nothing being due, it returns
}

AppWorld::~AppWorld() = default;

void AppWorld::attach() {
    world.unplug();
    world.plug();
    run();
}

void AppWorld::expectReset() {
    EXPECT_EQ(controller.nextAction(), NextAction::None);
    EXPECT_TRUE(shows(outlets.completeView));
    EXPECT_TRUE(storeIsEmpty());
    EXPECT_TRUE(isAtRest());
}

bool AppWorld::shows(QWidget* screen) const {
    QApplication::processEvents();  // a new screen is laid out by then
    const QWidget* const container = screen->parentWidget();
    return screen->isVisible() && container && screen->geometry() == container->rect() &&
           container->findChildren<QWidget*>(Qt::FindDirectChildrenOnly).size() == 1;
}

// ---- expected traffic

const UsbPacket kReboot = {20, 10, {0xAE, 0x00}};
const UsbPacket kHold = {20, 113, {}};
const UsbPacket kClear = {20, 10, {0x27, 0x00}};
const UsbPacket kResume = {20, 1500, {}};

std::vector<Bytes> expectedTraffic(const std::vector<UsbPacket>& commands) {
    std::vector<Bytes> traffic = {
        {0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0},   // start session
        {0, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0},  // ask for the largest packet
    };
    for (const UsbPacket& command : commands) {
        traffic.push_back({20, 0, 0, 0, 254, 0, 0, 0, 0, 0, 0, 0});       // product data, please
        traffic.push_back({20, 0, 0, 0, 28, 0, 0, 0, 2, 0, 0, 0, 0, 0});  // nothing unasked, please
        traffic.push_back(simulator::encodePacket(command));
    }
    return traffic;
}

std::vector<Bytes> expectedTrafficOfAReset() {
    auto traffic = expectedTraffic({kReboot});
    const auto second = expectedTraffic({kHold, kClear, kResume});
    traffic.insert(traffic.end(), second.begin(), second.end());
    return traffic;
}

}  // namespace app_test
