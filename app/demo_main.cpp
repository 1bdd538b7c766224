// The same window on a simulated device: to look at, to try the tool's behaviour out, and to prove it without a
// display.
#include "app/AppDelegate.hpp"
#include "app/Desktop/ResetWatch.hpp"
#include "app/MainWindow.hpp"
#include "app/StartUp.hpp"
#include "app/Support/ErrorCatalogue.hpp"
#include "app/SupportLog.hpp"
#include "app/TrovikMode/ConnectedDevices.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/SystemLog.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "app/demo/DemoDevice.hpp"
#include "app/demo/DemoPanel.hpp"
#include "app/demo/DemoRun.hpp"
#include "platform/Directories.hpp"
#include "platform/Platform.hpp"
#include "platform/ScriptRunner.hpp"
#include "platform/common/GlobalQueue.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/process/SystemDescription.hpp"
#include "platform/linux/process/TerminateExceptionHandler.hpp"
#include "platform/linux/settings/Bundle.hpp"
#include "platform/linux/settings/UserDefaults.hpp"
#include "platform/linux/usb/SystemSurvey.hpp"
#include "platform/qt/QtMainQueue.hpp"

#include <QApplication>
#include <QScreen>
#include <QSize>
#include <QString>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

namespace {

using std::chrono::milliseconds;

// Device-independent pixels.
constexpr int kHeightWithPanel = 640;
constexpr QSize kFrame(0, 40);  ///< what the desktop puts around a window

struct Options {
    bool run = false;
    bool slow = false;
    std::string pictures;
    std::vector<simulator::Fault> faults;
};

void printHelp(std::FILE* stream) {
    std::fputs(
        "Usage: ResetToolDemo [OPTION]...\n"
        "The reset tool's window over a simulated device, with a panel that shows the device.\n\n"
        "  --run            do a whole reset without a person, clicks included, and tell each step;\n"
        "                   needs no display. Status 0: the device's settings store is empty\n"
        "  --pictures DIR   with --run: leave pictures of the screens in DIR\n"
        "  --slow           at a speed that eyes can follow\n"
        "  --fault NAME     have the device do something wrong; may be repeated\n"
        "  --help           this text\n\n"
        "Faults, by name or by number:\n",
        stream);
    int number = 0;
    for (const auto& fault : simulator::faultCatalogue()) {
        std::fprintf(stream, "  %2d  %-22s %s\n", ++number, fault.name.c_str(), fault.sentence.c_str());
    }
}

bool addFault(const std::string& name, std::vector<simulator::Fault>& faults) {
    std::size_t number = 0;
    for (const auto& fault : simulator::faultCatalogue()) {
        if (name != fault.name && name != std::to_string(++number)) continue;
        faults.push_back(fault);
        return true;
    }
    std::fprintf(stderr, "There is no fault \"%s\"; --help lists them.\n", name.c_str());
    return false;
}

/// Reads the command line; ends the program where that is all there is to do.
Options readOptions(int argc, char** argv) {
    Options options;
    const option known[] = {{"run", no_argument, nullptr, 'r'},
                            {"slow", no_argument, nullptr, 's'},
                            {"pictures", required_argument, nullptr, 'p'},
                            {"fault", required_argument, nullptr, 'f'},
                            {"help", no_argument, nullptr, 'h'},
                            {nullptr, 0, nullptr, 0}};
    for (int c = 0; (c = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        if (c == 'r') {
            options.run = true;
        } else if (c == 's') {
            options.slow = true;
        } else if (c == 'p') {
            options.pictures = optarg;
        } else if (c == 'h') {
            printHelp(stdout);
            std::exit(EXIT_SUCCESS);
        } else if (c != 'f' || !addFault(optarg, options.faults)) {
            std::exit(2);
        }
    }
    if (optind < argc) {
        std::fprintf(stderr, "What is \"%s\"? --help lists the options.\n", argv[optind]);
        std::exit(2);
    }
    return options;
}

/// The demo leaves real programs alone.
class NoScripts final : public platform::ScriptRunner {
  public:
    bool executeAndReturnError(const std::string&, const std::stop_token&) override { return true; }
    int system(const std::string&) override { return 0; }
};

simulator::Profile profileFor(const Options& options) {
    simulator::Profile profile = simulator::Profile::handheld();
    if (options.run && !options.slow) {
        profile.rebootTime = milliseconds(300);
    } else {
        profile.answerDelay = milliseconds(150);
        profile.rebootTime = milliseconds(4000);
    }
    return profile;
}

[[noreturn]] void terminate(int status) {
    DDLog::applicationWillTerminate();
    std::fflush(stdout);
    std::_Exit(status);
}

}  // namespace

int main(int argc, char** argv) {
    StartUp::openStandardStreams();
    const Options options = readOptions(argc, argv);
    if (options.run && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    platform::Platform platform = platform::withLinuxFiles();
    // What happens to a simulated device is no business of the tool's log files, nor of its preferences.
    const std::string caches = platform.directories->cachesDirectory();
    const std::string folder = caches.empty() ? caches : caches + "/trovik-reset-tool-demo";
    if (!folder.empty()) setenv("XDG_DATA_HOME", folder.c_str(), 1);

    platform.log = [](const std::string& line) { SystemLog::shared().write(ErrorCatalogue::completed(line)); };
    const platform::PlatformScope logScope(platform);  // for what the next ones find damaged

    platform::TerminateExceptionHandler exceptionHandler;
    const auto application = StartUp::makeApplication(argc, argv);
    DemoDevice device(profileFor(options));

    platform::Bundle bundle;
    platform::UserDefaults userDefaults(folder.empty() ? folder : bundle.bundleIdentifier(), folder);
    platform::AsioRunLoops runLoops;
    platform::QtMainQueue mainQueue;
    NoScripts scriptRunner;
    const auto globalQueue = StartUp::withThread([] { return std::make_unique<platform::GlobalQueue>(); });
    platform.runLoops = &runLoops;
    platform.masterPort = &device.bus();
    platform.mainQueue = &mainQueue;
    platform.globalQueue = globalQueue.get();
    platform.mainBundle = &bundle;
    platform.standardUserDefaults = &userDefaults;
    platform.surveySystem = platform::surveyOfThisSystem;
    platform.scriptRunner = &scriptRunner;
    platform.exceptionHandler = &exceptionHandler;
    const platform::PlatformScope scope(platform);

    AppDelegate controller(terminate);
    MainWindow window(controller);
    ResetWatch resetWatch(*controller.outlets().inProgressView, *controller.outlets().completeView);
    window.setWindowTitle(QString::fromStdString(bundle.localizedStringForKey("SimulatedTitle", "", "")));
    DemoPanel* panel = nullptr;
    std::unique_ptr<DemoRun> run;
    if (options.run) {
        run = std::make_unique<DemoRun>(
            controller, device, DemoRun::Options{QString::fromStdString(options.pictures), options.slow}, terminate);
    } else {
        panel = new DemoPanel(window, device);
        const QSize room = window.screen()->availableSize() - kFrame;
        window.resize(QSize(window.width() + DemoPanel::kWidth, std::max(window.height(), kHeightWithPanel))
                          .boundedTo(room)
                          .expandedTo(window.minimumSize()));
    }

    // Changes come from any thread and in bursts; one look shows all of them.
    std::atomic<bool> lookPending = false;
    const auto look = [&] {
        lookPending = false;
        const DemoDevice::View view = device.look();
        if (panel) panel->show(view);
        if (run) run->show(view);
    };
    device.bus().setObserver([&] {
        if (!lookPending.exchange(true)) mainQueue.dispatch_async(look);
    });

    StartUp::withThread([&] { controller.applicationWillFinishLaunching(); });
    controller.applicationDidFinishLaunching();
    SupportLog::started(platform::describeSystem());
    SystemLog::shared().loggersAreAdded();
    controller.waitUntilListening();
    device.change([&](simulator::Device& simulated) {
        for (const auto& fault : options.faults) simulated.addFault(fault);
    });
    device.plug();
    ConnectedDevices devices([&](const auto& present) {
        window.showDevices(present);
        resetWatch.devicesChanged(!present.empty());
    });
    devices.start();
    window.show();
    StartUp::windowIsShown();
    std::printf("The device is simulated: nothing real is erased. The log is in %s\n",
                TrovikLogs::logsDirectory().c_str());
    std::fflush(stdout);
    if (run) run->start();
    return QApplication::exec();
}
