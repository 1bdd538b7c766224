#include "app/demo/DemoRun.hpp"

#include "app/AppDelegate.hpp"

#include <QApplication>
#include <QDir>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPixmap>
#include <QProgressBar>
#include <QPushButton>
#include <QTime>
#include <QWindow>

#include <cstdio>

namespace {

constexpr int kPatience = 20'000;  ///< milliseconds without success until the cable is pulled
constexpr int kUnplugged = 500;    ///< milliseconds
constexpr int kReplugs = 3;        ///< then it is given up
constexpr int kShortPause = 50;    ///< milliseconds between the steps of a person
constexpr int kLongPause = 2'000;

void tell(const QString& text) {
    std::printf("%s  %s\n", qPrintable(QTime::currentTime().toString(QStringLiteral("HH:mm:ss.zzz"))),
                qPrintable(text));
    std::fflush(stdout);
}

QString plain(QString label) {
    return label.remove(QLatin1Char('&'));
}

/// Presses and releases the left mouse button in the middle of the widget, through its window.
void click(QWidget* widget) {
    QWidget* const window = widget->window();
    const QPoint middle = widget->rect().center();
    const QPointF inWindow = widget->mapTo(window, middle);
    const QPointF onScreen = widget->mapToGlobal(middle);
    for (const auto type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
        const auto buttons = type == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton;
        QCoreApplication::postEvent(window->windowHandle(), new QMouseEvent(type, inWindow, inWindow, onScreen,
                                                                            Qt::LeftButton, buttons, Qt::NoModifier));
    }
}

}  // namespace

DemoRun::DemoRun(AppDelegate& controller, DemoDevice& device, Options options, std::function<void(int)> finished)
    : mController(controller), mDevice(device), mOptions(std::move(options)), mFinished(std::move(finished)) {
    qApp->installEventFilter(this);
    mPatience.setInterval(kPatience);
    connect(&mPatience, &QTimer::timeout, this, [this] { plugAgain(); });
}

int DemoRun::pause() const {
    return mOptions.slow ? kLongPause : kShortPause;
}

void DemoRun::start() {
    mPatience.start();
    QTimer::singleShot(pause(), this, [this] {
        screenAppeared(mController.outlets().notStartedView);
        QPushButton* const button = mController.outlets().resetNowButton;
        tell(QStringLiteral("person: clicks \"%1\"").arg(plain(button->text())));
        click(button);
    });
}

bool DemoRun::eventFilter(QObject* object, QEvent* event) {
    if (event->type() != QEvent::Show) return false;
    auto* const widget = qobject_cast<QWidget*>(object);
    if (auto* const alert = qobject_cast<QMessageBox*>(object)) {
        QTimer::singleShot(pause(), alert, [this, alert] { confirm(alert); });
    } else if (widget &&
               (widget == mController.outlets().inProgressView || widget == mController.outlets().completeView)) {
        // Behind this event, when the screen has its size, and before any block that may replace it.
        QMetaObject::invokeMethod(
            this, [this, widget] { screenAppeared(widget); }, Qt::QueuedConnection);
    }
    return false;
}

void DemoRun::screenAppeared(QWidget* screen) {
    const AppDelegate::Outlets& outlets = mController.outlets();
    tell(QStringLiteral("window: \"%1\"").arg(screen->accessibleName()));
    takePicture(screen == outlets.completeView     ? QStringLiteral("3-complete")
                : screen == outlets.inProgressView ? QStringLiteral("2-in-progress")
                                                   : QStringLiteral("1-not-started"),
                screen->window());
    if (screen == outlets.completeView) {
        mReachedTheEnd = true;
        mPatience.stop();
        QTimer::singleShot(pause(), this, [this] { finish(); });
    }
}

void DemoRun::confirm(QMessageBox* alert) {
    tell(QStringLiteral("window: asks \"%1\"").arg(alert->text()));
    takePicture(QStringLiteral("confirmation"), alert);
    QAbstractButton* button = alert->defaultButton();
    for (QAbstractButton* const candidate : alert->buttons()) {
        if (alert->buttonRole(candidate) == QMessageBox::DestructiveRole) button = candidate;
    }
    tell(QStringLiteral("person: clicks \"%1\"").arg(plain(button->text())));
    click(button);
}

void DemoRun::plugAgain() {
    if (mReplugs++ == kReplugs) return finish();
    tell(QStringLiteral("person: unplugs the device and plugs it in again"));
    mDevice.unplug();
    QTimer::singleShot(kUnplugged, this, [this] { mDevice.plug(); });
}

void DemoRun::show(const DemoDevice::View& view) {
    using Kind = simulator::RecordEntry::Kind;
    mStoreIsEmpty = view.store.empty();
    bool told = false;
    for (const DemoDevice::News& news : view.news) {
        if (news.kind == Kind::Received || news.kind == Kind::Sent) continue;
        tell(QStringLiteral("device: ") + QString::fromStdString(news.words));
        told = true;
    }
    if (!told) return;
    tell(QStringLiteral("device: %1; settings stored: %2")
             .arg(QString::fromStdString(simulator::stateInWords(simulator::bootStateName(view.state))))
             .arg(view.store.size()));
}

void DemoRun::finish() {
    mPatience.stop();
    qApp->removeEventFilter(this);
    show(mDevice.look());
    const bool done = mReachedTheEnd && mStoreIsEmpty;
    tell(done ? QStringLiteral("done: the device's settings store is empty")
              : QStringLiteral("FAILED: %1")
                    .arg(mStoreIsEmpty ? QStringLiteral("the reset did not come to its end")
                                       : QStringLiteral("the device's settings are still there")));
    mFinished(done ? 0 : 1);
}

void DemoRun::takePicture(const QString& name, QWidget* widget) const {
    if (mOptions.pictures.isEmpty()) return;
    const QString path = QDir(mOptions.pictures).filePath(name + QStringLiteral(".png"));
    if (!QDir().mkpath(mOptions.pictures) || !widget->grab().save(path)) {
        tell(QStringLiteral("can't write %1").arg(path));
    }
}
