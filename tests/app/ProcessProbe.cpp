// Linked into the tool's own main program, this does in it what TROVIK_PROBE says, once its window is there; and it
// stands between the program and the system, where a test has the system run out of something.
#include "GLO/GLO_Exception.hpp"
#include "GLO/GLO_String.hpp"
#include "WIN/WIN_AppMetaData.hpp"
#include "WIN/WIN_Encoding.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "platform/Dispatch.hpp"
#include "platform/Platform.hpp"

#include <QAction>
#include <QApplication>
#include <QPushButton>
#include <QTimer>
#include <QWidget>
#include <QWindow>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <pthread.h>
#include <pwd.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace {

const char* const gThreads = std::getenv("PROBE_THREADS");
std::atomic<int> gThreadsLeft = gThreads ? std::atoi(gThreads) : 1000;

}  // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                              void* argument) noexcept {
    if (qApp && gThreads && gThreads == std::string_view("fatal")) qFatal("gone wrong");
    static const auto next = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return gThreadsLeft-- > 0 ? next(thread, attributes, body, argument) : EAGAIN;
}

/// The system knows the user's home, but in the user's entry alone; or knows nothing of the user.
extern "C" int getpwuid_r(uid_t, passwd* entry, char*, size_t, passwd** found) {
    static char home[4096] = {};
    if (const char* const text = std::getenv("PROBE_HOME")) std::string_view(text).copy(home, sizeof home - 1);
    entry->pw_dir = home;
    *found = *home ? entry : nullptr;
    return 0;
}

namespace {

void press(QAction::MenuRole role) {
    for (QWidget* const window : QApplication::topLevelWidgets()) {
        for (QAction* const action : window->findChildren<QAction*>()) {
            if (action->menuRole() == role) action->trigger();
        }
    }
}

void click(const QWidget* window, const char* text) {
    for (QPushButton* const button : window->findChildren<QPushButton*>()) {
        if (button->isVisible() && button->text().remove('&') == text) button->click();
    }
}

/// Presses Reset Now, confirms and, once the worker is through, quits.
void reset() {
    QTimer::singleShot(0, qApp, [] { click(QApplication::activeModalWidget(), "Reset Now"); });
    for (const QWidget* const window : QApplication::topLevelWidgets()) click(window, "Reset Now");
    platform::dispatch_get_global_queue().dispatch_async(
        [] { platform::dispatch_get_main_queue().dispatch_async([] { press(QAction::QuitRole); }); });
}

void act(std::string_view what) {
    if (what == "throw") std::thread([] { throw std::runtime_error("no more"); }).join();
    if (what == "reset") {
        DDLog::flushLog();  // each logger has the thread that it can have
        gThreadsLeft = 0;
        return reset();
    }
    try {
        throw glo::Timeout_t("probe", 77);  // tells itself to the trace where that is on
    } catch (const glo::Timeout_t&) {
    }
    for (const char stream : {'0', '1', '2'})
        DDLogInfo("stream %c %s", stream,
                  std::filesystem::read_symlink(std::string("/proc/self/fd/") + stream).c_str());
    const win::AppMetaData_t& data = win::AppMetaData();
    for (const std::wstring& text : {data.ProductName(), data.PartNumber(), data.BuildType(), data.BuildUserId()})
        DDLogInfo("metadata %s", glo::string(text, win::Utf8Encoding()).c_str());
    for (int i = 0; i < 500; ++i) DDLogInfo("line %d", i);
    if (what == "quit") press(QAction::QuitRole);
    if (what == "term") std::raise(SIGTERM);
    if (what == "hup") std::raise(SIGHUP);
    for (QWidget* const window : QApplication::topLevelWidgets()) {
        if (what == "close" && window->windowHandle()) window->close();
    }
}

void arm() {
    QTimer::singleShot(0, qApp, [] { act(qgetenv("TROVIK_PROBE").constData()); });
}

}  // namespace

Q_COREAPP_STARTUP_FUNCTION(arm)
