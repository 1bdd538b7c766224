// The window: what a person sees, clicks and hears of it.
#include "IOU/IOU_DebugServer.hpp"
#include "WIN/WIN_DebugServer.hpp"
#include "app/MainWindow.hpp"
#include "tests/app/AppWorld.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <QAbstractEventDispatcher>
#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QProgressBar>
#include <QProxyStyle>
#include <QTest>
#include <QTreeWidget>
#include <gmock/gmock.h>

#include <chrono>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {
std::vector<QObject*>* announced = nullptr;  // where a test listens
}

/// In the toolkit's place, which drops what it is told where no screen reader listens.
void QAccessible::updateAccessibility(QAccessibleEvent* event) {
    if (announced && event->type() == QAccessible::Alert) announced->push_back(event->object());
}

namespace app_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct MainWindowTest : testing::Test {
    QString text(const char* key) const {
        return QString::fromStdString(app.bundle.localizedStringForKey(key, "missing", ""));
    }

    AppWorld app;
    AppDelegate::Outlets& outlets = app.outlets;
    struct Screen {
        QWidget *view, *focus;
        const QLabel *heading, *body;
    };
    const std::vector<Screen> screens = {
        {outlets.completeView, outlets.resetCompleteText, outlets.resetCompleteText, outlets.resetCompleteBodyText},
        {outlets.inProgressView, outlets.resetInProgressText, outlets.resetInProgressText, outlets.dontUnplugText},
        {outlets.notStartedView, outlets.resetNowButton, outlets.titleText, outlets.resetBodyText},
    };
};

TEST_F(MainWindowTest, EveryTextStandsWhereItBelongs) {
    const std::pair<QString, const char*> places[] = {
        {app.window.windowTitle(), "TrovikResetTitle"},
        {outlets.aboutMenuItem->text(), "AboutTrovikReset"},
        {outlets.quitMenuItem->text(), "QuitTrovikReset"},
        {outlets.mainMenuItemTwo->text(), "ShowLogFiles"},
        {outlets.titleText->text(), "TrovikResetTitle"},
        {outlets.resetBodyText->text(), "ResetInstructionsBody"},
        {outlets.resetNowButton->text(), "ResetNow"},
        {outlets.resetInProgressText->text(), "ResetInProgress"},
        {outlets.dontUnplugText->text(), "DoNotUnplugDevice"},
        {outlets.resetCompleteText->text(), "ResetCompleteTitle"},
        {outlets.resetCompleteBodyText->text(), "ResetCompleteBody"},
        {outlets.quitButton->text(), "Quit"},
        {outlets.mainMenuButton->text(), "ReturnToMainMenu"},
    };
    for (const auto& [shown, key] : places) EXPECT_EQ(shown, text(key)) << key;
}

TEST_F(MainWindowTest, ConfirmationIsCriticalAndAnyWayOutOfItChangesNothing) {
    const std::vector<std::function<void(QMessageBox&)>> ways = {
        [](QMessageBox& alert) { click(buttonOf(alert, kCancel)); },
        [](QMessageBox& alert) { QTest::keyClick(&alert, Qt::Key_Escape); },
        [](QMessageBox& alert) { QTest::keyClick(buttonOf(alert, kCancel), Qt::Key_Return); },
        [](QMessageBox& alert) { alert.close(); },
    };
    app.attach();
    app.log.take();
    for (const auto& way : ways) {
        const auto answer = [&](QMessageBox& alert) {
            QPushButton *const reset = buttonOf(alert, kReset), *const cancel = buttonOf(alert, kCancel);
            ASSERT_TRUE(reset && cancel);
            EXPECT_LT(reset->mapToGlobal(QPoint()).x(), cancel->mapToGlobal(QPoint()).x());
            EXPECT_TRUE(cancel->isDefault() && cancel->hasFocus() && alert.escapeButton() == cancel);
            EXPECT_TRUE(alert.isModal() && alert.icon() == QMessageBox::Warning);
            for (const QLabel* const label : alert.findChildren<QLabel*>())
                EXPECT_EQ(label->font().bold(), label->text() == alert.text()) << qPrintable(label->text());
            const QStringList shown = {reset->text(), cancel->text(), alert.text(), alert.informativeText()};
            EXPECT_EQ(shown, QStringList({text("ResetNow"), text("Cancel"), text("ConfirmResetDialogTitle"),
                                          text("ConfirmResetDialogBody")}));
            way(alert);
        };
        EXPECT_TRUE(answered([&] { click(outlets.resetNowButton); }, answer));
        EXPECT_THAT(app.log.take(), ElementsAre("I Reset canceled"));
        EXPECT_TRUE(app.shows(outlets.notStartedView));
        EXPECT_EQ(app.controller.nextAction(), NextAction::None);
        EXPECT_EQ(app.world.globalQueue.waiting(), 0U);
    }
    EXPECT_THAT(app.world.device().record().received(), IsEmpty());
}

