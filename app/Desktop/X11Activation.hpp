#pragma once

#include <string>

class QWidget;

/// What a launcher under X11 is owed for a start that only brings a window to the front. The toolkit does this where a
/// start shows a new window, and offers no way to have it done for one that is there. Class operations; main thread
/// only.
class X11Activation {
  public:
    X11Activation() = delete;

    /// Tells the launcher that its start is complete, and asks the window manager for the keyboard as of the time of
    /// that start. Without it, a manager that lets nobody take the keyboard would only mark the window.
    /// @param startupId  what the launcher has given that start: "…_TIME4711"; empty where there was none
    /// @return whether the window manager has been asked; not under another display server, nor where the id has no
    /// time
    [[nodiscard]] static bool activate(const QWidget& window, const std::string& startupId);
};
