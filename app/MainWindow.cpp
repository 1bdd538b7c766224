#include "app/MainWindow.hpp"

#include "app/AppDelegate.hpp"
#include "app/Desktop/LogFiles.hpp"
#include "app/MainWindowScreen.hpp"
#include "app/SupportMenu.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "app/Util/ViewUtilities.hpp"
#include "app/Util/WindowTexts.hpp"
#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QIcon>
#include <QKeyEvent>
#include <QLabel>
#include <QLocale>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QStringList>

#include <algorithm>

namespace {

// Device-independent pixels.
constexpr QSize kFrame(0, 40);  ///< what the desktop puts around it, for which it can't be asked yet
constexpr QSize kSmallestSize(360, 240);
constexpr int kLongestName = 200;  ///< of a device

constexpr const char* kUnpluggedPicture = "device-unplugged";
constexpr const char* kConnectedPicture = "device-connected";

/// The direction of the language that the texts come in, which need not be the desktop's.
Qt::LayoutDirection textDirection() {
    const std::vector<std::string> languages = platform::mainBundle().preferredLocalizations();
    return languages.empty() ? Qt::LeftToRight : QLocale(QString::fromStdString(languages.front())).textDirection();
}

QString infoText(const char* key) {
    return QString::fromStdString(platform::mainBundle().infoText(key));
}

QIcon applicationIcon() {
    // Pictures beside it, named @2x and @3x, are for magnified displays.
    const auto path = platform::mainBundle().pathForResource("org.trovik.ResetTool", "png", "");
    return path ? QIcon(QString::fromStdString(*path)) : QIcon();
}

}  // namespace

MainWindow::MainWindow(AppDelegate& controller)
    : mController(controller),
      mContainer(new QWidget),
      mStatusTexts{localized("StatusNoDevice"), localized("StatusDevice"), localized("StatusUnnamedDevice"),
                   localized("StatusDevices")} {
    QApplication::setLayoutDirection(textDirection());  // of every window: alerts are windows of their own
    setWindowIcon(applicationIcon());
    setMinimumSize(kSmallestSize);

    setCentralWidget(mContainer);
    makeScreens();
    makeMenu();
    mController.outlets().mainWindowView = mContainer;
    mController.awakeFromNib();
    ViewUtilities::setAndPinSubview(*mContainer, *mNotStartedView);
    const QSize wanted = mNotStartedView->sizeHint();
    const QSize room = screen()->availableSize() - kFrame;
    const int width = wanted.boundedTo(room).expandedTo(kSmallestSize).width();
    resize(width, std::min(wanted.height() * wanted.width() / width, room.height()));  // narrow lines are more
}

MainWindow::~MainWindow() {
    mController.outlets() = {};
}

void MainWindow::makeScreens() {
    AppDelegate::Outlets& outlets = mController.outlets();
    mNotStartedView = std::make_unique<MainWindowScreen>(kUnpluggedPicture);
    outlets.notStartedView = mNotStartedView.get();
    outlets.titleText = mNotStartedView->heading();
    outlets.resetBodyText = mNotStartedView->addText();
    outlets.resetNowButton = mNotStartedView->addButton(true);
    connect(outlets.resetNowButton, &QPushButton::clicked, this, [this] { mController.handleButtonClick(); });

    mInProgressView = std::make_unique<MainWindowScreen>("device-at-work");
    outlets.inProgressView = mInProgressView.get();
    outlets.resetInProgressText = mInProgressView->heading();
    outlets.progressIndicator = mInProgressView->addProgressBar();
    outlets.progressIndicator->setRange(0, 1);  // stands still until the controller starts it
    outlets.progressIndicator->setAccessibleName(localized("ProgressDescription"));
    outlets.dontUnplugText = mInProgressView->addText();
    mInProgressView->addElapsedTime(localized("StatusElapsedTime"));

    mCompleteView = std::make_unique<MainWindowScreen>("device-done");
    outlets.completeView = mCompleteView.get();
    outlets.resetCompleteText = mCompleteView->heading();
    outlets.resetCompleteBodyText = mCompleteView->addText();
    // Neither is primary: this screen comes unasked, and a key that is pressed by then must not close the window.
    outlets.mainMenuButton = mCompleteView->addButton(false);
    outlets.quitButton = mCompleteView->addButton(false);
    connect(outlets.mainMenuButton, &QPushButton::clicked, this,
            [this] { mController.returnToMainMenuButtonClicked(); });
    connect(outlets.quitButton, &QPushButton::clicked, this, [this] { mController.quitButtonClicked(); });
}

