#include "app/MainWindowScreen.hpp"

#include <QAccessible>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QShowEvent>
#include <QStringList>
#include <QVBoxLayout>

#include <algorithm>
#include <map>

namespace {

// Device-independent pixels.
constexpr int kMargin = 24;
constexpr int kSpacing = 16;
constexpr int kPicture = 64;
constexpr int kColumnWidth = 600;  ///< longer lines are hard to read
constexpr QSize kSmallestButton(120, 32);
constexpr int kButtonPadding = 24;

constexpr double kHeadingScale = 1.6;  ///< of the desktop's font

/// A button with room around its text, as the desktops' own large buttons have.
class ScreenButton final : public QPushButton {
  public:
    using QPushButton::QPushButton;
    QSize sizeHint() const override {
        return (QPushButton::sizeHint() + QSize(kButtonPadding, 0)).expandedTo(kSmallestButton);
    }
};

/// Buttons side by side at the end of the line, or one above the other where the line is too short for them.
class ButtonRow final : public QBoxLayout {
  public:
    ButtonRow() : QBoxLayout(LeftToRight) { addStretch(1); }

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override { return sizeWith(directionFor(width)).height(); }
    int minimumHeightForWidth(int width) const override { return heightForWidth(width); }
    QSize sizeHint() const override { return sizeWith(LeftToRight); }
    QSize minimumSize() const override { return {sizeWith(TopToBottom).width(), sizeWith(LeftToRight).height()}; }
    void setGeometry(const QRect& rectangle) override {
        setDirection(directionFor(rectangle.width()));
        QBoxLayout::setGeometry(rectangle);
    }

  private:
    Direction directionFor(int width) const {
        return width < sizeWith(LeftToRight).width() ? TopToBottom : LeftToRight;
    }
    QSize sizeWith(Direction direction) const {
        QSize size(0, 0);
        for (int i = 0; i < count(); ++i) {
            if (!itemAt(i)->widget()) continue;  // the stretch
            const QSize button = itemAt(i)->sizeHint();
            const int gap = size.isEmpty() ? 0 : spacing();
            size = direction == LeftToRight
                       ? QSize(size.width() + gap + button.width(), std::max(size.height(), button.height()))
                       : QSize(std::max(size.width(), button.width()), size.height() + gap + button.height());
        }
        return size;
    }
};

/// A wrapped text that is measured once for each width: a layout asks for the same few of them again and again.
class ScreenText final : public QLabel {
  public:
    using QLabel::QLabel;
    int heightForWidth(int width) const override {
        if (mText != text() || mScale != devicePixelRatioF()) {
            mText = text();
            mScale = devicePixelRatioF();
            mHeights.clear();
        }
        const auto [height, isNew] = mHeights.try_emplace(width);
        if (isNew) height->second = QLabel::heightForWidth(width);
        return height->second;
    }

  protected:
    void changeEvent(QEvent* event) override {
        mHeights.clear();  // it may be another font or style
        QLabel::changeEvent(event);
    }

  private:
    // What the heights are for.
    mutable QString mText;
    mutable qreal mScale = 0;
    mutable std::map<int, int> mHeights;  ///< by width
};

QLabel* makeText(QWidget* parent) {
    auto* const label = new ScreenText(parent);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    if (label->isRightToLeft()) {
        // The toolkit draws wrapped lines of such a text too far to the left, by the space at their end, and cuts off
        // what gets over the edge. It does not where the text can be selected.
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
        label->setFocusPolicy(Qt::NoFocus);
        label->setContextMenuPolicy(Qt::NoContextMenu);  // it would come in English
    }
    return label;
}

}  // namespace

MainWindowScreen::MainWindowScreen(const QIcon& picture) : mHeading(makeText(this)) {
    QFont font = mHeading->font();
    font.setPointSizeF(font.pointSizeF() * kHeadingScale);
    font.setBold(true);
    mHeading->setFont(font);

    auto* const top = new QHBoxLayout;
    top->setSpacing(kSpacing);
    if (!picture.isNull()) {
        auto* const image = new QLabel(this);
        image->setPixmap(picture.pixmap(QSize(kPicture, kPicture), devicePixelRatioF()));
        image->setFixedSize(kPicture, kPicture);
        image->setObjectName(QStringLiteral("picture"));
        top->addWidget(image, 0, Qt::AlignTop);
    }
    top->addWidget(mHeading, 1, Qt::AlignVCenter);

    mColumn = new QVBoxLayout;
    mColumn->setSpacing(kSpacing);
    mColumn->addLayout(top);
    mButtons = new ButtonRow;
    mButtons->setSpacing(kSpacing);

    // In a wide window the page stays as wide as its lines may be, in the middle.
    auto* const page = new QWidget(this);
    page->setMaximumWidth(kColumnWidth);
    auto* const rows = new QVBoxLayout(page);
    rows->setContentsMargins(kMargin, kMargin, kMargin, kMargin);
    rows->setSpacing(kMargin);
    rows->addLayout(mColumn);
    rows->addStretch(1);
    rows->addLayout(mButtons);

    auto* const outer = new QHBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(page);
}

QLabel* MainWindowScreen::addText() {
    auto* const text = makeText(this);
    mTexts.append(text);
    mColumn->addWidget(text);
    return text;
}

void MainWindowScreen::addControl(QWidget* control) {
    mColumn->addWidget(control);
}

QPushButton* MainWindowScreen::addButton(bool primary) {
    auto* const button = new ScreenButton(this);
    button->setDefault(primary);
    if (primary) mPrimaryButton = button;
    mButtons->addWidget(button);
    return button;
}

void MainWindowScreen::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (!event->spontaneous()) announce();
}

void MainWindowScreen::announce() {
    QStringList texts;
    for (const QLabel* const text : mTexts) texts.append(text->text());
    const QString description = texts.join(QLatin1Char('\n'));
    setAccessibleName(mHeading->text());
    setAccessibleDescription(description);

    // A screen reader speaks what takes the focus, so that has to carry the screen's texts with it.
    QWidget* const target = mPrimaryButton ? static_cast<QWidget*>(mPrimaryButton) : mHeading;
    target->setAccessibleDescription(mPrimaryButton ? mHeading->text() + QLatin1Char('\n') + description : description);
    QAccessibleEvent alert(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
    target->setFocus(Qt::OtherFocusReason);
}
