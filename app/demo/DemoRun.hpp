#pragma once

#include "app/demo/DemoDevice.hpp"

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>

class AppDelegate;
class QMessageBox;

/// A whole reset without a person: clicks through the window with mouse events as a person would, the confirmation
/// included, tells each step on standard output as it happens, and leaves pictures of the screens. Where nothing
/// happens for long, it does what the window tells people to do: unplugs the device and plugs it in again. Main thread
/// only.
class DemoRun final : public QObject {
  public:
    struct Options {
        QString pictures;  ///< folder, made if need be; empty for none
        bool slow = false;
    };

    /// @param finished  told, once: 0 when the complete screen was reached and the device's store is empty, else 1
    DemoRun(AppDelegate& controller, DemoDevice& device, Options options, std::function<void(int)> finished);

    /// Begins as soon as the event loop runs.
    void start();

    /// To be called with every look at the device.
    void show(const DemoDevice::View& view);

  protected:
    bool eventFilter(QObject* object, QEvent* event) override;

  private:
    void screenAppeared(QWidget* screen);
    void confirm(QMessageBox* alert);
    void plugAgain();
    void finish();
    void takePicture(const QString& name, QWidget* widget) const;
    int pause() const;

    AppDelegate& mController;
    DemoDevice& mDevice;
    Options mOptions;
    std::function<void(int)> mFinished;
    QTimer mPatience;
    int mReplugs = 0;
    bool mStoreIsEmpty = false;
    bool mReachedTheEnd = false;
};
