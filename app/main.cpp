// The tool. Picks what the platform interface is made of on this system, and runs the application on it.
#include "app/AppDelegate.hpp"
#include "app/Desktop/ResetWatch.hpp"
#include "app/Desktop/SingleInstance.hpp"
#include "app/MainWindow.hpp"
#include "app/SessionEnd.hpp"
#include "app/StartUp.hpp"
#include "app/Support/ErrorCatalogue.hpp"
#include "app/SupportLog.hpp"
#include "app/TrovikMode/ConnectedDevices.hpp"
#include "app/TrovikMode/DeviceLock.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/SystemLog.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"
#include "platform/common/GlobalQueue.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/process/CrashHandler.hpp"
#include "platform/linux/process/SignalScriptRunner.hpp"
#include "platform/linux/process/SystemDescription.hpp"
#include "platform/linux/process/TerminateExceptionHandler.hpp"
#include "platform/linux/settings/Bundle.hpp"
#include "platform/linux/settings/UserDefaults.hpp"
#include "platform/linux/usb/OpenFailure.hpp"
#include "platform/linux/usb/SystemSurvey.hpp"
#include "platform/linux/usb/UdevRegistry.hpp"
#include "platform/qt/QtMainQueue.hpp"
#include "platform/qt/QtPreload.hpp"

#include <QApplication>

#include <cstdlib>
#include <memory>
#include <string>

namespace {

/// Ends the process at once. The worker and the listener thread may be talking to a device: static objects must not be
/// destroyed beneath them. All that has to reach the disk is the log.
[[noreturn]] void terminate(int status) {
    DDLog::applicationWillTerminate();
    std::_Exit(status);
}

}  // namespace

int main(int argc, char** argv) {
    StartUp::openStandardStreams();
    platform::TerminateExceptionHandler exceptionHandler;
    const platform::QtPreload preload;
    SingleInstance instance;
    QApplication::setDesktopFileName(QStringLiteral("org.trovik.ResetTool"));
    const auto application = StartUp::makeApplication(argc, argv);
    instance.start();

    platform::Platform platform = platform::withLinuxFiles();
    platform.log = [](const std::string& line) { SystemLog::shared().write(ErrorCatalogue::completed(line)); };
    const platform::PlatformScope logScope(platform);  // for what the next ones find damaged
    platform::Bundle bundle;
    platform::UserDefaults userDefaults(bundle.bundleIdentifier());
    platform::AsioRunLoops runLoops;
    platform::UdevRegistry registry(runLoops);
    platform::QtMainQueue mainQueue;
    platform::SignalScriptRunner scriptRunner;
    const auto globalQueue = StartUp::withThread([] { return std::make_unique<platform::GlobalQueue>(); });

    platform.runLoops = &runLoops;
    platform.masterPort = &registry;
    platform.describeOpenFailure = [](const std::string& path, platform::IOReturn result) {
        return ErrorCatalogue::logLine(platform::diagnoseOpenFailure(path, result));
    };
    platform.surveySystem = platform::surveyOfThisSystem;
    platform.mainQueue = &mainQueue;
    platform.globalQueue = globalQueue.get();
    platform.mainBundle = &bundle;
    platform.standardUserDefaults = &userDefaults;
    platform.scriptRunner = &scriptRunner;
    platform.exceptionHandler = &exceptionHandler;
    platform.lockFolder = DeviceLock::usualFolder();
    const platform::PlatformScope scope(platform);

    const std::string& logs = TrovikLogs::logsDirectory();
    platform::installCrashHandler(logs.empty() ? logs : logs + "/ResetTool",
                                  "Trovik Reset Tool " + bundle.infoText("CFBundleShortVersionString"));

    if (instance.handedOver()) std::_Exit(EXIT_SUCCESS);
    AppDelegate controller(terminate);
    StartUp::withThread([&] { controller.applicationWillFinishLaunching(); });
    MainWindow window(controller);
    instance.setWindow(&window);
    ResetWatch resetWatch(*controller.outlets().inProgressView, *controller.outlets().completeView);
    window.show();
    StartUp::windowIsShown();
    controller.applicationDidFinishLaunching();
    SupportLog::started(platform::describeSystem());
    const SessionEnd sessionEnd([&](const std::string& why) {
        SupportLog::ending(why, controller.isResetUnfinished());
        DDLog::applicationWillTerminate();
    });
    SystemLog::shared().loggersAreAdded();
    ConnectedDevices devices([&](const auto& present) {
        window.showDevices(present);
        resetWatch.devicesChanged(!present.empty());
    });
    devices.start();
    terminate(application->exec());
}
