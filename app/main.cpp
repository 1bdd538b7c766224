// The tool. Picks what the platform interface is made of on this system, and runs the application on it.
#include <QApplication>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app/AppDelegate.hpp"
#include "app/MainWindow.hpp"
#include "app/StartUp.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/AsioRunLoop.hpp"
#include "platform/linux/Bundle.hpp"
#include "platform/linux/CrashHandler.hpp"
#include "platform/linux/Dispatch.hpp"
#include "platform/linux/SignalScriptRunner.hpp"
#include "platform/linux/TerminateExceptionHandler.hpp"
#include "platform/linux/UdevRegistry.hpp"
#include "platform/linux/UserDefaults.hpp"
#include "platform/qt/QtMainQueue.hpp"
#include "platform/qt/QtPreload.hpp"

namespace {

/// Ends the process at once. The worker and the listener thread may be talking to a device: static objects must not be
/// destroyed beneath them. All that has to reach the disk is the log.
[[noreturn]] void terminate(int status) {
    DDLog::applicationWillTerminate();
    std::_Exit(status);
}

/// The system log. What the platform has to say of a device (above all why it can't be opened) belongs beside the
/// workflow's own lines, where support looks for it; the loggers' own troubles can't be told to themselves. Any thread.
class SystemLog {
  public:
    static SystemLog& shared() {
        // Never destroyed: a thread may still have something to say while the process exits.
        static auto& one = *new SystemLog;
        return one;
    }

    void write(const std::string& line) {
        const std::string text = line.substr(0, line.find_last_not_of('\n') + 1);
        if (DDLog::isDelivering()) {
            std::fprintf(stderr, "%s\n", text.c_str());
            return;
        }
        {
            const std::lock_guard guard(mLock);
            if (!mHasLoggers) {
                std::fprintf(stderr, "%s\n", text.c_str());  // should the launch not get that far
                return mEarlyLines.push_back(text);
            }
        }
        report(text);
    }

    /// The launch reads the settings before it adds the loggers: a line about a damaged file waits for them until here.
    void loggersAreAdded() {
        std::vector<std::string> lines;
        {
            const std::lock_guard guard(mLock);
            mHasLoggers = true;
            lines.swap(mEarlyLines);
        }
        for (const std::string& line : lines) report(line);
    }

  private:
    /// What the platform has to say is trouble, also to a person who wants to see nothing else in the log.
    static void report(const std::string& line) { DD_LOG_MAYBE(true, DDLogFlagError, "%s", line.c_str()); }

    std::mutex mLock;
    bool mHasLoggers = false;              ///< behind mLock
    std::vector<std::string> mEarlyLines;  ///< behind mLock
};

}  // namespace

int main(int argc, char** argv) {
    StartUp::openStandardStreams();
    platform::TerminateExceptionHandler exceptionHandler;
    const platform::QtPreload preload;
    QApplication::setDesktopFileName(QStringLiteral("org.trovik.ResetTool"));
    const auto application = StartUp::makeApplication(argc, argv);

    platform::Bundle bundle;
    platform::UserDefaults userDefaults(bundle.bundleIdentifier());
    platform::AsioRunLoops runLoops;
    platform::UdevRegistry registry;
    platform::QtMainQueue mainQueue;
    platform::SignalScriptRunner scriptRunner;
    const auto globalQueue = StartUp::withThread([] { return std::make_unique<platform::GlobalQueue>(); });

    platform::Platform platform;
    platform.runLoops = &runLoops;
    platform.masterPort = &registry;
    platform.mainQueue = &mainQueue;
    platform.globalQueue = globalQueue.get();
    platform.mainBundle = &bundle;
    platform.standardUserDefaults = &userDefaults;
    platform.scriptRunner = &scriptRunner;
    platform.exceptionHandler = &exceptionHandler;
    platform.log = [](const std::string& line) { SystemLog::shared().write(line); };
    const platform::PlatformScope scope(platform);

    const auto version = bundle.infoDictionary().find("CFBundleShortVersionString");
    const std::string* const text = version == bundle.infoDictionary().end() ? nullptr : version->second.string();
    const std::string& logs = TrovikLogs::logsDirectory();
    platform::InstallCrashHandler(logs.empty() ? logs : logs + "/ResetTool",
                                  "Trovik Reset Tool " + (text ? *text : std::string()));

    AppDelegate controller(terminate);
    StartUp::withThread([&] { controller.applicationWillFinishLaunching(); });
    MainWindow window(controller);
    window.show();
    StartUp::windowIsShown();
    controller.applicationDidFinishLaunching();
    SystemLog::shared().loggersAreAdded();
    terminate(QApplication::exec());
}
