#pragma once

#include "app/Desktop/SleepInhibitor.hpp"

#include <QObject>
#include <QTimer>

#include <chrono>

class QWidget;

/// What the desktop is asked for on account of a reset, told by the screens that the controller shows: that the
/// computer stays awake from the moment at which there are both a progress screen and a device to the complete screen,
/// though no longer than ten minutes after a device has last come or gone, and that the window's entry in the task bar
/// draws attention when a reset ends while somebody looks elsewhere. Main thread only.
class ResetWatch final : public QObject {
  public:
    static constexpr std::chrono::minutes kPatience{10};

    /// @param inProgress, complete  borrowed; the screens
    ResetWatch(QWidget& inProgress, QWidget& complete, std::chrono::milliseconds patience = kPatience);

    /// A device has come or gone. Nothing is asked for before there is one: it gets the first command.
    void devicesChanged(bool isAnyConnected);

  protected:
    bool eventFilter(QObject* object, QEvent* event) override;

  private:
    enum class Reset { None, WaitsForDevice, Runs };

    void keepAwake();

    QWidget& mInProgress;
    QWidget& mComplete;
    SleepInhibitor mInhibitor;
    QTimer mPatience;
    bool mIsAnyConnected = false;
    Reset mReset = Reset::None;
};
