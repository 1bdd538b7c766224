#pragma once

#include <QDBusConnection>

#include <optional>

/// The desktop's message buses, where there are any. Nothing that the tool does fails without them. Class operations;
/// main thread only.
class DesktopBus {
  public:
    DesktopBus() = delete;

    /// The bus of the person's session; connects at the first call. Nothing where there is none: one is never started,
    /// which the toolkit would do under X11.
    static std::optional<QDBusConnection> session();

    /// The system's bus; connects at the first call.
    static std::optional<QDBusConnection> system();
};
