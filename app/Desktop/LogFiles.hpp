#pragma once

class QWidget;

/// The log files for people's eyes. Class operations; main thread only.
class LogFiles {
  public:
    LogFiles() = delete;

    /// Has the newest one selected in the desktop's file manager; where no file manager does that, their folder opened;
    /// where nothing opens that, showPath. Returns at once, and what can't be done shows later. Nothing where there is
    /// no folder.
    /// @param window  borrowed; whatever comes of it comes only while it lives
    static void show(QWidget* window);

    /// A box over the window with the path of their folder, to be copied. Returns at once.
    static void showPath(QWidget* window);
};
