// The demo's panel: what it tells, and that all of it can be reached and read in any window.
#include "app/demo/DemoPanel.hpp"

#include <QApplication>
#include <QComboBox>
#include <QKeyEvent>
#include <QLabel>
#include <QListWidget>
#include <QMainWindow>
#include <QMenuBar>
#include <QPushButton>
#include <QTest>
#include <gmock/gmock.h>

#include <set>
#include <string>

namespace {

using Kind = simulator::RecordEntry::Kind;

struct DemoPanelTest : testing::Test {
    DemoPanelTest() {
        window.setMinimumSize(360, 240);
        window.setCentralWidget(tool);
        panel = new DemoPanel(window, device);
        panel->show(device.look());
        window.resize(360, 240);
        window.show();
        QApplication::processEvents();
    }
    std::string labels() const {
        QString all;
        for (const QLabel* const label : panel->findChildren<QLabel*>()) all += label->text() + QLatin1Char('\n');
        return all.toStdString();
    }

    DemoDevice device{simulator::Profile::handheld()};
    QMainWindow window;
    QPushButton* tool = new QPushButton;
    DemoPanel* panel = nullptr;
};

TEST_F(DemoPanelTest, IsReachedByKeysAndReadWholeInTheSmallestWindowAndStandsBesideTheToolInOthers) {
    EXPECT_TRUE(tool->isVisible());
    EXPECT_FALSE(panel->isVisible());
    QWidget* const toggle = window.menuBar()->cornerWidget();
    toggle->setFocus();
    QTest::keyClick(toggle, Qt::Key_Space);
    QApplication::processEvents();
    EXPECT_FALSE(tool->isVisible());

    std::set<const QWidget*> missing;
    for (const QWidget* const control : panel->findChildren<QPushButton*>()) missing.insert(control);
    missing.insert({panel->findChild<QComboBox*>(), panel->findChild<QListWidget*>()});
    ASSERT_EQ(missing.size(), 6);
    for (int i = 0; i < 20; ++i) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        const QWidget* const control = QApplication::focusWidget();
        if (missing.erase(control) == 0) continue;
        EXPECT_EQ(control->visibleRegion().boundingRect(), control->rect()) << control->metaObject()->className();
    }
    EXPECT_TRUE(missing.empty());
    for (const QLabel* const label : panel->findChildren<QLabel*>()) {
        EXPECT_GE(label->height(), label->heightForWidth(label->width())) << label->text().toStdString();
        EXPECT_LE(label->mapTo(&window, label->rect().bottomRight()).x(), 360) << label->text().toStdString();
    }
    const auto* const faults = panel->findChild<QComboBox*>();
    for (int i = 0; i < faults->count(); ++i) {
        EXPECT_LE(faults->fontMetrics().horizontalAdvance(faults->itemText(i)) + 40, faults->width())
            << faults->itemText(i).toStdString();
    }

    window.resize(window.minimumWidth() + DemoPanel::kWidth + 20, 240);
    QApplication::processEvents();
    EXPECT_TRUE(tool->isVisible() && panel->isVisible() && !toggle->isVisible());
}

TEST_F(DemoPanelTest, TellsWhatTheDeviceDidUpToTheNewestAndWhichFaultIsStillToCome) {
    QTest::keyClick(window.menuBar()->cornerWidget(), Qt::Key_Space);
    const auto* const history = panel->findChild<QListWidget*>();
    device.plug();
    device.change([](simulator::Device& simulated) { simulated.addFault(simulator::faultCatalogue().front()); });
    DemoDevice::View view = device.look();
    panel->show(view);
    EXPECT_THAT(history->item(0)->text().toStdString(), testing::EndsWith("  Cable plugged in"));
    EXPECT_THAT(labels(), testing::HasSubstr("Fault to come: Does not answer"));

    view.news = {2000, {{}, Kind::Received, {}, "Told to hold"}};
    view.news.push_back({{}, Kind::Fault, view.pendingFaults.front(), "Fault: one"});
    view.pendingFaults.clear();
    panel->show(view);
    QApplication::processEvents();
    EXPECT_EQ(history->count(), 1000);
    const QListWidgetItem* const newest = history->item(999);
    EXPECT_THAT(newest->text().toStdString(), testing::EndsWith("  Fault: one"));
    QKeyEvent enter(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
    QApplication::sendEvent(panel->findChild<QListWidget*>(), &enter);
    EXPECT_TRUE(enter.isAccepted()) << "the tool's window would start a reset";
    EXPECT_TRUE(history->viewport()->rect().contains(history->visualItemRect(newest)));
    EXPECT_THAT(labels(), testing::ContainsRegex("Fault committed at [0-9:]+: Does not answer"));
}

}  // namespace
