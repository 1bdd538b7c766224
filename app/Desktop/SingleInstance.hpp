#pragma once

#include <QDBusPendingReply>
#include <QDBusVirtualObject>
#include <QPointer>
#include <QString>

#include <optional>

class QWidget;

/// One window a session: a second start raises the first one's window and ends. The first owns a name on the session's
/// bus and answers there as applications do (org.freedesktop.Application). Without a session's bus, or where the first
/// does not answer, a second start is like the first. Main thread only.
class SingleInstance final : public QDBusVirtualObject {
  public:
    /// Before the application object, which takes the launcher's activation token out of the environment.
    SingleInstance();

    /// Asks for the name, without waiting for the answer.
    void start();

    /// Waits for that answer and, where another has the name, for that one to raise its window. Blocks for some
    /// milliseconds, with a first instance that does not answer for five seconds.
    /// @return whether that one has done so: this start is to end then
    [[nodiscard]] bool handedOver();

    /// What is raised from now on.
    void setWindow(QWidget* window);

  protected:
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;
    QString introspect(const QString& path) const override;

  private:
    void raise(const QString& token, const QString& startupId);

    const QString mToken;      ///< of Wayland
    const QString mStartupId;  ///< of X11
    std::optional<QDBusPendingReply<quint32>> mAnswer;
    QPointer<QWidget> mWindow;
};
