#include "app/MainWindowScreen.hpp"

#include "platform/Clock.hpp"
#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QBasicTimer>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFont>
#include <QFontInfo>
#include <QHBoxLayout>
#include <QIcon>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QShowEvent>
#include <QStringList>
#include <QStyle>
#include <QTextLayout>
#include <QTextOption>
#include <QTimerEvent>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>
#include <string>
#include <utility>

namespace {

// Device-independent pixels, multiples of one grid.
constexpr int kGrid = 4;
constexpr int kMargin = 6 * kGrid;
constexpr int kSmallMargin = 4 * kGrid;
constexpr int kSpacing = 4 * kGrid;
constexpr int kParagraphSpacing = 3 * kGrid;
constexpr int kFooterMargin = 3 * kGrid;
constexpr int kSmallFooterMargin = 2 * kGrid;
constexpr int kPicture = 24 * kGrid;
constexpr int kSmallPicture = 16 * kGrid;
constexpr int kBarHeight = 2 * kGrid;
constexpr QSize kSmallestButton(30 * kGrid, 8 * kGrid);
constexpr int kButtonPadding = kMargin;

// In the font's own size, which is about two Latin letters or one Chinese.
constexpr int kLongestLine = 33;  ///< longer ones are hard to read
constexpr int kShortestLine = 20;
constexpr int kHeight = 36;  ///< takes the longest texts
constexpr int kLow = 25;

// Of the desktop's font.
constexpr double kHeadingScale = 1.6;
constexpr double kLeadScale = 1.1;

// Of the desktop's text colour, on its background.
constexpr double kDetailStrength = 0.75;
constexpr double kLineStrength = 0.2;

QColor textColour(const QWidget& widget, double strength) {
    QColor colour = widget.palette().color(QPalette::WindowText);
    colour.setAlphaF(static_cast<float>(strength));
    return colour;
}

/// A wrapped text whose first paragraph stands out: it has a font of its own, and what follows is quieter. It is
/// measured once for each width: a layout asks for the same few of them again and again.
class ScreenText : public QLabel {
  public:
    ScreenText(double leadScale, QFont::Weight leadWeight, QWidget* parent, double leadStrength = 1)
        : QLabel(parent), mLeadScale(leadScale), mLeadWeight(leadWeight), mLeadStrength(leadStrength) {
        setTextFormat(Qt::PlainText);
        setWordWrap(true);
    }

    int heightForWidth(int width) const override { return sizeFor(width).height(); }
    QSize minimumSizeHint() const override { return {sizeFor(sizeHint().width()).width(), fontMetrics().height()}; }
    QSize sizeHint() const override {
        const int width = kLongestLine * QFontInfo(font()).pixelSize();
        return {width, heightForWidth(width)};
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        layOut(width(), &painter);
    }
    void changeEvent(QEvent* event) override {
        mSizes.clear();  // it may be another font or style
        QLabel::changeEvent(event);
    }

  private:
    QSize sizeFor(int width) const {
        if (mText != text() || mScale != devicePixelRatioF()) {
            mText = text();
            mScale = devicePixelRatioF();
            mSizes.clear();
        }
        const auto [size, isNew] = mSizes.try_emplace(width);
        if (isNew) size->second = layOut(width, nullptr);
        return size->second;
    }

    /// Breaks the text into lines of a width, and draws them where there is a painter.
    /// @return the width of the longest word, the height of all lines
    QSize layOut(int width, QPainter* painter) const {
        QFont lead = font();
        lead.setPointSizeF(QFontInfo(font()).pointSizeF() * mLeadScale);
        lead.setWeight(mLeadWeight);
        QTextOption option(QStyle::visualAlignment(layoutDirection(), Qt::AlignLeading));
        option.setTextDirection(layoutDirection());

        double widest = 0;
        double y = 0;
        for (const QString& paragraph : text().split(QStringLiteral("\n\n"))) {
            const bool first = y == 0;
            if (!first) y += kParagraphSpacing;
            QTextLayout lines(paragraph, first ? lead : font(), this);
            lines.setTextOption(option);
            lines.beginLayout();
            for (QTextLine line = lines.createLine(); line.isValid(); line = lines.createLine()) {
                line.setLineWidth(width);
                line.setPosition({0, y});
                y += line.height();
            }
            lines.endLayout();
            widest = std::max(widest, lines.minimumWidth());
            if (!painter) continue;
            painter->setPen(textColour(*this, first ? mLeadStrength : kDetailStrength));
            lines.draw(painter, {});
        }
        return {static_cast<int>(std::ceil(widest)), static_cast<int>(std::ceil(y))};
    }

