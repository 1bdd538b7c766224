#include "app/Desktop/DesktopBus.hpp"

#include <QFile>
#include <QString>

namespace {

std::optional<QDBusConnection> ifConnected(const QDBusConnection& connection) {
    return connection.isConnected() ? std::optional(connection) : std::nullopt;
}

}  // namespace

std::optional<QDBusConnection> DesktopBus::session() {
    // Where the toolkit looks before it starts a bus of its own.
    const QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const bool there = !qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS") ||
                       (!folder.isEmpty() && QFile::exists(folder + QStringLiteral("/bus")));
    return there ? ifConnected(QDBusConnection::sessionBus()) : std::nullopt;
}

std::optional<QDBusConnection> DesktopBus::system() {
    return ifConnected(QDBusConnection::systemBus());
}