TEST_F(MainWindowTest, ReportIsListedBeforeItIsSavedAndAFailureIsToldAndTriedAgain) {
    const support::TemporaryFolder folder;
    const QString good = QString::fromStdString(folder / "report.zip");
    std::vector<QMessageBox::Icon> told;
    saveReport(app.window, {QStringLiteral("/sys/report.zip"), good}, [&](QWidget& shown) {
        if (auto* const box = qobject_cast<QMessageBox*>(&shown)) {
            told.push_back(box->icon());
            EXPECT_EQ(box->informativeText() == good, box->icon() == QMessageBox::Information)
                << qPrintable(box->informativeText());
            return;
        }
        const auto* const list = shown.findChild<QTreeWidget*>();
        ASSERT_TRUE(list);
        EXPECT_FALSE(list->accessibleName().isEmpty());
        EXPECT_EQ(list->topLevelItem(0)->text(0), QStringLiteral("contents.txt"));
        EXPECT_EQ(list->topLevelItem(1)->text(2), text("ReportVersions"));
        EXPECT_EQ(qobject_cast<QPushButton*>(shown.focusWidget()), shown.findChild<QPushButton*>());
    });
    EXPECT_THAT(told, ElementsAre(QMessageBox::Warning, QMessageBox::Information));
    EXPECT_GT(std::filesystem::file_size(folder / "report.zip"), 0U);
}

TEST_F(MainWindowTest, ReportThatCantBeCollectedIsToldAndTheToolGoesOn) {
    const platform::PlatformScope noSurvey({.mainBundle = &app.bundle, .surveySystem = []() -> platform::SystemSurvey {
                                                throw std::runtime_error("no survey");
                                            }});
    QString told;
    saveReport(app.window, {}, [&](QWidget& shown) { told = dynamic_cast<QMessageBox&>(shown).text(); });
    EXPECT_EQ(told, text("ReportNotSaved"));
}

TEST_F(MainWindowTest, RecordDetailsSetsBothPreferencesForTheNextStartAndSaysSo) {
    QAction* const item = menuItem(app.window, kRecordDetails);
    const auto choose = [&](const char* said) {
        EXPECT_TRUE(answered([&] { item->trigger(); },
                             [&](QMessageBox& box) {
                                 EXPECT_EQ(box.text(), text(said));
                                 box.close();
                             }));
        app.run();
    };
    for (const bool on : {true, false}) {
        choose(on ? "RecordDetailsOn" : "RecordDetailsOff");
        auto& saved = app.world.defaults.domains[app.bundle.bundleIdentifier()];
        EXPECT_EQ(saved["ShowUsbDebug"], platform::PropertyList{on});
        const platform::PropertyList* value = &saved["RegistryRoot"];
        for (const char* key : {"Software", "Trovik", "Settings", "ShowDebug"})
            value = value ? value->find(key) : value;
        const unsigned char byte = on;
        EXPECT_TRUE(value && *value == platform::PropertyList{platform::PropertyList::Data{byte}}) << on;
        EXPECT_FALSE(win::DefaultDebugToOn() || iou::DebugServer().IsEnabled()) << "this run goes on as it was";
        app.world.defaults.values = saved;  // as the next start finds them
        item->setChecked(!on);
        emit app.window.menuBar()->actions().front()->menu()->aboutToShow();
        EXPECT_EQ(item->isChecked(), on);
    }
    const platform::PlatformScope noPreferences({.mainBundle = &app.bundle});
    choose("RecordDetailsNotSaved");
    EXPECT_FALSE(item->isChecked());
}

TEST_F(MainWindowTest, EveryWayOutEndsTheProcessWithStatusZero) {
    app.show(outlets.completeView);
    click(outlets.quitButton);
    outlets.quitMenuItem->trigger();
    QTest::keyClick(&app.window, Qt::Key_Q, Qt::ControlModifier);
    app.window.close();
    EXPECT_THAT(app.exits, ElementsAre(0, 0, 0, 0));
}