    double mLeadScale;
    QFont::Weight mLeadWeight;
    double mLeadStrength;
    // What the sizes are for.
    mutable QString mText;
    mutable qreal mScale = 0;
    mutable std::map<int, QSize> mSizes;  ///< by width
};

/// A quiet line at the foot, in as little room as it takes.
class FootText : public ScreenText {
  public:
    explicit FootText(QWidget* parent) : ScreenText(1, QFont::Normal, parent, kDetailStrength) { hide(); }

    QSize sizeHint() const override {
        const int width = std::min(fontMetrics().horizontalAdvance(text()) + 1, ScreenText::sizeHint().width());
        return {width, heightForWidth(width)};
    }
};

/// How long it has been there. It wakes up once a second, and only while it is seen.
class ElapsedTime final : public FootText {
  public:
    ElapsedTime(QString format, QWidget* parent) : FootText(parent), mFormat(std::move(format)) {
        setObjectName(QStringLiteral("elapsed"));
        tell();
        setVisible(true);
    }

  protected:
    void showEvent(QShowEvent* event) override {
        // A window that comes back from the task bar shows the same screen as before.
        if (!event->spontaneous()) mStart = platform::systemClock().CFAbsoluteTimeGetCurrent();
        tell();
    }
    void hideEvent(QHideEvent*) override { mTimer.stop(); }
    void timerEvent(QTimerEvent*) override { tell(); }

  private:
    void tell() {
        const double elapsed = std::max(0.0, platform::systemClock().CFAbsoluteTimeGetCurrent() - mStart);
        const auto seconds = static_cast<long long>(elapsed);
        const QString time = QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
        setText(QString(mFormat).replace(QLatin1String("%@"), time));
        const double left = 1 - (elapsed - static_cast<double>(seconds));
        if (isVisible()) mTimer.start(static_cast<int>(std::ceil(1000 * left)), Qt::PreciseTimer, this);
    }

    const QString mFormat;
    QBasicTimer mTimer;
    platform::CFAbsoluteTime mStart = platform::systemClock().CFAbsoluteTimeGetCurrent();
};

/// A bar without a measure: a piece of it goes to and fro, or stands in the middle where the desktop wants no
/// animations. The style's own fills the bar with a pattern, which looks like a measure that is reached.
class BusyBar final : public QProgressBar {
  public:
    BusyBar() {
        setTextVisible(false);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    }
    QSize sizeHint() const override { return {kPicture, kBarHeight}; }
    QSize minimumSizeHint() const override { return sizeHint(); }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        const auto draw = [&](const QRectF& piece, const QColor& colour) {
            painter.setBrush(colour);
            painter.drawRoundedRect(piece, piece.height() / 2, piece.height() / 2);
        };
        draw(rect(), textColour(*this, kLineStrength));
        if (minimum() != maximum()) return;

        double place = 0.5;
        if (style()->styleHint(QStyle::SH_Widget_Animation_Duration, nullptr, this) > 0) {
            if (!mTicks.isActive()) {
                mTicks.start(kTick, this);
                mElapsed.start();
            }
            const double phase = static_cast<double>(mElapsed.elapsed() % kPeriod) / kPeriod;
            place = (1 + std::sin(2 * std::numbers::pi * phase)) / 2;  // from the middle on
        }
        const double piece = width() / 3.0;
        draw({(width() - piece) * place, 0, piece, static_cast<double>(height())},
             palette().color(QPalette::Highlight));
    }
    void timerEvent(QTimerEvent*) override { update(); }
    void hideEvent(QHideEvent* event) override {
        mTicks.stop();
        QProgressBar::hideEvent(event);
    }

  private:
    static constexpr int kTick = 40;      ///< milliseconds
    static constexpr int kPeriod = 3000;  ///< milliseconds to and fro

    QBasicTimer mTicks;
    QElapsedTimer mElapsed;
};

