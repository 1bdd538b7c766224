#pragma once

class QMenu;
class QWidget;

/// The menu's items for support: Save Report… and Record Details. They open boxes of their own over the window and
/// touch nothing that a reset needs. Main thread only.
class SupportMenu {
  public:
    SupportMenu() = delete;

    static void addItems(QMenu& menu, QWidget& window);
};