TEST_F(MainWindowTest, KeyboardAloneDoesAWholeReset) {
    app.attach();
    EXPECT_TRUE(answered([&] { QTest::keyClick(&app.window, Qt::Key_Return); },  // wherever the focus is
                         [](QMessageBox& alert) {
                             QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
                             EXPECT_EQ(QApplication::focusWidget(), buttonOf(alert, kReset));
                             QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
                         }));
    EXPECT_TRUE(app.shows(outlets.inProgressView));
    app.run();
    app.expectReset();
    app.window.activateWindow();
    for (const Qt::Key stray : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Space}) {
        QTest::keyClick(app.window.focusWidget(), stray);
        EXPECT_TRUE(app.shows(outlets.completeView));
    }
    EXPECT_THAT(app.exits, IsEmpty());
    QTest::keyClick(app.window.focusWidget(), Qt::Key_Tab);
    EXPECT_EQ(app.window.focusWidget(), outlets.mainMenuButton);
    QTest::keyClick(app.window.focusWidget(), Qt::Key_Space);
    EXPECT_TRUE(app.shows(outlets.notStartedView));
    QTest::keyClick(&app.window, Qt::Key_Q, Qt::AltModifier);  // the mnemonic of a screen that is gone
    EXPECT_TRUE(app.shows(outlets.notStartedView));
    EXPECT_THAT(app.exits, IsEmpty());
}

TEST_F(MainWindowTest, NewScreenTakesTheFocusWithItsTextsAndEveryControlHasAName) {
    for (const auto& [screen, focus, heading, body] : screens) {
        std::vector<QObject*> heard;
        announced = &heard;
        app.show(screen);
        announced = nullptr;
        EXPECT_THAT(heard, ElementsAre(static_cast<QObject*>(screen)));
        EXPECT_TRUE(app.shows(screen));
        EXPECT_EQ(app.window.focusWidget(), focus);
        const auto textOf = [](QWidget* widget, QAccessible::Text which) {
            return QAccessible::queryAccessibleInterface(widget)->text(which);
        };
        EXPECT_EQ(textOf(screen, QAccessible::Name), heading->text());
        EXPECT_EQ(textOf(screen, QAccessible::Description), body->text());
        const QString spoken = textOf(focus, QAccessible::Name) + textOf(focus, QAccessible::Description);
        EXPECT_TRUE(spoken.contains(heading->text()) && spoken.contains(body->text())) << qPrintable(spoken);
        for (QPushButton* const button : screen->findChildren<QPushButton*>())
            EXPECT_FALSE(textOf(button, QAccessible::Name).isEmpty());
    }
}

TEST_F(MainWindowTest, StatusSaysOnEveryScreenWhatIsConnectedWithoutBeingAnnounced) {
    const ConnectedDevice named{"path", "1-1", "Trailmate\n300"}, nameless{"other", "1-2", ""};
    const std::pair<std::vector<ConnectedDevice>, QString> states[] = {
        {{named}, text("StatusDevice").replace("%@", "Trailmate 300")},
        {{nameless}, text("StatusUnnamedDevice")},
        {{named, nameless}, text("StatusDevices").replace("%@", "2")},
        {{}, text("StatusNoDevice")},
    };
    const auto picture = [&] { return outlets.notStartedView->findChild<QWidget*>("picture")->grab().toImage(); };
    const QImage unplugged = picture();
    std::vector<QObject*> heard;
    announced = &heard;
    for (const auto& [devices, expected] : states) {
        app.window.showDevices(devices);
        for (const auto& [screen, focus, heading, body] : screens)
            EXPECT_EQ(screen->findChild<QLabel*>("status")->text(), expected);
        EXPECT_EQ(picture() == unplugged, devices.empty()) << qPrintable(expected);
    }
    announced = nullptr;
    EXPECT_THAT(heard, IsEmpty());
}

