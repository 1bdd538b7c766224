// The window: what a person sees, clicks and hears of it.
#include "app/MainWindow.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>

#include "app/Util/ViewUtilities.hpp"
#include "tests/app/AppWorld.hpp"

namespace app_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct MainWindowTest : testing::Test {
    AppDelegate::Outlets& outlets() { return app.controller.outlets(); }
    std::vector<QWidget*> screens() {
        return {outlets().notStartedView, outlets().inProgressView, outlets().completeView};
    }
    void show(QWidget* screen) {
        ViewUtilities::setAndPinSubview(*outlets().mainWindowView, *screen);
        QApplication::processEvents();
    }

    AppWorld app;
};

TEST_F(MainWindowTest, EveryTextIsInTheTableAndStandsWhereItBelongs) {
    const auto text = [&](const char* key) {
        const std::string found = app.bundle.localizedStringForKey(key, "missing", "");
        EXPECT_NE(found, "missing") << key;
        return QString::fromStdString(found);
    };
    EXPECT_EQ(app.window.windowTitle(), text("TrovikResetTitle"));
    EXPECT_EQ(outlets().aboutMenuItem->text(), text("AboutTrovikReset"));
    EXPECT_EQ(outlets().quitMenuItem->text(), text("QuitTrovikReset"));
    EXPECT_EQ(outlets().titleText->text(), text("TrovikResetTitle"));
    EXPECT_EQ(outlets().resetBodyText->text(), text("ResetInstructionsBody"));
    EXPECT_EQ(outlets().resetNowButton->text(), text("ResetNow"));
    EXPECT_EQ(outlets().resetInProgressText->text(), text("ResetInProgress"));
    EXPECT_EQ(outlets().dontUnplugText->text(), text("DoNotUnplugDevice"));
    EXPECT_EQ(outlets().resetCompleteText->text(), text("ResetCompleteTitle"));
    EXPECT_EQ(outlets().resetCompleteBodyText->text(), text("ResetCompleteBody"));
    EXPECT_EQ(outlets().quitButton->text(), text("Quit"));
    EXPECT_EQ(outlets().mainMenuButton->text(), text("ReturnToMainMenu"));
    EXPECT_EQ(outlets().mainMenuItemTwo->text(), text("ShowLogFiles"));
}

TEST_F(MainWindowTest, ConfirmationIsCriticalAndItsSafeAnswerIsTheDefault) {
    const AlertAnswer answer([&](QMessageBox& alert) {
        EXPECT_EQ(alert.icon(), QMessageBox::Critical);
        EXPECT_TRUE(alert.isModal());
        auto* const reset = qobject_cast<QPushButton*>(resetButtonOf(alert));
        auto* const cancel = qobject_cast<QPushButton*>(cancelButtonOf(alert));
        ASSERT_TRUE(reset && cancel);
        EXPECT_LT(reset->mapToGlobal(QPoint()).x(), cancel->mapToGlobal(QPoint()).x());
        EXPECT_TRUE(cancel->isDefault());
        EXPECT_TRUE(cancel->hasFocus());
        EXPECT_EQ(alert.escapeButton(), cancel);
        EXPECT_FALSE(alert.text().isEmpty());
        EXPECT_FALSE(alert.informativeText().isEmpty());
        QTest::keyClick(&alert, Qt::Key_Escape);
    });
    click(outlets().resetNowButton);
    EXPECT_TRUE(answer.wasAsked());
    EXPECT_THAT(app.log.take(), ElementsAre("I Reset canceled"));
}

TEST_F(MainWindowTest, CancellingByAnyWayChangesNothing) {
    const std::vector<std::function<void(QMessageBox&)>> ways = {
        [](QMessageBox& alert) { click(cancelButtonOf(alert)); },
        [](QMessageBox& alert) { QTest::keyClick(&alert, Qt::Key_Escape); },
        [](QMessageBox& alert) { QTest::keyClick(cancelButtonOf(alert), Qt::Key_Return); },
        [](QMessageBox& alert) { alert.close(); },
    };
    app.world.plug();
    app.run();
    app.log.take();
    for (const auto& way : ways) {
        const AlertAnswer answer(way);
        click(outlets().resetNowButton);
        EXPECT_TRUE(answer.wasAsked());
        EXPECT_THAT(app.log.take(), ElementsAre("I Reset canceled"));
        EXPECT_TRUE(app.shows(outlets().notStartedView));
        EXPECT_EQ(app.controller.nextAction(), NextAction::None);
        EXPECT_EQ(app.world.globalQueue.waiting(), 0U);
    }
    EXPECT_THAT(app.world.device().record().received(), IsEmpty());
}

TEST_F(MainWindowTest, ProgressRunsFromTheConfirmationOn) {
    EXPECT_NE(outlets().progressIndicator->maximum(), outlets().progressIndicator->minimum());
    app.confirmReset();
    EXPECT_EQ(outlets().progressIndicator->maximum(), outlets().progressIndicator->minimum());
    EXPECT_TRUE(app.shows(outlets().inProgressView));
}

TEST_F(MainWindowTest, ReturnToMainMenuKeepsWhatComesNext) {
    app.confirmReset();
    app.runWorker();
    ASSERT_EQ(app.controller.nextAction(), NextAction::RebootOnAttach);
    show(outlets().completeView);
    click(outlets().mainMenuButton);
    EXPECT_TRUE(app.shows(outlets().notStartedView));
    EXPECT_EQ(app.controller.nextAction(), NextAction::RebootOnAttach);
    app.world.plug();
    app.run();
    EXPECT_TRUE(app.shows(outlets().completeView));
    EXPECT_TRUE(app.storeIsEmpty());
}

