// The string tables: in step with the code, and short enough for the window. check_strings.py compares them.
#include "app/Desktop/LogFiles.hpp"
#include "app/Desktop/ResetWatch.hpp"
#include "app/Support/ErrorCatalogue.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "platform/linux/settings/PropertyListFile.hpp"
#include "tests/app/AppWorld.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <gmock/gmock.h>

#include <set>

namespace app_test {
namespace {

// Device-independent pixels.
constexpr QSize kSmallestWindow(360, 240);
constexpr int kButtonFrame = 6;  ///< what a style draws around a button's text at the least

/// What a person can't read whole in a window, or not without pulling at it.
std::string cutOffIn(const QWidget& window) {
    QStringList found;
    const QSize display = window.screen()->availableSize();
    if (window.size().boundedTo(display) != window.size())
        found.append(QStringLiteral("window of %1 x %2").arg(window.width()).arg(window.height()));
    for (const QWidget* const widget : window.findChildren<QWidget*>()) {
        const auto* const label = qobject_cast<const QLabel*>(widget);
        const auto* const button = qobject_cast<const QPushButton*>(widget);
        const QString text = label ? label->text() : button ? button->text() : QString();
        if (text.isEmpty() || !widget->isVisible()) continue;
        // Boxes in place of glyphs have other widths: what follows would be measured for nothing.
        const QFontMetrics metrics = widget->fontMetrics();
        for (const char32_t letter : text.toStdU32String()) {
            if (letter > U' ' && QChar::category(letter) != QChar::Other_Format && !metrics.inFontUcs4(letter))
                found.append(QStringLiteral("no glyph for U+%1").arg(static_cast<uint>(letter), 4, 16));
        }
        QSize needed = label ? label->minimumSizeHint() : metrics.size(Qt::TextShowMnemonic, text);
        if (button) needed.rwidth() += kButtonFrame;
        if (label && label->wordWrap()) needed.setHeight(label->heightForWidth(label->width()));
        const int left = widget->mapTo(&window, QPoint()).x();
        if (widget->size().expandedTo(needed) != widget->size() || left < 0 || left + widget->width() > window.width())
            found.append(text);
        if (button && button->visibleRegion() != QRegion(button->rect())) found.append(text);
    }
    return found.join(QStringLiteral(" | ")).toStdString();
}

class LanguageTest : public testing::TestWithParam<std::string> {
  protected:
    ~LanguageTest() override { QApplication::setFont(mFont); }

    /// Opens the alert, the About box and what the items for support open, one after the other.
    static void eachBox(AppWorld& app, const std::function<void(QWidget&)>& look) {
        const auto seen = [&](const std::function<void()>& open) {
            EXPECT_TRUE(answered(open, [&](QMessageBox& box) {
                look(box);
                box.close();
            }));
        };
        seen([&] { click(app.outlets.resetNowButton); });
        seen([&] { app.outlets.aboutMenuItem->trigger(); });
        const support::TemporaryFolder folder;
        saveReport(app.window, {QStringLiteral("/sys/x.zip"), QString::fromStdString(folder / "x.zip")}, look);
        for (const bool canBeSet : {true, true, false}) {  // on, off, and without preferences to set
            const platform::PlatformScope scope({.mainQueue = &app.world.mainQueue,
                                                 .mainBundle = &app.bundle,
                                                 .standardUserDefaults = canBeSet ? &app.world.defaults : nullptr});
            seen([&] { menuItem(app.window, kRecordDetails)->trigger(); });
        }
    }

