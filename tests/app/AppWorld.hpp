#pragma once

#include "app/AppDelegate.hpp"
#include "app/MainWindow.hpp"
#include "platform/linux/settings/Bundle.hpp"
#include "simulator/world/SimulatedWorld.hpp"
#include "tests/support/LogRecorder.hpp"

#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <QStringList>

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace app_test {

/// What the controller logs while this lives, each line with its level's letter: "I Device rebooted". The line of its
/// source that a message names is left out: it moves with the source.
class ControllerLog {
  public:
    /// The lines since the last call.
    std::vector<std::string> take();

  private:
    support::LogRecorder mRecorder;
};

/// Does what brings up an alert, and answers it once it is on the screen and active.
/// @return whether there was one
bool answered(const std::function<void()>& action, const std::function<void(QMessageBox&)>& answer);

/// Chooses Save Report…, and has it saved under each path, one after the other until one works; `look` sees the
/// report's dialog and each box that tells how it went.
void saveReport(QMainWindow& window, const QStringList& paths, const std::function<void(QWidget&)>& look);

/// An item of the application menu, from the top; separators count.
QAction* menuItem(const QMainWindow& window, int index);
constexpr int kSaveReport = 2, kRecordDetails = 3;

/// The button of an alert with a role.
QPushButton* buttonOf(QMessageBox& alert, QMessageBox::ButtonRole role);
constexpr auto kReset = QMessageBox::DestructiveRole, kCancel = QMessageBox::RejectRole;

/// Clicks Reset Now and confirms.
void confirmReset(const AppDelegate::Outlets& outlets);

/// A left click in the middle, as the window system delivers it.
void click(QWidget* widget);

/// The tool's own bundle, which keeps the keys that it was asked for.
class AskedBundle final : public platform::Bundle {
  public:
    using Bundle::Bundle;
    std::string localizedStringForKey(const std::string& key, const std::string& value,
                                      const std::string& table) const override {
        asked.insert(key);
        return Bundle::localizedStringForKey(key, value, table);
    }
    mutable std::set<std::string> asked;
};

/// The tool on one thread and in simulated time: controller, window and a device whose cable is not yet in. The
/// listener is not a thread here but armed at the start; the test decides when time goes on.
class AppWorld {
  public:
    /// @param languages  as of the bundle; English when left out
    explicit AppWorld(std::vector<std::string> languages = {});

    /// The worker block waits afterwards.
    void confirmReset() { app_test::confirmReset(outlets); }
    /// Runs the worker block, with all the time that it takes, and nothing else.
    void runWorker() { world.globalQueue.drain(); }
    /// Lets time go on until nothing more happens.
    void run() { world.runUntilQuiet(); }
    /// Puts the cable in, where need be after pulling it out, and runs.
    void attach();

    void show(QWidget* screen);
    bool shows(QWidget* screen) const;
    void expectReset();  ///< the device is cleared, the window says so, and all is at rest
    bool storeIsEmpty() { return world.device().store().empty(); }
    /// Nothing is pending, nothing is open.
    bool isAtRest() const { return world.bus.pendingTransfers() == 0 && world.bus.openDevices() == 0; }

    AskedBundle bundle;
    simulator::SimulatedWorld world{{}, &bundle};
    std::vector<int> exits;  ///< statuses with which the process would have ended
    AppDelegate controller;
    AppDelegate::Outlets& outlets = controller.outlets();
    MainWindow window;
    ControllerLog log;
};

/// What reaches the device in a whole reset, on both links.
std::vector<simulator::Bytes> expectedTrafficOfAReset();

}  // namespace app_test
