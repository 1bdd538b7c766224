// The whole tool with its real threads: launch, window, worker, listener, and a device in real time that answers at
// once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QPushButton>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>

#include "WIN/WIN_AppMetaData.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "platform/linux/AsioRunLoop.hpp"
#include "platform/qt/QtMainQueue.hpp"
#include "simulator/RealTimeDrive.hpp"
#include "simulator/world/SimulatedWorld.hpp"
#include "tests/app/AppWorld.hpp"
#include "tests/support/TemporaryFolder.hpp"

namespace app_test {
namespace {

using simulator::Device;
using simulator::Fault;
using simulator::FaultKind;
using simulator::SettingsStore;
using simulator::Time;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

std::size_t countDescriptors() {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

/// Without the toolkit's pool, which comes and goes as it likes.
std::size_t countThreads() {
    std::size_t count = 0;
    for (const auto& thread : fs::directory_iterator("/proc/self/task")) {
        if (!support::ReadFile((thread.path() / "comm").string()).starts_with("Thread (pooled)")) ++count;
    }
    return count;
}

/// A global queue whose threads a test can see off: one for each block.
class WorkerQueue final : public platform::DispatchQueue {
  public:
    ~WorkerQueue() override { join(); }
    void dispatch_async(std::function<void()> block) override { mThreads.emplace_back(std::move(block)); }
    void dispatch_sync(const std::function<void()>& block) override { block(); }
    void join() {
        for (std::thread& thread : std::exchange(mThreads, {})) thread.join();
    }

  private:
    std::vector<std::thread> mThreads;  ///< main thread only
};

/// The composition root of a test. Made once in a process: what the launch registers stays.
struct ResetTest : testing::Test {
    explicit ResetTest(platform::NSUserDefaults* userDefaults = nullptr) {
        // Before anything asks for it: the log folder is looked up once in a process.
        setenv("XDG_DATA_HOME", folder().path().c_str(), 1);
        setenv("XDG_CACHE_HOME", folder().path().c_str(), 1);
        bus = std::make_unique<simulator::InProcessBus>(drive);
        port = bus->addDevice(simulator::Profile::instant());
        drive.start(*bus);
        platform::Platform platform;
        platform.runLoops = &runLoops;
        platform.masterPort = bus.get();
        platform.mainQueue = &mainQueue;
        platform.globalQueue = &globalQueue;
        platform.mainBundle = &bundle;
        platform.scriptRunner = &scripts;
        platform.exceptionHandler = &exceptions;
        platform.standardUserDefaults = userDefaults;
        scope.emplace(platform);
        controller = std::make_unique<AppDelegate>([](int) {});
        window = std::make_unique<MainWindow>(*controller);
        log = std::make_unique<ControllerLog>();
        controller->applicationDidFinishLaunching();
        controller->waitUntilListening();
        window->show();
    }

    ~ResetTest() override {
        window.reset();
        controller.reset();  // joins the listener
        drive.requestStop();
        drive.join();
        DDLog::removeAllLoggers();
        DDLog::flushLog();
    }

    void confirmReset() {
        const AlertAnswer answer([](QMessageBox& alert) { click(resetButtonOf(alert)); });
        click(controller->outlets().resetNowButton);
        ASSERT_TRUE(answer.wasAsked());
    }

    /// Puts the cable in and waits until the listener has seen the device and left it alone.
    void plug() {
        bus->plug(port);
        while (lines.empty() || lines.back() != "I Device detected but no action taken") {
            for (std::string& line : log->take()) lines.push_back(std::move(line));
        }
    }

    /// A whole reset. The device comes back on the test's word, since the controller learns only after the command that
    /// it succeeded: no real device is back by then, but this one might.
    void reset() {
        withDevice([](Device& device) {
            device.addFault(Fault::onCommand(0xAE, FaultKind::Unplug).withDelay(simulator::Duration{0}));
        });
        confirmReset();
        while (controller->nextAction() != NextAction::ClearOnAttach) std::this_thread::yield();
        EXPECT_TRUE(controller->outlets().inProgressView->isVisible());
        bus->plug(port);
        waitFor(controller->outlets().completeView);
        globalQueue.join();
    }

    void waitFor(QWidget* screen) {
        while (!screen->isVisible()) QApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }

    template <typename Action>
    void withDevice(Action action) {
        bus->withDevice(port, [&](Device& device, Time) { action(device); });
    }

    /// The tests of one process share it, as they share the log folder.
    static support::TemporaryFolder& folder() {
        static support::TemporaryFolder shared;
        return shared;
    }
    simulator::RealTimeDrive drive;
    std::unique_ptr<simulator::InProcessBus> bus;
    std::size_t port = 0;
    platform::AsioRunLoops runLoops;
    platform::QtMainQueue mainQueue;
    WorkerQueue globalQueue;
    platform::Bundle bundle{TROVIK_RESOURCES, {}};
    simulator::RecordingScriptRunner scripts;
    simulator::RecordingExceptionHandler exceptions;
    std::optional<platform::PlatformScope> scope;
    std::unique_ptr<AppDelegate> controller;
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<ControllerLog> log;
    std::vector<std::string> lines;  ///< of the controller, so far
};

TEST_F(ResetTest, WholeResetFromTheButtonToTheCompleteScreen) {
    EXPECT_EQ(exceptions.delegate, controller.get());
    EXPECT_EQ(exceptions.mask, 255U);
    EXPECT_EQ(win::AppMetaData().ProductName(), L"Trovik Reset Tool");

    plug();
    reset();

    for (std::string& line : log->take()) lines.push_back(std::move(line));
    EXPECT_THAT(lines, ElementsAre("I Trovik Reset Tool 1.0.0 has started.", "I Device detected but no action taken",
                                   "I Device found, rebooting", "I Device rebooted", "I Hold in bootloader sent",
                                   "I Nonvol cleared", "I Boot resumed"));
    auto traffic = expectedTraffic({kReboot});
    const auto second = expectedTraffic({kHold, kClear, kResume});
    traffic.insert(traffic.end(), second.begin(), second.end());
    withDevice([&](Device& device) {
        EXPECT_TRUE(device.store().empty());
        EXPECT_THAT(device.record().received(), ElementsAreArray(traffic));
        EXPECT_THAT(device.record().refused(), IsEmpty());
    });
    EXPECT_EQ(controller->nextAction(), NextAction::None);

    // The log file tells the same.
    const auto files = TrovikLogs::sortedLogsWithPrefix("ResetTool");
    ASSERT_EQ(files.size(), 1U);
    EXPECT_THAT(files.front(), HasSubstr(folder().path().string() + "/Trovik/ResetTool/ResetTool_"));
    const std::string text = support::ReadFile(files.front());
    std::size_t at = 0;
    for (const std::string& line : lines) {
        at = text.find("| I | " + line.substr(2) + "\n", at);
        EXPECT_NE(at, std::string::npos) << line << "\n in\n" << text;
    }
}

/// The tool with both trace switches on.
struct TracedResetTest : ResetTest {
    TracedResetTest() : ResetTest(&defaults()) {}

    static simulator::MemoryDefaults& defaults() {
        static simulator::MemoryDefaults memory;
        using platform::PropertyList;
        memory.values["ShowUsbDebug"].value = true;
        PropertyList node{PropertyList::Dictionary{{"ShowDebug", {PropertyList::Data{1}}}}};
        for (const char* const key : {"Settings", "Trovik", "Software"})
            node = PropertyList{PropertyList::Dictionary{{key, node}}};
        memory.values["RegistryRoot"] = node;
        return memory;
    }
};

TEST_F(TracedResetTest, LeavesATraceInWhichEachPacketCanBeFollowed) {
    plug();
    withDevice([](Device& device) { device.record().clear(); });
    reset();
    const std::string usb = support::ReadFile(folder().path().string() + "/Trovik/IouUsbDebug.log");
    const std::string link = support::ReadFile(folder().path().string() + "/Trovik/IoLinkDebug.txt.log");
    std::size_t packets = 0;
    std::size_t sent = 0;
    withDevice([&](Device& device) {
        for (const simulator::RecordEntry& entry : device.record().entries()) {
            if (entry.kind != simulator::RecordEntry::Kind::Received) continue;
            const std::string line = "SendFrameWithTimeout complete. Layer: " + std::to_string(entry.bytes[0]) +
                                     " Id: " + std::to_string(entry.bytes[4] | entry.bytes[5] << 8) +
                                     " Size: " + std::to_string(entry.bytes.size() - 12) + "\n";
            sent = usb.find(line, sent);
            ASSERT_NE(sent, std::string::npos) << line << " in\n" << usb;
            sent += line.size();
            ++packets;
        }
    });
    EXPECT_GE(packets, 16U);  // two sessions, four identifications and their commands
    EXPECT_NE(usb.find("GetFrameWithTimeout complete. Id: 113 Size: 0\n"), std::string::npos);
    EXPECT_NE(link.find("looking for packet id: 113: Timeout = 3000\n"), std::string::npos);
}

TEST_F(ResetTest, WithTheSwitchesOffNoTraceIsMade) {
    plug();
    reset();
    for (const auto& file : fs::recursive_directory_iterator(folder().path()))
        EXPECT_NE(file.path().extension(), ".log") << file.path();
}

TEST_F(ResetTest, ManyResetsLeaveNothingBehind) {
    const char* const wanted = std::getenv("TROVIK_SOAK_ROUNDS");
    const int rounds = wanted ? std::atoi(wanted) : 20;
    const int warmUp = 3;  // threads and descriptors that stay for good are there by then
    std::size_t descriptors = 0;
    std::size_t threads = 0;
    plug();
    for (int round = 0; round < warmUp + rounds; ++round) {
        withDevice([](Device& device) {
            device.store() = SettingsStore::wellUsed();
            device.record().clear();
        });
        controller->returnToMainMenuButtonClicked();
        QApplication::processEvents();
        reset();
        withDevice([](Device& device) {
            ASSERT_TRUE(device.store().empty());
            ASSERT_THAT(device.record().refused(), IsEmpty());
        });
        ASSERT_EQ(bus->pendingTransfers(), 0U);
        ASSERT_EQ(bus->openDevices(), 0U);
        if (round + 1 == warmUp) {
            descriptors = countDescriptors();
            threads = countThreads();
        }
    }
    // The toolkit opens and closes some of its own at its leisure; what is lost in each round adds up to more.
    EXPECT_LT(countDescriptors(), descriptors + 5);
    EXPECT_LT(countThreads(), threads + 5);
}

}  // namespace
}  // namespace app_test
