#include "app/Desktop/ResetWatch.hpp"

#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"

#include <QApplication>
#include <QEvent>
#include <QString>
#include <QWidget>

ResetWatch::ResetWatch(QWidget& inProgress, QWidget& complete, std::chrono::milliseconds patience)
    : mInProgress(inProgress),
      mComplete(complete),
      mInhibitor(QString::fromStdString(platform::mainBundle().localizedStringForKey("KeepAwakeDuringReset", "", ""))) {
    mPatience.setSingleShot(true);
    mPatience.setInterval(patience);
    connect(&mPatience, &QTimer::timeout, this, [this] { mInhibitor.release(); });
    mInProgress.installEventFilter(this);
    mComplete.installEventFilter(this);
}

void ResetWatch::devicesChanged(bool isAnyConnected) {
    mIsAnyConnected = isAnyConnected;
    if (mReset != Reset::None) keepAwake();
}

void ResetWatch::keepAwake() {
    if (mIsAnyConnected) mReset = Reset::Runs;
    if (mReset != Reset::Runs) return;
    mPatience.start();
    mInhibitor.hold();
}

bool ResetWatch::eventFilter(QObject* object, QEvent* event) {
    if (event->type() != QEvent::Show || event->spontaneous()) return false;  // spontaneous: the window was minimized
    if (object == &mInProgress) {
        mReset = Reset::WaitsForDevice;
        keepAwake();
    } else {
        mReset = Reset::None;
        mPatience.stop();
        mInhibitor.release();
        QApplication::alert(mComplete.window());  // nothing where the window is active
    }
    return false;
}