    const QFont mFont = QApplication::font();
};

TEST_P(LanguageTest, TableHasTheTextsThatTheToolAsksForAndNoOthers) {
    AppWorld app({GetParam()});
    app.bundle.asked.insert("SimulatedTitle");  // by the demo
    for (const CatalogueEntry& entry : ErrorCatalogue::entries()) {
        ErrorCatalogue::localizedSentence(entry.cause);
        ErrorCatalogue::localizedRemedy(entry.cause);
    }
    eachBox(app, [](QWidget&) {});
    // Those of files that this report has none of.
    app.bundle.asked.insert({"ReportLog", "ReportCrash", "ReportTrace"});
    LogFiles::showPath(&app.window);
    const ResetWatch watch(*app.outlets.inProgressView, *app.outlets.completeView);
    const auto table = platform::readPropertyListFile(TROVIK_RESOURCES "/" + GetParam() + ".lproj/Localizable.strings");
    std::set<std::string> keys;
    for (const auto& [key, text] : table.contents) keys.insert(key);
    EXPECT_EQ(keys, app.bundle.asked);
}

TEST_P(LanguageTest, PathOfTheLogFolderCanBeCopiedWhereNothingOpensIt) {
    AppWorld app({GetParam()});
    LogFiles::showPath(&app.window);
    auto* const box = app.window.findChild<QDialog*>();
    const auto* const path = box->findChild<QLineEdit*>();
    EXPECT_EQ(path->text().toStdString(), TrovikLogs::logsDirectory());
    EXPECT_EQ(path->selectedText(), path->text());
    QGuiApplication::clipboard()->setText(QStringLiteral("something else"));
    for (QPushButton* const button : box->findChildren<QPushButton*>())
        if (button->text().toStdString() == app.bundle.localizedStringForKey("CopyPath", "", "")) click(button);
    EXPECT_EQ(QGuiApplication::clipboard()->text(), path->text());
    EXPECT_LE(box->minimumSizeHint().width(), app.window.width());
}

TEST_P(LanguageTest, NothingIsCutOffOnASmallDisplayWithNormalAndBigFonts) {
    const int displayWidth = QGuiApplication::primaryScreen()->size().width();
    ASSERT_THAT(displayWidth, testing::AnyOf(360, 640)) << "the displays that this test is run on";
    for (const double scale : {1.0, 1.5}) {
        QFont font = mFont;
        font.setPointSizeF(font.pointSizeF() * scale);
        QApplication::setFont(font);
        AppWorld app({GetParam()});
        const AppDelegate::Outlets& outlets = app.outlets;
        app.window.showDevices(std::vector<ConnectedDevice>(12));  // the longest status
        for (const QSize size : {app.window.size(), kSmallestWindow}) {
            app.window.resize(size);
            for (QWidget* const screen : {outlets.inProgressView, outlets.completeView, outlets.notStartedView}) {
                app.show(screen);
                EXPECT_TRUE(app.shows(screen));
                EXPECT_EQ(cutOffIn(app.window), "") << scale << ", window height " << size.height();
                // The picture stands before the heading.
                EXPECT_EQ(screen->isRightToLeft(), GetParam() == "ar");
                const auto* const picture = screen->findChild<QWidget*>(QStringLiteral("picture"));
                EXPECT_EQ(picture->isVisible(), size != kSmallestWindow);
                EXPECT_EQ(picture->mapTo(screen, QPoint()).x() > screen->width() / 2, screen->isRightToLeft());
            }
        }
        QAction* const menu = app.window.menuBar()->actions().front();
        EXPECT_LE(app.window.menuBar()->actionGeometry(menu).right(), displayWidth) << scale;
        const int menuWidth = menu->menu()->sizeHint().width();
        EXPECT_TRUE(menuWidth <= displayWidth || scale > 1) << menuWidth;  // a big menu has a display to itself
        eachBox(app, [&](QWidget& box) { EXPECT_EQ(cutOffIn(box), "") << scale; });
    }
}

INSTANTIATE_TEST_SUITE_P(EachLanguage, LanguageTest,
                         testing::Values("ar", "de", "en", "es", "fr", "it", "ja", "nl", "pl", "pt_BR", "zh_CN"),
                         [](const auto& language) { return language.param; });

}  // namespace
}  // namespace app_test
