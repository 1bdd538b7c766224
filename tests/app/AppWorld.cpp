#include "tests/app/AppWorld.hpp"

#include "app/Util/Logging/TrovikLogs.hpp"
#include "app/Util/ViewUtilities.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "tests/app/RealTimeApp.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QFileDialog>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPointer>
#include <QSettings>
#include <QTest>
#include <QTimer>
#include <gmock/gmock.h>

#include <utility>

namespace app_test {

using simulator::Bytes;

std::vector<std::string> ControllerLog::take() {
    std::vector<std::string> lines;
    for (const DDLogMessage& message : mRecorder.take()) {
        if (message.fileName() != "AppDelegate") continue;
        const char level = message.logFlag == DDLogFlagError ? 'E' : message.logFlag == DDLogFlagInfo ? 'I' : '?';
        std::string text = message.logMsg;  // but not the line number of a catch
        if (const auto at = text.rfind(" at AppDelegate, "); at != std::string::npos) text.erase(at);
        lines.push_back(std::string(1, level) + ' ' + text);
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

void saveReport(QMainWindow& window, const QStringList& paths, const std::function<void(QWidget&)>& look) {
    static const support::TemporaryFolder settings;  // the toolkit keeps where a person last saved something
    setenv("XDG_DATA_HOME", RealTimeApp::folder().path().c_str(), 1);
    {  // where other tests of the process look for the log folder, which is found once
        const platform::PlatformScope scope(platform::withLinuxFiles());
        static_cast<void>(TrovikLogs::logsDirectory());
    }
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, QString::fromStdString(settings.path()));
    QStringList left = paths;
    QTimer turn;
    QObject::connect(&turn, &QTimer::timeout, [&, lastSeen = QPointer<QWidget>()]() mutable {
        auto* const active = qobject_cast<QDialog*>(QApplication::activeWindow());
        if (!active || active == lastSeen) return;
        if (auto* const box = qobject_cast<QMessageBox*>(active)) {
            look(*box);
            box->close();
            box->parentWidget()->activateWindow();  // as a window manager does
        } else if (auto* const chooser = qobject_cast<QFileDialog*>(active)) {
            chooser->findChild<QLineEdit*>(QStringLiteral("fileNameEdit"))->setText(left.takeFirst());
            QMetaObject::invokeMethod(chooser, "accept", Qt::QueuedConnection);
        } else if (auto* const save = active->findChild<QPushButton*>(); save && save->isEnabled()) {
            if (left == paths) look(*active);
            QMetaObject::invokeMethod(save, "click", Qt::QueuedConnection);
        } else {
            return;  // it is still collected
        }
        lastSeen = active;
    });
    turn.start(0);
    menuItem(window, kSaveReport)->trigger();
    EXPECT_THAT(left, testing::IsEmpty());
}

QAction* menuItem(const QMainWindow& window, int index) {
    return window.menuBar()->actions().front()->menu()->actions().at(index);
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

AppWorld::AppWorld(std::vector<std::string> languages)
    : bundle(TROVIK_RESOURCES, std::move(languages)),
      controller([this](int status) { exits.push_back(status); }),
      window(controller) {
    window.show();
    QApplication::processEvents();
    controller.runTrovikModeListenLoop();  // arms; nothing being due, it returns
}

void AppWorld::attach() {
    world.unplug();
    world.plug();
    run();
}

void AppWorld::show(QWidget* screen) {
    ViewUtilities::setAndPinSubview(*outlets.mainWindowView, *screen);
    QApplication::processEvents();
}

void AppWorld::expectReset() {
    EXPECT_EQ(controller.nextAction(), NextAction::None);
    EXPECT_TRUE(shows(outlets.completeView));
    EXPECT_TRUE(storeIsEmpty());
    EXPECT_TRUE(isAtRest() && !controller.isResetUnfinished());
}

bool AppWorld::shows(QWidget* screen) const {
    QApplication::processEvents();  // a new screen is laid out by then
    const QWidget* const container = screen->parentWidget();
    return screen->isVisible() && container && screen->geometry() == container->rect() &&
           container->findChildren<QWidget*>(Qt::FindDirectChildrenOnly).size() == 1;
}

// ---- expected traffic

std::vector<Bytes> expectedTrafficOfAReset() {
    const Bytes start = {0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0};            // start session
    const Bytes largest = {0, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0};         // ask for the largest packet
    const Bytes product = {20, 0, 0, 0, 254, 0, 0, 0, 0, 0, 0, 0};       // product data, please
    const Bytes unasked = {20, 0, 0, 0, 28, 0, 0, 0, 2, 0, 0, 0, 0, 0};  // nothing unasked, please
    const Bytes hold = simulator::encodePacket({20, 113, {}}), resume = simulator::encodePacket({20, 1500, {}});
    const Bytes reboot = simulator::encodePacket({20, 10, {0xAE, 0x00}});
    const Bytes clear = simulator::encodePacket({20, 10, {0x27, 0x00}});
    return {start, largest, product, unasked, reboot,
            // and on the second link
            start, largest, product, unasked, hold, product, unasked, clear, product, unasked, resume};
}

}  // namespace app_test