TEST_F(MainWindowTest, TimeSinceTheStartIsCountedWhileItIsSeen) {
    auto* const elapsed = outlets.inProgressView->findChild<QLabel*>("elapsed");
    const auto expectAfter = [&](int milliseconds, const char* time, int timers) {
        app.world.clock.advanceBy(std::chrono::milliseconds(milliseconds));
        QTimerEvent tick(0);
        if (timers > 0) QApplication::sendEvent(elapsed, &tick);
        EXPECT_EQ(elapsed->text(), text("StatusElapsedTime").replace("%@", time));
        EXPECT_EQ(QAbstractEventDispatcher::instance()->registeredTimers(elapsed).size(), timers) << time;
    };
    for (int round = 0; round < 2; ++round) {
        app.show(outlets.inProgressView);
        expectAfter(0, "0:00", 1);
        expectAfter(83'999, "1:23", 1);
        app.window.showMinimized();
        expectAfter(1000, "1:23", 0);
        app.window.showNormal();
        expectAfter(0, "1:24", 1);
        app.show(outlets.completeView);
        expectAfter(1000, "1:24", 0);
    }
}

TEST_F(MainWindowTest, ScreensFillAWideWindowAndTheirLinesStayShort) {
    app.window.resize(1400, 640);
    for (const auto& [screen, focus, heading, body] : screens) {
        app.show(screen);
        EXPECT_TRUE(app.shows(screen) && screen->width() == 1400);
        EXPECT_LE(body->width(), 72 * body->fontMetrics().averageCharWidth());
    }
}

TEST_F(MainWindowTest, LowWindowScrollsItsTextByKeysAndKeepsItsButtons) {
    outlets.mainMenuButton->setText(QString(24, QLatin1Char('M')));  // there is no room beside it
    app.window.showDevices(std::vector<ConnectedDevice>(12));
    app.window.resize(360, 240);
    for (const auto& [screen, focus, heading, body] : screens) {
        app.show(screen);
        EXPECT_EQ(app.window.size(), QSize(360, 240));
        const auto bottomAfter = [&, screen = screen, body = body](Qt::Key key) {
            QTest::keyClick(app.window.focusWidget(), key);
            for (const QPushButton* const button : screen->findChildren<QPushButton*>()) {
                EXPECT_EQ(button->visibleRegion(), QRegion(button->rect())) << qPrintable(button->text());
                EXPECT_GE(button->width(), button->sizeHint().width()) << qPrintable(button->text());
            }
            return body->mapTo(screen, body->rect().bottomLeft()).y();
        };
        const int start = bottomAfter(Qt::Key_Home), down = bottomAfter(Qt::Key_Down), end = bottomAfter(Qt::Key_End);
        EXPECT_LT(down, start);
        EXPECT_LT(end, screen->height());
        EXPECT_GT(bottomAfter(Qt::Key_PageUp), end);
        EXPECT_EQ(bottomAfter(Qt::Key_Home), start);
        EXPECT_EQ(app.window.focusWidget(), focus);
        EXPECT_EQ(heading->visibleRegion(), QRegion(heading->rect()));
    }
}

TEST_F(MainWindowTest, BusyBarIsNeverFullAndTicksOnlyWhileItIsSeenAndAnimationsAreWanted) {
    struct Animations final : QProxyStyle {
        int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                      QStyleHintReturn* data) const override {
            return hint == SH_Widget_Animation_Duration ? milliseconds
                                                        : QProxyStyle::styleHint(hint, option, widget, data);
        }
        int milliseconds = 0;
    } style;
    QProgressBar& bar = *outlets.progressIndicator;
    bar.setStyle(&style);
    const auto filled = [&bar] {  // the share of its length
        const QImage picture = bar.grab().toImage();
        int count = 0;
        for (int x = 0; x < picture.width(); ++x)
            count += picture.pixelColor(x, picture.height() / 2) == bar.palette().color(QPalette::Highlight);
        return static_cast<double>(count) / picture.width();
    };
    const auto timers = [&bar] { return QAbstractEventDispatcher::instance()->registeredTimers(&bar).size(); };
    app.show(outlets.inProgressView);
    EXPECT_EQ(filled(), 0);
    bar.setRange(0, 0);
    for (const int milliseconds : {0, 200}) {
        style.milliseconds = milliseconds;
        EXPECT_NEAR(filled(), 0.33, 0.05);
        EXPECT_EQ(timers(), milliseconds ? 1 : 0);
    }
    app.show(outlets.completeView);
    EXPECT_EQ(timers(), 0);
    bar.setStyle(nullptr);
}

TEST_F(MainWindowTest, AnotherTextOrFontGetsTheRoomThatItNeeds) {
    QLabel* const text = outlets.resetBodyText;
    const auto height = [text] { return text->heightForWidth(300); };
    const int before = height();
    QFont font = text->font();
    font.setPointSizeF(font.pointSizeF() * 2);
    text->setFont(font);
    const int large = height();
    EXPECT_GT(large, before);
    text->setText(text->text() + text->text());
    EXPECT_GT(height(), large);
}

TEST_F(MainWindowTest, ColoursAreThoseOfTheDesktop) {
    const QPalette before = QApplication::palette();
    const QColor dark(20, 24, 28), light(240, 241, 242);
    QPalette other = before;
    other.setColor(QPalette::Window, dark);
    other.setColor(QPalette::WindowText, light);
    QApplication::setPalette(other);
    for (const auto& [screen, focus, heading, body] : screens) {
        app.show(screen);
        const QImage picture = app.window.grab().toImage();
        EXPECT_EQ(picture.pixelColor(picture.width() / 2, picture.height() - 3), dark);
        for (const QLabel* const label : screen->findChildren<QLabel*>())
            EXPECT_EQ(label->palette().color(QPalette::WindowText), light);
    }
    QApplication::setPalette(before);
}

}  // namespace
}  // namespace app_test
