#pragma once

#include <string>
#include <utility>
#include <vector>

class QWidget;

/// What runModal answers for the first button; each further one answers one more.
inline constexpr int NSAlertFirstButtonReturn = 1000;

enum class NSAlertStyle { Warning = 0, Informational = 1, Critical = 2 };

/// A question that must be answered before anything else in the window. Where there are two or more buttons, the last
/// one is the safe answer: it is the default, and Escape and the box's close button choose it. In a critical alert the
/// first button is shown as what it is, a destructive action. Main thread only.
class Alert {
  public:
    void setMessageText(std::string text) { mMessageText = std::move(text); }
    void setInformativeText(std::string text) { mInformativeText = std::move(text); }
    void setAlertStyle(NSAlertStyle style) { mStyle = style; }
    void addButtonWithTitle(std::string title) { mButtons.push_back(std::move(title)); }

    /// Shows the alert over a window (null: on its own) and runs the event loop until it is answered.
    /// @return NSAlertFirstButtonReturn and up, in the order in which the buttons were added
    /// Blocks.
    int runModal(QWidget* window) const;

  private:
    std::string mMessageText;
    std::string mInformativeText;
    std::vector<std::string> mButtons;
    NSAlertStyle mStyle = NSAlertStyle::Warning;
};
