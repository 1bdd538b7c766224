// Linked into the tool's own main program, this does in it what TROVIK_PROBE says, once its window is there.
#include <QAction>
#include <QApplication>
#include <QTimer>
#include <QWidget>
#include <QWindow>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "GLO/GLO_Exception.hpp"
#include "app/Util/Logging/DDLog.hpp"

namespace {

void act(std::string_view what) {
    if (what == "throw") std::thread([] { throw std::runtime_error("no more"); }).join();
    try {
        throw glo::Timeout_t("probe", 77);  // tells itself to the trace where that is on
    } catch (const glo::Timeout_t&) {
    }
    for (int i = 0; i < 500; ++i) DDLogInfo("line %d", i);
    for (QWidget* const window : QApplication::topLevelWidgets()) {
        for (QAction* const action : window->findChildren<QAction*>()) {
            if (what == "quit" && action->menuRole() == QAction::QuitRole) action->trigger();
        }
        if (what == "close" && window->windowHandle()) window->close();
    }
}

void arm() {
    QTimer::singleShot(0, qApp, [] { act(qgetenv("TROVIK_PROBE").constData()); });
}

}  // namespace

Q_COREAPP_STARTUP_FUNCTION(arm)
