#pragma once

#include "platform/common/FileDescriptor.hpp"

#include <QObject>
#include <QString>

#include <utility>

class QDBusPendingCallWatcher;

/// Keeps the computer awake, as far as the system's login service lets it: neither idling nor, where the person
/// may decide that, a closed lid suspends it then. Best effort; without the service nothing happens, and the log has
/// one line at most about that. Nothing here waits for an answer. Main thread only.
class SleepInhibitor final : public QObject {
  public:
    /// @param reason  for people, told by the desktop to whoever wants to suspend all the same
    explicit SleepInhibitor(QString reason) : mReason(std::move(reason)) {}

    void hold();  ///< where it holds already, nothing
    void release();

  private:
    void ask(const QString& what);
    void answered(QDBusPendingCallWatcher& call, const QString& asked);

    const QString mReason;
    bool mIsWanted = false;
    QDBusPendingCallWatcher* mCall = nullptr;  ///< a child; while the service is being asked
    platform::FileDescriptor mLock;            ///< the service's; it counts for as long as it is open
    bool mHasToldWhyNot = false;
};
