#pragma once

#include <QList>
#include <QWidget>

class QBoxLayout;
class QLabel;
class QProgressBar;
class QPushButton;
class QScrollArea;
class QVBoxLayout;
class ScreenPicture;

/// One of the window's screens: a picture of its state, beside it a heading and texts, and below a line the status and
/// the row of buttons. The texts scroll where the window is low, by the arrow keys too; the buttons are always in
/// sight. Where the window is narrow, the picture stands above the texts, and where it is low too there is none.
/// Whenever a screen appears, it is announced to assistive technology and takes the keyboard focus: on its primary
/// button, or else on its heading, so that a key which was meant for the screen before presses nothing. All colours and
/// the fonts' base size are the desktop's. Main thread only.
class MainWindowScreen final : public QWidget {
  public:
    explicit MainWindowScreen(const char* picture);

    /// @param picture  name of a PNG file of the bundle; pictures beside it, named @2x and @3x, are for magnified
    ///                 displays. The texts must say what it shows
    void setPicture(const char* picture);

    /// Sets the quiet line at the foot. Not announced: it says what is there, whoever looks.
    void setStatus(const QString& text);

    QLabel* heading() const { return mHeading; }
    /// Adds a text below what is there. Empty lines part its paragraphs; the first one is what matters most.
    QLabel* addText();
    QProgressBar* addProgressBar();
    /// Adds, at the foot, how long the screen has been there, in minutes and seconds. It counts only while it is seen.
    /// @param format  what it says, with "%@" for the time
    void addElapsedTime(const QString& format);
    /// Adds a button at the end of the row. The primary one is the default: Enter presses it wherever the focus is.
    QPushButton* addButton(bool primary);
    QPushButton* primaryButton() const { return mPrimaryButton; }

    /// Takes any of the tool's texts without scrolling.
    QSize sizeHint() const override;

  protected:
    void keyPressEvent(QKeyEvent* event) override;
    void showEvent(QShowEvent* event) override;

  private:
    class Rows;

    void addBelow(QWidget* widget);
    void arrange(const QSize& size);
    void announce();

    QScrollArea* mScroller;
    ScreenPicture* mPicture;
    QBoxLayout* mPage;
    QVBoxLayout* mColumn;
    QLabel* mHeading;
    QWidget* mFooter;
    QBoxLayout* mFoot;
    QLabel* mStatus;
    QBoxLayout* mButtons;
    QPushButton* mPrimaryButton = nullptr;
    QList<QLabel*> mTexts;
};
