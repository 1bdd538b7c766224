#include "app/SessionEnd.hpp"

#include "app/Util/Logging/DDLog.hpp"

#include <QGuiApplication>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace {

int gWriter = -1;  ///< of a pipe; set before the first signal, never closed: one may come until the process has ended

extern "C" void tellSignal(int signal) {
    const int error = errno;
    const auto byte = static_cast<unsigned char>(signal);
    [[maybe_unused]] const ssize_t written = ::write(gWriter, &byte, 1);
    errno = error;
}

}  // namespace

SessionEnd::SessionEnd(std::function<void(const std::string&)> observer) : mObserver(std::move(observer)) {
    // Somebody may still cancel that. Otherwise the session manager has the window closed, or a signal follows.
    connect(qGuiApp, &QGuiApplication::commitDataRequest, this, [] {
        DDLogInfo("The session is about to end");
        DDLog::flushLog();
    });

    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) < 0) return;  // signals then end the process without a word
    mReader = platform::FileDescriptor(ends[0]);
    gWriter = ends[1];
    mNotifier = std::make_unique<QSocketNotifier>(ends[0], QSocketNotifier::Read);
    connect(mNotifier.get(), &QSocketNotifier::activated, this, [this] { takeSignal(); });
    struct sigaction action {};
    action.sa_handler = tellSignal;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    for (const int signal : {SIGTERM, SIGHUP, SIGINT}) {
        struct sigaction before {};
        // What the process was started to ignore, as by nohup, stays ignored.
        if (::sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
            ::sigaction(signal, &action, nullptr);
    }
}

void SessionEnd::takeSignal() {
    unsigned char signal = 0;
    if (::read(mReader.get(), &signal, 1) != 1) return;
    mObserver(std::string("the system sent the signal ") + ::sigabbrev_np(signal));
    ::raise(signal);  // its handler went with the first one
}