TEST_F(MainWindowTest, EveryWayOutEndsTheProcessWithStatusZero) {
    show(outlets().completeView);
    click(outlets().quitButton);
    outlets().quitMenuItem->trigger();
    QTest::keyClick(&app.window, Qt::Key_Q, Qt::ControlModifier);
    app.window.close();
    EXPECT_THAT(app.exits, ElementsAre(0, 0, 0, 0));
}

TEST_F(MainWindowTest, KeyboardAloneDoesAWholeReset) {
    app.world.plug();
    app.run();
    {
        const AlertAnswer answer([](QMessageBox& alert) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            EXPECT_EQ(QApplication::focusWidget(), resetButtonOf(alert));
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
        });
        EXPECT_EQ(QApplication::focusWidget(), outlets().resetNowButton);
        QTest::keyClick(&app.window, Qt::Key_Return);  // wherever the focus is
    }
    EXPECT_TRUE(app.shows(outlets().inProgressView));
    app.run();
    EXPECT_TRUE(app.shows(outlets().completeView));
    EXPECT_TRUE(app.storeIsEmpty());
    app.window.activateWindow();
    EXPECT_EQ(app.window.focusWidget(), outlets().quitButton);
    QTest::keyClick(app.window.focusWidget(), Qt::Key_Backtab);
    EXPECT_EQ(app.window.focusWidget(), outlets().mainMenuButton);
    QTest::keyClick(app.window.focusWidget(), Qt::Key_Space);
    EXPECT_TRUE(app.shows(outlets().notStartedView));
    QTest::keyClick(&app.window, Qt::Key_M, Qt::AltModifier);  // the mnemonic of a screen that is gone
    EXPECT_TRUE(app.shows(outlets().notStartedView));
    EXPECT_THAT(app.exits, IsEmpty());
}

TEST_F(MainWindowTest, NewScreenTakesTheFocusWithItsTextsAndEveryControlHasAName) {
    struct Screen {
        QWidget* view;
        QWidget* focus;
        QString heading;
        QString body;
    };
    const std::vector<Screen> expected = {
        {outlets().completeView, outlets().quitButton, outlets().resetCompleteText->text(),
         outlets().resetCompleteBodyText->text()},
        {outlets().inProgressView, outlets().resetInProgressText, outlets().resetInProgressText->text(),
         outlets().dontUnplugText->text()},
        {outlets().notStartedView, outlets().resetNowButton, outlets().titleText->text(),
         outlets().resetBodyText->text()},
    };
    for (const auto& [screen, focus, heading, body] : expected) {
        show(screen);
        EXPECT_EQ(app.window.focusWidget(), focus);
        const auto textOf = [](QWidget* widget, QAccessible::Text which) {
            return QAccessible::queryAccessibleInterface(widget)->text(which);
        };
        EXPECT_EQ(textOf(screen, QAccessible::Name), heading);
        EXPECT_EQ(textOf(screen, QAccessible::Description), body);
        const QString spoken = textOf(focus, QAccessible::Name) + textOf(focus, QAccessible::Description);
        EXPECT_TRUE(spoken.contains(heading) && spoken.contains(body)) << qPrintable(spoken);
        int controls = 0;
        for (QWidget* const control : screen->findChildren<QWidget*>()) {
            if (!qobject_cast<QPushButton*>(control) && !qobject_cast<QProgressBar*>(control)) continue;
            EXPECT_FALSE(textOf(control, QAccessible::Name).isEmpty());
            ++controls;
        }
        EXPECT_GT(controls, 0);
    }
}

TEST_F(MainWindowTest, EverythingFitsFrom360PixelsOnAndBigTextsScroll) {
    for (const int width : {360, 520, 1400}) {
        app.window.resize(width, 640);
        for (QWidget* const screen : screens()) {
            show(screen);
            EXPECT_TRUE(app.shows(screen));
            EXPECT_EQ(app.window.width(), width);
            EXPECT_LE(screen->minimumSizeHint().width(), width);
            for (const QLabel* const label : screen->findChildren<QLabel*>()) {
                if (label->text().isEmpty()) continue;
                EXPECT_GE(label->height(), label->heightForWidth(label->width())) << qPrintable(label->text());
            }
        }
    }
    app.window.resize(360, 240);
    show(outlets().inProgressView);
    EXPECT_EQ(app.window.height(), 240);
    EXPECT_GT(outlets().inProgressView->height(), app.window.centralWidget()->height());
    EXPECT_GE(outlets().dontUnplugText->height(),
              outlets().dontUnplugText->heightForWidth(outlets().dontUnplugText->width()));
}

TEST_F(MainWindowTest, ColoursAreThoseOfTheDesktop) {
    const QPalette before = QApplication::palette();
    QPalette dark = before;
    dark.setColor(QPalette::Window, QColor(20, 24, 28));
    dark.setColor(QPalette::WindowText, QColor(240, 241, 242));
    QApplication::setPalette(dark);
    for (QWidget* const screen : screens()) {
        show(screen);
        const QImage picture = app.window.grab().toImage();
        EXPECT_EQ(picture.pixelColor(picture.width() / 2, picture.height() - 3), QColor(20, 24, 28));
        for (const QLabel* const label : screen->findChildren<QLabel*>()) {
            EXPECT_EQ(label->palette().color(QPalette::WindowText), QColor(240, 241, 242));
        }
    }
    QApplication::setPalette(before);
}

}  // namespace
}  // namespace app_test