/// A button with room around its text, as the desktops' own large buttons have.
class ScreenButton final : public QPushButton {
  public:
    using QPushButton::QPushButton;
    QSize sizeHint() const override {
        return (QPushButton::sizeHint() + QSize(kButtonPadding, 0)).expandedTo(kSmallestButton);
    }

  protected:
    void keyPressEvent(QKeyEvent* event) override {
        // These two would go to the next button; the screen scrolls by them.
        if (event->key() == Qt::Key_Up || event->key() == Qt::Key_Down) return event->ignore();
        QPushButton::keyPressEvent(event);
    }
};

/// What a screen reader hears of a widget beyond what the toolkit tells of its kind.
class Spoken final : public QAccessibleWidget {
  public:
    using QAccessibleWidget::QAccessibleWidget;
    QAccessible::State state() const override {
        QAccessible::State state = QAccessibleWidget::state();
        const auto* const bar = qobject_cast<const QProgressBar*>(widget());
        state.busy = bar && bar->minimum() == bar->maximum();
        return state;
    }

    /// The kinds are told apart by their C++ types, whose names the toolkit does not know.
    static QAccessibleInterface* make(const QString&, QObject* object) {
        // Without the toolkit's own interface for bars: its value would say that nothing has been done yet.
        if (auto* const bar = dynamic_cast<BusyBar*>(object)) return new Spoken(bar, QAccessible::ProgressBar);
        if (auto* const screen = dynamic_cast<MainWindowScreen*>(object))
            return new Spoken(screen, QAccessible::Grouping);
        return nullptr;
    }
};

class Line final : public QWidget {
  public:
    explicit Line(QWidget* parent) : QWidget(parent) { setFixedHeight(1); }

  protected:
    void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(rect(), textColour(*this, kLineStrength)); }
};

}  // namespace

class ScreenPicture final : public QWidget {
  public:
    ScreenPicture(const char* name, QWidget* parent) : QWidget(parent), mName(name) {
        setObjectName(QStringLiteral("picture"));
    }
    void setName(const char* name) {
        mName = name;
        update();
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        const auto [icon, isNew] = mIcons.try_emplace(mName);
        if (isNew) {  // not before it is seen: the window waits for no picture but its first
            if (const auto path = platform::mainBundle().pathForResource(mName, "png", ""))
                icon->second = QIcon(QString::fromStdString(*path));
        }
        QPainter painter(this);
        icon->second.paint(&painter, rect());
    }

  private:
    std::string mName;
    std::map<std::string, QIcon> mIcons;  ///< by name; each that has been made fills the toolkit's cache once
};

/// From the top: what scrolls, a line, the footer. What stands side by side in them stands one above the other where
/// the screen is narrow, which is settled before any of them is measured.
class MainWindowScreen::Rows final : public QVBoxLayout {
  public:
    explicit Rows(MainWindowScreen& screen) : QVBoxLayout(&screen), mScreen(screen) {
        setContentsMargins(0, 0, 0, 0);
        setSpacing(0);
    }
    void setGeometry(const QRect& rectangle) override {
        mScreen.arrange(rectangle.size());
        QVBoxLayout::setGeometry(rectangle);
    }

  private:
    MainWindowScreen& mScreen;
};

MainWindowScreen::MainWindowScreen(const char* picture)
    : mScroller(new QScrollArea(this)),
      mPicture(new ScreenPicture(picture, this)),
      mPage(new QHBoxLayout),
      mColumn(new QVBoxLayout),
      mHeading(new ScreenText(kHeadingScale, QFont::Bold, this)),
      mFooter(new QWidget(this)),
      mFoot(new QHBoxLayout(mFooter)),
      mStatus(new FootText(mFooter)),
      mButtons(new QHBoxLayout) {
    QAccessible::installFactory(Spoken::make);  // which is once, however often

    mColumn->setSpacing(kSpacing);
    mColumn->addWidget(mHeading);
    mColumn->addStretch(1);
    auto* const page = new QWidget;
    page->setLayout(mPage);
    mPage->addWidget(mPicture, 0, Qt::AlignTop | Qt::AlignLeading);
    mPage->addLayout(mColumn, 1);

    mScroller->setFrameShape(QFrame::NoFrame);
    mScroller->setWidgetResizable(true);
    mScroller->setAlignment(Qt::AlignTop | Qt::AlignHCenter);
    mScroller->setFocusPolicy(Qt::NoFocus);
    mScroller->setWidget(page);

    mFoot->setSpacing(kFooterMargin);
    mFoot->addWidget(mStatus, 1, Qt::AlignVCenter);
    mFoot->addLayout(mButtons);
    mButtons->setSpacing(kFooterMargin);
    mButtons->addStretch(1);
    mStatus->setObjectName(QStringLiteral("status"));

    auto* const rows = new Rows(*this);
    rows->addWidget(mScroller, 1);
    rows->addWidget(new Line(this));
    rows->addWidget(mFooter);
}