QString MainWindow::statusOf(const std::vector<ConnectedDevice>& devices) const {
    const auto with = [](QString text, const QString& value) { return text.replace(QLatin1String("%@"), value); };
    if (devices.empty()) return mStatusTexts.none;
    if (devices.size() > 1) return with(mStatusTexts.several, QString::number(devices.size()));
    const QString name = QString::fromStdString(devices.front().name).simplified();
    if (name.isEmpty()) return mStatusTexts.oneWithoutName;
    return with(mStatusTexts.one, embedded(fontMetrics().elidedText(name, Qt::ElideMiddle, kLongestName)));
}

void MainWindow::showDevices(const std::vector<ConnectedDevice>& devices) {
    const QString status = statusOf(devices);
    for (MainWindowScreen* const screen : {mNotStartedView.get(), mInProgressView.get(), mCompleteView.get()})
        screen->setStatus(status);
    mNotStartedView->setPicture(devices.empty() ? kUnpluggedPicture : kConnectedPicture);
}

void MainWindow::makeMenu() {
    AppDelegate::Outlets& outlets = mController.outlets();
    QMenu* const menu = menuBar()->addMenu(localized("ApplicationMenu"));
    outlets.aboutMenuItem = menu->addAction(QString(), this, [this] { showAbout(); });
    outlets.aboutMenuItem->setMenuRole(QAction::AboutRole);
    outlets.mainMenuItemTwo = menu->addAction(localized("ShowLogFiles"), this, [this] { LogFiles::show(this); });
    connect(menu, &QMenu::aboutToShow, outlets.mainMenuItemTwo,
            [item = outlets.mainMenuItemTwo] { item->setEnabled(!TrovikLogs::logsDirectory().empty()); });
    SupportMenu::addItems(*menu, *this);
    menu->addSeparator();
    outlets.quitMenuItem = menu->addAction(QString(), this, [this] { mController.quitButtonClicked(); });
    outlets.quitMenuItem->setShortcut(Qt::CTRL | Qt::Key_Q);
    outlets.quitMenuItem->setMenuRole(QAction::QuitRole);
}

void MainWindow::showAbout() {
    QMessageBox box(this);
    box.setWindowTitle(withoutKey(localized("AboutTrovikReset")));
    box.setIconPixmap(windowIcon().pixmap(64));
    box.setTextFormat(Qt::PlainText);
    // That of a build between releases is long, and may break where its commit begins.
    const QString version = infoText("CFBundleShortVersionString")
                                .replace(QLatin1Char('+'), QStringLiteral("+\u200b"))
                                .replace(QLatin1String(".g"), QStringLiteral("\u200b.g"));
    box.setText(localized("TrovikResetTitle") + QLatin1Char(' ') + version);
    const QString logs = embedded(QString::fromStdString(TrovikLogs::logsDirectory()));
    box.setInformativeText(QStringList{localized("AboutBody"),
                                       localized("AboutLogFiles").replace(QLatin1String("%@"), logs),
                                       embedded(infoText("NSHumanReadableCopyright"))}
                               .join(QStringLiteral("\n\n")));
    box.addButton(localized("OK"), QMessageBox::AcceptRole);
    box.exec();
}

void MainWindow::closeEvent(QCloseEvent* event) {
    event->accept();
    mController.windowWillClose();
}

void MainWindow::keyPressEvent(QKeyEvent* event) {
    const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    const auto screens = {mNotStartedView.get(), mInProgressView.get(), mCompleteView.get()};
    for (MainWindowScreen* const screen : screens) {
        QPushButton* const button = screen->primaryButton();
        // A button that has the focus itself takes Enter for its own.
        if (enter && button && button->isVisible()) return button->click();
    }
    QMainWindow::keyPressEvent(event);
}
