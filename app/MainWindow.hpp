#pragma once

#include "app/TrovikMode/ConnectedDevices.hpp"

#include <QMainWindow>
#include <QString>

#include <memory>
#include <vector>

class AppDelegate;
class MainWindowScreen;

/// The tool's window: a container for one screen at a time, the three screens, and the application menu. It makes every
/// control, hands the controller its outlets and connects their actions, and has the controller fill in the texts; what
/// the screens say and when they change is the controller's business. It gives the application the layout direction of
/// the texts' language. Owned by the composition root; gone before the controller where the process does not end first.
/// Main thread only.
class MainWindow : public QMainWindow {
  public:
    /// Shows the first screen already.
    /// @param controller  borrowed; its outlets point into this window, and are taken back at the window's end
    explicit MainWindow(AppDelegate& controller);
    ~MainWindow() override;
    MainWindow(const MainWindow&) = delete;
    MainWindow& operator=(const MainWindow&) = delete;

    /// Says on every screen what is connected, and shows it in the picture of the first.
    void showDevices(const std::vector<ConnectedDevice>& devices);

  protected:
    void closeEvent(QCloseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

  private:
    void makeScreens();
    void makeMenu();
    void showAbout();

    QString statusOf(const std::vector<ConnectedDevice>& devices) const;

    AppDelegate& mController;
    QWidget* mContainer;
    // A screen that is not shown has no parent, hence owners of their own.
    std::unique_ptr<MainWindowScreen> mNotStartedView;
    std::unique_ptr<MainWindowScreen> mInProgressView;
    std::unique_ptr<MainWindowScreen> mCompleteView;

    struct StatusTexts {
        QString none, one, oneWithoutName, several;
    };
    const StatusTexts mStatusTexts;
};
