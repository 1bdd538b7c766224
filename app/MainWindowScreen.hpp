#pragma once

#include <QWidget>

class QBoxLayout;
class QLabel;
class QPushButton;
class QVBoxLayout;

/// One of the window's screens: a picture and a heading, texts below, and a row of buttons. Whenever it appears, it is
/// announced to assistive technology and takes the keyboard focus: on its primary button, or else on its heading. All
/// colours and the fonts' base size are the desktop's. Main thread only.
class MainWindowScreen final : public QWidget {
  public:
    explicit MainWindowScreen(const QIcon& picture);

    QLabel* heading() const { return mHeading; }
    /// Adds a wrapped text below what is there.
    QLabel* addText();
    void addControl(QWidget* control);
    /// Adds a button at the end of the row. The primary one is the default: Enter presses it wherever the focus is.
    QPushButton* addButton(bool primary);
    QPushButton* primaryButton() const { return mPrimaryButton; }

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    void announce();

    QVBoxLayout* mColumn;
    QBoxLayout* mButtons;
    QLabel* mHeading;
    QPushButton* mPrimaryButton = nullptr;
    QList<QLabel*> mTexts;
};
