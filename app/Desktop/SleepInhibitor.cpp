#include "app/Desktop/SleepInhibitor.hpp"

#include "app/Desktop/DesktopBus.hpp"
#include "app/Util/Logging/DDLog.hpp"

#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusUnixFileDescriptor>

#include <algorithm>
#include <fcntl.h>
#include <string>
#include <utility>

void SleepInhibitor::hold() {
    mIsWanted = true;
    if (mLock || mCall) return;
    const auto bus = DesktopBus::system();
    if (!bus) return;
    auto call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("Inhibit"));
    call << QStringLiteral("sleep:idle") << QStringLiteral("Trovik Reset Tool") << mReason << QStringLiteral("block");
    mCall = new QDBusPendingCallWatcher(bus->asyncCall(call), this);
    connect(mCall, &QDBusPendingCallWatcher::finished, this, [this] { answered(*mCall); });
}

void SleepInhibitor::release() {
    mIsWanted = false;
    mLock.reset();
}

void SleepInhibitor::answered(QDBusPendingCallWatcher& call) {
    const QDBusPendingReply<QDBusUnixFileDescriptor> reply = call;
    mCall->deleteLater();
    mCall = nullptr;
    if (reply.isError()) {
        if (std::exchange(mHasToldWhyNot, true)) return;
        std::string reason = reply.error().message().toStdString();
        std::ranges::replace(reason, '\n', ' ');
        DDLogInfo("The computer may suspend during the reset: %s", reason.c_str());
    } else if (mIsWanted) {
        // The message closes its own.
        mLock = platform::FileDescriptor(::fcntl(reply.value().fileDescriptor(), F_DUPFD_CLOEXEC, 0));
    }
}
