#include "app/Desktop/SingleInstance.hpp"

#include "app/Desktop/DesktopBus.hpp"
#include "app/Desktop/X11Activation.hpp"

#include <QApplication>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QLatin1String>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>
#include <QWidget>

namespace {

constexpr int kPatience = 5000;  ///< milliseconds

// As the desktops' own rules have it, the path follows the name.
constexpr QLatin1String kName("org.trovik.ResetTool");
constexpr QLatin1String kPath("/org/trovik/ResetTool");
constexpr QLatin1String kInterface("org.freedesktop.Application");
constexpr QLatin1String kActivate("Activate");
constexpr QLatin1String kToken("activation-token");
constexpr QLatin1String kStartupId("desktop-startup-id");

// Of the bus.
constexpr quint32 kDoNotQueue = 4;
constexpr quint32 kNameHasAnOwner = 3;

}  // namespace

SingleInstance::SingleInstance()
    : mToken(qEnvironmentVariable("XDG_ACTIVATION_TOKEN")), mStartupId(qEnvironmentVariable("DESKTOP_STARTUP_ID")) {}

void SingleInstance::start() {
    auto bus = DesktopBus::session();
    if (!bus || !bus->registerVirtualObject(kPath, this)) return;
    auto request =
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/"),
                                       QStringLiteral("org.freedesktop.DBus"), QStringLiteral("RequestName"));
    request << kName << kDoNotQueue;
    mAnswer = bus->asyncCall(request, kPatience);
}

bool SingleInstance::handedOver() {
    if (!mAnswer) return false;
    mAnswer->waitForFinished();
    if (mAnswer->isError() || mAnswer->value() != kNameHasAnOwner) return false;
    QVariantMap data;
    if (!mToken.isEmpty()) data[kToken] = mToken;
    if (!mStartupId.isEmpty()) data[kStartupId] = mStartupId;
    auto activate = QDBusMessage::createMethodCall(kName, kPath, kInterface, kActivate);
    activate << data;
    const QDBusMessage answer = QDBusConnection::sessionBus().call(activate, QDBus::Block, kPatience);
    return answer.type() == QDBusMessage::ReplyMessage;
}

void SingleInstance::setWindow(QWidget* window) {
    mWindow = window;
}

bool SingleInstance::handleMessage(const QDBusMessage& message, const QDBusConnection& connection) {
    // The three operations end in the same map. There are no files to open, and no actions.
    static const QStringList operations = {kActivate, QStringLiteral("Open"), QStringLiteral("ActivateAction")};
    if (message.path() != kPath || message.interface() != kInterface || !operations.contains(message.member()))
        return false;
    const QVariantList arguments = message.arguments();
    const auto data = arguments.isEmpty() ? QVariantMap() : qdbus_cast<QVariantMap>(arguments.last());
    // Some launchers send only one of the two names, with the value that the other would have: each stands for the
    // other.
    const QVariant token = data.value(kToken), startupId = data.value(kStartupId);
    raise((token.isValid() ? token : startupId).toString(), (startupId.isValid() ? startupId : token).toString());
    connection.send(message.createReply());
    return true;
}

QString SingleInstance::introspect(const QString& path) const {
    if (path != kPath) return {};
    return QStringLiteral(
        "<interface name=\"org.freedesktop.Application\">"
        "<method name=\"Activate\"><arg type=\"a{sv}\" direction=\"in\"/></method>"
        "<method name=\"Open\"><arg type=\"as\" direction=\"in\"/><arg type=\"a{sv}\" direction=\"in\"/></method>"
        "<method name=\"ActivateAction\"><arg type=\"s\" direction=\"in\"/><arg type=\"av\" direction=\"in\"/>"
        "<arg type=\"a{sv}\" direction=\"in\"/></method>"
        "</interface>");
}

void SingleInstance::raise(const QString& token, const QString& startupId) {
    if (!mWindow) return;
    // The only way by which this toolkit takes a token for a window that is there. It looks for it in activateWindow,
    // under Wayland alone, and takes it away again.
    const bool wayland = QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
    if (wayland && !token.isEmpty()) qputenv("XDG_ACTIVATION_TOKEN", token.toUtf8());
    QWidget* const alert = QApplication::activeModalWidget();
    for (QWidget* const window : {mWindow.data(), alert}) {
        if (!window) continue;
        window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
        window->raise();
    }
    QWidget* const front = alert ? alert : mWindow.data();
    if (!X11Activation::activate(*front, startupId.toStdString())) front->activateWindow();
    QApplication::alert(mWindow);  // for a desktop that lets nobody take the focus
}
