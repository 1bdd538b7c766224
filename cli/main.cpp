// trovik-reset: resets devices without a window. Picks what the platform interface is made of, and runs one command.
#include "app/LegacyIOConfig.hpp"
#include "app/Support/ErrorCatalogue.hpp"
#include "app/TrovikMode/DeviceLock.hpp"
#include "app/Util/Logging/DDFileLogger.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DailyLog.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "cli/Commands.hpp"
#include "cli/Scenario.hpp"
#include "cli/UsbGate.hpp"
#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"
#include "platform/common/FileDescriptor.hpp"
#include "platform/common/RunLoopMainQueue.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "platform/linux/process/SignalScriptRunner.hpp"
#include "platform/linux/settings/Bundle.hpp"
#include "platform/linux/settings/UserDefaults.hpp"
#include "platform/linux/usb/SystemSurvey.hpp"
#include "platform/linux/usb/UdevRegistry.hpp"
#include "simulator/engine/RealTimeDrive.hpp"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <stop_token>
#include <string>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

/// What ends a run: the first signal asks for it, the second ends the process. Before there is a run a signal waits for
/// it; a second one too.
class Signals {
  public:
    /// Before any other thread: they all inherit that the signals wait for the one thread that takes them.
    Signals() {
        std::signal(SIGPIPE, SIG_IGN);
        sigemptyset(&mSet);
        for (const int signal : {SIGINT, SIGTERM}) sigaddset(&mSet, signal);
        // Who starts the program by nohup wants it to go on; sigwait takes a blocked signal even where it is ignored.
        struct sigaction hangup {};
        if (::sigaction(SIGHUP, nullptr, &hangup) != 0 || hangup.sa_handler != SIG_IGN) sigaddset(&mSet, SIGHUP);
        pthread_sigmask(SIG_BLOCK, &mSet, nullptr);
    }

    void setCancel(std::function<void()> cancel) {
        const std::lock_guard lock(mMutex);
        mCancel = std::move(cancel);
        if (!std::exchange(mTakes, true)) std::thread([this] { take(); }).detach();  // it ends with the process
    }

  private:
    void take() {
        for (int number = 0, signal = 0; ::sigwait(&mSet, &signal) == 0; ++number) {
            if (number > 0) std::_Exit(static_cast<int>(twin::Status::Cancelled));
            const std::lock_guard lock(mMutex);
            mCancel();
        }
    }

    sigset_t mSet{};
    std::mutex mMutex;
    std::function<void()> mCancel;  ///< under mMutex
    bool mTakes = false;            ///< under mMutex; there is a thread that takes signals
};

/// What somebody types on the terminal; nothing where it is stopped first.
std::string readAnswer(const std::stop_token& stop) {
    const platform::FileDescriptor stopped(::eventfd(0, EFD_CLOEXEC));
    const std::stop_callback wakes(stop, [&] { static_cast<void>(::eventfd_write(stopped.get(), 1)); });
    std::array<pollfd, 2> waited = {{{STDIN_FILENO, POLLIN, 0}, {stopped.get(), POLLIN, 0}}};
    platform::uninterrupted([&] { return ::poll(waited.data(), waited.size(), -1); });
    std::string line;
    if (!stop.stop_requested()) std::getline(std::cin, line);
    return line;
}

/// Descriptors 0 to 2 that the program was started without would become those of the next files, perhaps a log's.
void openStandardStreams() {
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0 && ::open("/dev/null", O_RDWR) < 0) return;
    }
}

/// A command on simulated devices, in real time.
twin::Status runSimulated(const twin::Options& options, twin::Surroundings surroundings, platform::Platform platform) {
    const twin::Scenario& scenario = *options.scenario;
    simulator::RealTimeDrive drive;
    twin::ScenarioWorld world(scenario, drive);
    twin::GatedRegistry registry(world.registry());
    twin::ScenarioScripts scripts(scenario.stationTakes);
    platform.masterPort = &registry;
    platform.scriptRunner = &scripts;
    std::error_code error;
    std::string folder = (std::filesystem::temp_directory_path(error) / "trovik-reset-XXXXXX").string();
    if (error || !::mkdtemp(folder.data())) {  // a name that nobody can have taken before
        std::cerr << "No temporary folder can be made.\n";
        return twin::Status::Failed;
    }
    platform.lockFolder = folder;
    surroundings.journalFolder = folder + "/journal";
    const platform::PlatformScope scope(platform);
    std::optional<DeviceLock> otherRun;
    if (scenario.otherRun) otherRun = DeviceLock::take("1-1");
    surroundings.diagnosis = twin::plainDiagnosis;
    surroundings.stageBegan = [&](twin::Stage stage) { world.stageBegan(stage); };
    surroundings.onCancel = [&, onSignal = surroundings.onCancel](std::function<void()> cancel) {
        world.setCancel(cancel);
        onSignal(std::move(cancel));
    };
    drive.start(world);
    const twin::Status status = twin::run(options, surroundings);
    drive.requestStop();
    drive.join();
    std::filesystem::remove_all(folder, error);
    return status;
}

[[noreturn]] void terminate(twin::Status status) {
    std::cout.flush();
    DDLog::applicationWillTerminate();
    std::_Exit(static_cast<int>(status));
}

}  // namespace

int main(int argc, char** argv) {
    openStandardStreams();
    auto& signals = *new Signals;  // its thread uses it until the process has ended
    platform::Platform platform = platform::withLinuxFiles();
    platform.log = [](const std::string& line) {
        DDLogInfo("%s", ErrorCatalogue::completed(line.substr(0, line.find('\n'))).c_str());
    };
    const platform::PlatformScope filesScope(platform);
    platform::Bundle bundle;
    const std::string version = bundle.infoText("CFBundleShortVersionString");
    twin::Status status = twin::Status::Done;
    const auto options = twin::parse({argv + 1, argv + argc}, version, std::cout, std::cerr, status);
    if (!options) terminate(status);
    platform::UserDefaults userDefaults(bundle.bundleIdentifier());
    platform::AsioRunLoops runLoops;
    platform::UdevRegistry devices(runLoops);
    twin::GatedRegistry registry(devices);
    platform::RunLoopMainQueue mainQueue(runLoops);
    platform::SignalScriptRunner scriptRunner;
    platform.runLoops = &runLoops;
    platform.masterPort = &registry;
    platform.mainQueue = &mainQueue;
    platform.mainBundle = &bundle;
    platform.standardUserDefaults = &userDefaults;
    platform.scriptRunner = &scriptRunner;
    platform.lockFolder = DeviceLock::usualFolder();
    platform.surveySystem = platform::surveyOfThisSystem;
    const platform::PlatformScope scope(platform);

    TrovikLogs::initLogLevel();
    if (!options->scenario) DDLog::addLogger(makeDailyLog());
    LegacyIOConfig::configureMetaData();

    twin::ThreadWorkers workers;
    const bool isTerminal = ::isatty(STDERR_FILENO) != 0;
    const twin::Surroundings surroundings{
        .out = std::cout,
        .people = std::cerr,
        .drawsLines = isTerminal,
        .answer = isTerminal && ::isatty(STDIN_FILENO) != 0 ? readAnswer : nullptr,
        .workers = workers,
        .journalFolder = twin::Journal::usualFolder(),
        .version = version,
        .onCancel = [&signals](std::function<void()> cancel) { signals.setCancel(std::move(cancel)); },
    };
    terminate(options->scenario ? runSimulated(*options, surroundings, platform) : twin::run(*options, surroundings));
}
