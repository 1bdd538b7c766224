#include "app/Desktop/SleepInhibitor.hpp"

#include "app/Desktop/DesktopBus.hpp"
#include "app/Support/ErrorCatalogue.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "platform/common/OneLine.hpp"

#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusUnixFileDescriptor>

#include <fcntl.h>
#include <string>
#include <utility>

namespace {

const QString kAll = QStringLiteral("sleep:idle:handle-lid-switch");
const QString kWithoutLid = QStringLiteral("sleep:idle");

}  // namespace

void SleepInhibitor::hold() {
    mIsWanted = true;
    if (!mLock && !mCall) ask(kAll);
}

void SleepInhibitor::ask(const QString& what) {
    const auto bus = DesktopBus::system();
    if (!bus) return;
    auto call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("Inhibit"));
    call << what << QStringLiteral("Trovik Reset Tool") << mReason << QStringLiteral("block");
    mCall = new QDBusPendingCallWatcher(bus->asyncCall(call), this);
    connect(mCall, &QDBusPendingCallWatcher::finished, this, [this, what] { answered(*mCall, what); });
}

void SleepInhibitor::release() {
    mIsWanted = false;
    mLock.reset();
}

void SleepInhibitor::answered(QDBusPendingCallWatcher& call, const QString& asked) {
    const QDBusPendingReply<QDBusUnixFileDescriptor> reply = call;
    mCall->deleteLater();
    mCall = nullptr;
    if (reply.isError() && asked == kAll) {
        // Not everybody may have the lid's switch ignored.
        if (mIsWanted) ask(kWithoutLid);
    } else if (reply.isError()) {
        if (std::exchange(mHasToldWhyNot, true)) return;
        const std::string reason = platform::oneLine(reply.error().message().toStdString());
        DDLogInfo("%s", ErrorCatalogue::logLine(Cause::MaySleep, reason).c_str());
    } else if (mIsWanted) {
        // The message closes its own.
        mLock = platform::FileDescriptor(::fcntl(reply.value().fileDescriptor(), F_DUPFD_CLOEXEC, 0));
    }
}
