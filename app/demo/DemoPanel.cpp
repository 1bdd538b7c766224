#include "app/demo/DemoPanel.hpp"

#include <QApplication>
#include <QComboBox>
#include <QDateTime>
#include <QEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QListView>
#include <QListWidget>
#include <QMainWindow>
#include <QMenuBar>
#include <QPainter>
#include <QPalette>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QStringList>
#include <QStyle>
#include <QTableWidget>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace {

using Kind = simulator::RecordEntry::Kind;

// Device-independent pixels.
constexpr int kMargin = 12;
constexpr int kSpacing = 6;
constexpr int kRowPadding = 6;

constexpr int kStoreRows = 5;     ///< its heading is one
constexpr int kHistoryRows = 5;   ///< at the least
constexpr int kMostLines = 1000;  ///< of the history: some twenty resets
constexpr double kTint = 0.12;    ///< of the desktop's accent in the panel's background

QString text(const std::string& utf8) {
    return QString::fromStdString(utf8);
}

QLabel* makeText(const QString& words = {}) {
    auto* const label = new QLabel(words);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    return label;
}

QLabel* makeHeading(const QString& words) {
    QLabel* const heading = makeText(words);
    QFont font = heading->font();
    font.setBold(true);
    heading->setFont(font);
    return heading;
}

/// One part of the panel, its pieces one below the other; the last gets what room there is.
QWidget* makePart(std::initializer_list<QWidget*> pieces) {
    auto* const part = new QWidget;
    auto* const column = new QVBoxLayout(part);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(kSpacing);
    for (QWidget* const piece : pieces) column->addWidget(piece);
    column->setStretch(column->count() - 1, 1);
    return part;
}

/// Pieces side by side, the first as wide as there is room.
QWidget* makeRow(std::initializer_list<QWidget*> pieces) {
    auto* const row = new QWidget;
    auto* const line = new QHBoxLayout(row);
    line->setContentsMargins(0, 0, 0, 0);
    line->setSpacing(kSpacing);
    for (QWidget* const piece : pieces) line->addWidget(piece, line->isEmpty() ? 1 : 0);
    return row;
}

/// What tells the panel from the tool: a shade of the desktop's accent.
class Tinted final : public QWidget {
  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.fillRect(rect(), palette().color(QPalette::Window));
        painter.setOpacity(kTint);
        painter.fillRect(rect(), palette().color(QPalette::Highlight));
    }
};

int rowHeight(const QWidget* list) {
    return list->fontMetrics().height() + kRowPadding;
}

/// The history: a few lines at the least, so that it fits into a low window; it grows with the panel.
class History final : public QListWidget {
  public:
    QSize sizeHint() const override { return {0, kHistoryRows * rowHeight(this)}; }
    QSize minimumSizeHint() const override { return sizeHint(); }
};

}  // namespace

DemoPanel::DemoPanel(QMainWindow& window, DemoDevice& device)
    : QDockWidget(QStringLiteral("Simulated Device"), &window),
      mWindow(window),
      mDevice(device),
      mSwitch(new QToolButton) {
    setLayoutDirection(Qt::LeftToRight);
    setFeatures(NoDockWidgetFeatures);
    QLabel* const title = makeHeading(windowTitle());
    title->setMargin(kSpacing);
    title->setIndent(kMargin - kSpacing);
    title->setAutoFillBackground(true);
    title->setBackgroundRole(QPalette::Highlight);
    title->setForegroundRole(QPalette::HighlightedText);
    setTitleBarWidget(title);

    auto* const content = new Tinted;
    auto* const column = new QVBoxLayout(content);
    column->setContentsMargins(kMargin, kMargin, kMargin, kMargin);
    column->setSpacing(kMargin);
    column->addWidget(makeText(QStringLiteral(
        "This part plays the device; the rest of the window is the tool. Start a reset there, and see here what the "
        "device makes of it. Nothing real is erased.")));
    column->addWidget(makeState());
    column->addWidget(makeStore());
    column->addWidget(makeFaults());
    column->addWidget(makeHistory(), 1);
    auto* const scroller = new QScrollArea;
    scroller->setFrameShape(QFrame::NoFrame);
    scroller->setFocusPolicy(Qt::NoFocus);
    scroller->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroller->setWidgetResizable(true);
    scroller->setWidget(content);
    setWidget(scroller);

    connect(mSwitch, &QToolButton::clicked, this, [this] {
        mIsInFront = !mIsInFront;
        fold();
    });
    window.menuBar()->setCornerWidget(mSwitch);
    window.addDockWidget(Qt::RightDockWidgetArea, this);
    window.installEventFilter(this);
    fold();
}

QWidget* DemoPanel::makeState() {
    mState = makeText();
    mCableButton = new QPushButton;
    connect(mCableButton, &QPushButton::clicked, this, [this] { mCable ? mDevice.unplug() : mDevice.plug(); });
    return makeRow({mState, mCableButton});
}

QWidget* DemoPanel::makeStore() {
    mStored = makeHeading({});
    auto* const fill = new QPushButton(QStringLiteral("Fill Again"));
    connect(fill, &QPushButton::clicked, this, [this] { mDevice.fillStore(); });
    mStore = new QTableWidget(0, 2);
    mStore->setHorizontalHeaderLabels({QStringLiteral("Setting"), QStringLiteral("Value")});
    mStore->setAccessibleName(QStringLiteral("Settings stored on the device"));
    mStore->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    mStore->verticalHeader()->hide();
    mStore->verticalHeader()->setDefaultSectionSize(rowHeight(mStore));
    mStore->setEditTriggers(QAbstractItemView::NoEditTriggers);
    mStore->setSelectionBehavior(QAbstractItemView::SelectRows);
    mStore->setTabKeyNavigation(false);
    mStore->setShowGrid(false);
    mStore->setFixedHeight(kStoreRows * rowHeight(mStore));
    return makePart({makeRow({mStored, fill}), mStore});
}

