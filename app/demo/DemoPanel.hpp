#pragma once

#include "app/demo/DemoDevice.hpp"

#include <QDockWidget>
#include <QString>

class QComboBox;
class QLabel;
class QListWidget;
class QMainWindow;
class QPushButton;
class QTableWidget;
class QToolButton;

/// Shows the simulated device beside the tool: what it has stored and what it saw and did; and lets a person pull its
/// cable, fill its store again and choose what it does wrong next. Where the window is too narrow for both, a button in
/// the menu bar shows either of them. It speaks English only, and takes no letter keys: the tool's own stay as they
/// are in every language. Main thread only.
class DemoPanel final : public QDockWidget {
  public:
    static constexpr int kWidth = 340;  ///< device-independent pixels, beside the tool

    /// @param window  the tool's; gets the panel at its side and owns it
    /// @param device  borrowed
    DemoPanel(QMainWindow& window, DemoDevice& device);

    void show(const DemoDevice::View& view);

  protected:
    bool eventFilter(QObject* object, QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

  private:
    QWidget* makeState();
    QWidget* makeStore();
    QWidget* makeFaults();
    QWidget* makeHistory();

    void fold();
    void addToHistory(const DemoDevice::News& news);
    void showFaults(const DemoDevice::View& view);

    QMainWindow& mWindow;
    DemoDevice& mDevice;
    QToolButton* mSwitch;
    bool mCable = false;
    bool mIsInFront = false;  ///< where there is no room for both
    bool mFollows = true;     ///< the history shows its newest line
    QString mCommitted;       ///< what was committed last, and when

    QLabel* mState;
    QPushButton* mCableButton;
    QLabel* mStored;
    QTableWidget* mStore;
    QComboBox* mFaults;
    QLabel* mFaultState;
    QListWidget* mHistory;
};
