#include "app/StartUp.hpp"

#include "app/Support/ErrorCatalogue.hpp"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QThreadPool>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <syslog.h>

namespace {

/// Says one line to whoever started the program, in a terminal or from a menu, and ends the process. It stays at that
/// one line: what is in gWarnings is not told then.
[[noreturn]] void refuse(int status, Cause cause, std::string line) {
    std::replace(line.begin(), line.end(), '\n', ' ');
    line.erase(line.find_last_not_of(' ') + 1);
    line.append(" (").append(ErrorCatalogue::entry(cause).id) += ')';
    std::fprintf(stderr, "%s\n", line.c_str());
    syslog(LOG_USER | LOG_ERR, "%s", line.c_str());
    std::_Exit(status);
}

[[noreturn]] void refuseWithoutThread(const std::string& reason) {
    refuse(StartUp::kNoThread, Cause::NoThread,
           "No thread for the reset; is the limit on processes reached? " + reason);
}

std::mutex gWarningsMutex;
QStringList gWarnings;     ///< behind gWarningsMutex; of the toolkit, until the window shows
bool gHasDisplay = false;  ///< behind gWarningsMutex

/// The environment's choice of a display, as far as there is one.
std::string chosenDisplay() {
    std::string chosen;
    for (const char* const variable : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY"}) {
        if (qEnvironmentVariableIsEmpty(variable)) continue;
        chosen += (chosen.empty() ? "" : ", ") + std::string(variable) + "=" + qgetenv(variable).toStdString();
    }
    return chosen.empty() ? "neither DISPLAY nor WAYLAND_DISPLAY is set" : chosen;
}

void keepWarning(QtMsgType type, const QMessageLogContext&, const QString& text) {
    const std::lock_guard lock(gWarningsMutex);
    if (type == QtDebugMsg || (type == QtFatalMsg && gHasDisplay)) {  // behind a fatal one the toolkit aborts
        std::fprintf(stderr, "%s\n", qPrintable(text));
    } else if (text.startsWith(QLatin1String("QThread::start"))) {
        // Each of the toolkit's own threads is one that it waits for or gets the window's events from.
        refuseWithoutThread(text.toStdString());
    } else if (type == QtFatalMsg) {
        // The toolkit's last word is that it should be installed again. Its first one about a display is the reason.
        const auto reason = std::find_if(gWarnings.begin(), gWarnings.end(), [](const QString& warning) {
            return !warning.startsWith(QLatin1String("QStandardPaths"));
        });
        refuse(StartUp::kNoDisplay, Cause::NoDisplay,
               "No display for the window (" + chosenDisplay() +
                   "): " + (reason == gWarnings.end() ? text : *reason).toStdString());
    } else {
        gWarnings.append(text);
    }
}

}  // namespace

void StartUp::openStandardStreams() {
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        // The lowest number that is free is this one.
        if (::fcntl(descriptor, F_GETFD) < 0 && ::open("/dev/null", O_RDWR) < 0) return;
    }
}

std::unique_ptr<QApplication> StartUp::makeApplication(int& argc, char** argv) {
    qInstallMessageHandler(keepWarning);
    auto application = std::make_unique<QApplication>(argc, argv);
    {
        const std::lock_guard lock(gWarningsMutex);
        gHasDisplay = true;
    }
    // The toolkit has parts of a drawing done in this pool and waits for them, without end where no thread can be
    // started by then. One is enough, and stays.
    QThreadPool* const pool = QThreadPool::globalInstance();
    pool->setMaxThreadCount(1);
    pool->setExpiryTimeout(-1);
    pool->start([] {});
    return application;
}

void StartUp::windowIsShown() {
    qInstallMessageHandler(nullptr);
    const std::lock_guard lock(gWarningsMutex);
    for (const QString& warning : gWarnings) qWarning("%s", qPrintable(warning));
}

void StartUp::refuseWithout(const std::system_error& thread) {
    refuseWithoutThread(thread.what());
}