QWidget* DemoPanel::makeFaults() {
    mFaults = new QComboBox;
    // The toolkit writes it in the direction of the tool's language. The mark keeps a last quotation mark in its place.
    constexpr QChar kLeftToRightMark(0x200E);
    for (const auto& fault : simulator::faultCatalogue()) mFaults->addItem(text(fault.sentence) + kLeftToRightMark);
    mFaults->setAccessibleName(QStringLiteral("What the device does wrong"));
    mFaults->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    auto* const add = new QPushButton(QStringLiteral("Add Fault"));
    connect(add, &QPushButton::clicked, this, [this] {
        mDevice.change([this](simulator::Device& simulated) {
            simulated.addFault(simulator::faultCatalogue()[static_cast<std::size_t>(mFaults->currentIndex())]);
        });
    });
    auto* const clear = new QPushButton(QStringLiteral("No Faults"));
    connect(clear, &QPushButton::clicked, this, [this] {
        mCommitted.clear();
        mDevice.change([](simulator::Device& simulated) { simulated.faults().clear(); });
    });
    mFaultState = makeText();
    return makePart({makeHeading(QStringLiteral("What should go wrong?")), mFaults, makeRow({new QWidget, add, clear}),
                     mFaultState});
}

QWidget* DemoPanel::makeHistory() {
    mHistory = new History;
    mHistory->setAccessibleName(QStringLiteral("What the device saw and did"));
    mHistory->setWordWrap(true);
    mHistory->setResizeMode(QListView::Adjust);
    mHistory->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    mHistory->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    // The newest line stays in sight, unless somebody reads further up.
    QScrollBar* const place = mHistory->verticalScrollBar();
    connect(place, &QScrollBar::valueChanged, this, [this, place](int at) { mFollows = at == place->maximum(); });
    connect(place, &QScrollBar::rangeChanged, this, [this, place](int, int end) {
        if (mFollows) place->setValue(end);
    });
    return makePart({makeHeading(QStringLiteral("What the device saw and did")), mHistory});
}

bool DemoPanel::eventFilter(QObject* object, QEvent* event) {
    if (object == &mWindow && event->type() == QEvent::Resize) fold();
    return QDockWidget::eventFilter(object, event);
}

void DemoPanel::keyPressEvent(QKeyEvent* event) {
    // Enter goes no further: the window would press the tool's button.
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) return;
    QDockWidget::keyPressEvent(event);
}

void DemoPanel::fold() {
    const int line = style()->pixelMetric(QStyle::PM_DockWidgetSeparatorExtent, nullptr, this);
    const bool both = mWindow.width() >= mWindow.minimumWidth() + line + kWidth;
    setMinimumWidth(both ? kWidth : 0);
    setMaximumWidth(both ? kWidth : QWIDGETSIZE_MAX);
    setVisible(both || mIsInFront);
    mWindow.centralWidget()->setVisible(both || !mIsInFront);
    mSwitch->setVisible(!both);
    mSwitch->setText(mIsInFront ? QStringLiteral("Back to the Tool") : QStringLiteral("Show the Device"));
}

void DemoPanel::show(const DemoDevice::View& view) {
    mCable = view.cable;
    mCableButton->setText(mCable ? QStringLiteral("Unplug") : QStringLiteral("Plug In"));
    mState->setText((view.isAttached ? QStringLiteral("Connected. ")
                     : view.cable    ? QStringLiteral("Cable in, not on the bus. ")
                                     : QStringLiteral("Not connected. ")) +
                    text(simulator::stateInWords(simulator::bootStateName(view.state))) + QLatin1Char('.'));

    mStored->setText(QStringLiteral("Settings stored: %1").arg(view.store.size()));
    mStore->setRowCount(static_cast<int>(view.store.size()));
    int row = 0;
    for (const auto& [name, value] : view.store) {
        mStore->setItem(row, 0, new QTableWidgetItem(text(name)));
        mStore->setItem(row, 1, new QTableWidgetItem(text(value)));
        ++row;
    }

    for (const DemoDevice::News& news : view.news) addToHistory(news);
    showFaults(view);
}

void DemoPanel::addToHistory(const DemoDevice::News& news) {
    using namespace std::chrono;
    const auto when = QDateTime::fromMSecsSinceEpoch(duration_cast<milliseconds>(news.when.time_since_epoch()).count());
    const QString time = when.toString(QStringLiteral("HH:mm:ss"));
    auto* const line = new QListWidgetItem(time + QStringLiteral("  ") + text(news.words));
    if (news.kind == Kind::Fault || news.kind == Kind::Refused) {
        QFont bold = mHistory->font();
        bold.setBold(true);
        line->setFont(bold);
    }
    mHistory->addItem(line);
    if (mHistory->count() > kMostLines) delete mHistory->takeItem(0);
    if (news.kind == Kind::Fault) {
        mCommitted = QStringLiteral("Fault committed at %1: %2")
                         .arg(time, text(std::string(simulator::faultSentence(news.name))));
    }
}

void DemoPanel::showFaults(const DemoDevice::View& view) {
    QStringList lines;
    if (!mCommitted.isEmpty()) lines.append(mCommitted);
    for (const std::string& name : view.pendingFaults) {
        lines.append(QStringLiteral("Fault to come: ") + text(std::string(simulator::faultSentence(name))));
    }
    mFaultState->setText(lines.isEmpty() ? QStringLiteral("No fault is to come.") : lines.join(QLatin1Char('\n')));
}
