#pragma once

#include "app/demo/DemoDevice.hpp"

#include <QDockWidget>

class QComboBox;
class QLabel;
class QPushButton;
class QTableWidget;

/// Shows the simulated device beside the tool's window, and lets a person pull its cable, refill its store and choose
/// what it does wrong next. Main thread only.
class DemoPanel final : public QDockWidget {
  public:
    explicit DemoPanel(DemoDevice& device);

    void show(const DemoDevice::View& view);

  private:
    DemoDevice& mDevice;
    bool mCable = false;
    QLabel* mAttached;
    QLabel* mState;
    QPushButton* mCableButton;
    QTableWidget* mStore;
    QComboBox* mFaults;
    QLabel* mPending;
};