QSize MainWindowScreen::sizeHint() const {
    const int em = QFontInfo(font()).pixelSize();
    return {kPicture + 3 * kMargin + kLongestLine * em, kHeight * em};
}

void MainWindowScreen::arrange(const QSize& size) {
    const int em = QFontInfo(font()).pixelSize();
    // In a wider window the page stays as wide as its lines may be, in the middle, and the buttons with it.
    const int widest = sizeHint().width();
    mScroller->widget()->setMaximumWidth(widest);
    mFooter->setMaximumWidth(widest);
    const bool wide = size.width() >= widest - (kLongestLine - kShortestLine) * em;
    mPage->setDirection(wide ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
    mPage->setSpacing(wide ? kMargin : kSpacing);
    mPicture->setFixedSize(wide ? QSize(kPicture, kPicture) : QSize(kSmallPicture, kSmallPicture));
    // Where room is short, it is the text's.
    const bool low = !wide && size.height() < kLow * em;
    mPicture->setVisible(!low);
    const int margin = low ? kSmallMargin : kMargin;
    const int footerMargin = low ? kSmallFooterMargin : kFooterMargin;
    mPage->setContentsMargins(margin, margin, margin, margin);
    mFoot->setContentsMargins(margin, footerMargin, margin, footerMargin);
    mFooter->setMinimumHeight(kSmallestButton.height() + 2 * footerMargin);  // also on a screen without buttons

    // The status stands before the buttons, else above them, and these then one above the other where they must.
    const int room = std::min(size.width(), widest) - 2 * margin;
    const auto widthOf = [](const QBoxLayout& row) {
        int width = 0;
        for (int i = 0; i < row.count(); ++i) {
            if (row.itemAt(i)->widget()) width += row.itemAt(i)->sizeHint().width() + row.spacing();
        }
        return width;
    };
    const auto direction = [room](int width) {
        return width - kFooterMargin <= room ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom;
    };
    mButtons->setDirection(direction(widthOf(*mButtons)));
    mFoot->setDirection(direction(widthOf(*mFoot) + widthOf(*mButtons)));
}

void MainWindowScreen::setPicture(const char* picture) {
    mPicture->setName(picture);
}

void MainWindowScreen::setStatus(const QString& text) {
    mStatus->setText(text);
    mStatus->setVisible(!text.isEmpty());
}

void MainWindowScreen::addElapsedTime(const QString& format) {
    mFoot->insertWidget(1, new ElapsedTime(format, mFooter), 0, Qt::AlignVCenter);  // behind the status
}

void MainWindowScreen::addBelow(QWidget* widget) {
    mColumn->insertWidget(mColumn->count() - 1, widget);  // the last is the stretch
}

QLabel* MainWindowScreen::addText() {
    auto* const text = new ScreenText(kLeadScale, QFont::Normal, this);
    mTexts.append(text);
    addBelow(text);
    return text;
}

QProgressBar* MainWindowScreen::addProgressBar() {
    auto* const bar = new BusyBar;
    addBelow(bar);
    return bar;
}

QPushButton* MainWindowScreen::addButton(bool primary) {
    auto* const button = new ScreenButton(this);
    button->setDefault(primary);
    if (primary) mPrimaryButton = button;
    mButtons->addWidget(button);
    return button;
}

void MainWindowScreen::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
        case Qt::Key_Up:
        case Qt::Key_Down:
        case Qt::Key_PageUp:
        case Qt::Key_PageDown:
        case Qt::Key_Home:
        case Qt::Key_End:
            QCoreApplication::sendEvent(mScroller->verticalScrollBar(), event);
            break;
        default:
            QWidget::keyPressEvent(event);
    }
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
