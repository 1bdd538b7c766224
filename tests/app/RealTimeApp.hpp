#pragma once

#include "platform/Platform.hpp"
#include "platform/linux/files/LinuxFiles.hpp"
#include "platform/qt/QtMainQueue.hpp"
#include "tests/app/AppWorld.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/UsbBackend.hpp"

#include <functional>
#include <thread>
#include <utility>
#include <vector>

namespace app_test {

/// A global queue whose threads a test can see off: one for each block.
class WorkerQueue final : public platform::DispatchQueue {
  public:
    void dispatch_async(std::function<void()> block) override { mThreads.emplace_back(std::move(block)); }
    void dispatch_sync(const std::function<void()>& block) override { block(); }
    void join() { mThreads.clear(); }

  private:
    std::vector<std::jthread> mThreads;  ///< main thread only
};

/// The whole tool with its real threads: launch, window, worker, listener. One at a time.
class RealTimeApp {
  public:
    /// @param usb  where its device is; must outlive this
    explicit RealTimeApp(support::UsbBackend& usb);
    ~RealTimeApp();
    RealTimeApp(const RealTimeApp&) = delete;
    RealTimeApp& operator=(const RealTimeApp&) = delete;

    /// Puts the cable in and waits until the listener has seen the device and left it alone.
    void plug();

    /// A whole reset. The device comes back on the test's word, since the controller learns only after the command that
    /// it succeeded: no real device is back by then, but this one might.
    void reset();
    /// Back to the start screen, with a used device.
    void startAfresh();

    /// Whole resets from the start screen, without a trace of them in the process afterwards.
    void resetsLeaveNothingBehind(int rounds);

    /// Serves the window meanwhile, and gives up after a minute with an exception that says what it waited for.
    static void waitUntil(const char* what, const std::function<bool()>& condition);

    template <typename Action>
    void withDevice(Action action) {
        mUsb.withDevice([&](simulator::Device& device, simulator::Time) { action(device); });
    }

    /// Logs and traces of the process, emptied at each start.
    static const support::TemporaryFolder& folder();

    simulator::RecordingExceptionHandler exceptions;

  private:
    support::UsbBackend& mUsb;
    platform::QtMainQueue mMainQueue;
    WorkerQueue mGlobalQueue;
    platform::Bundle mBundle{TROVIK_RESOURCES, {}};
    simulator::RecordingScriptRunner mScripts;
    platform::PlatformScope mScope{platform::withLinuxFiles({.runLoops = &mUsb.runLoops(),
                                                             .masterPort = &mUsb.registry(),
                                                             .mainQueue = &mMainQueue,
                                                             .globalQueue = &mGlobalQueue,
                                                             .mainBundle = &mBundle,
                                                             .scriptRunner = &mScripts,
                                                             .exceptionHandler = &exceptions,
                                                             .lockFolder = folder().path()})};

  public:
    AppDelegate controller{[](int) {}};
    MainWindow window{controller};
    ConnectedDevices devices{[this](const auto& present) { window.showDevices(present); }};
    ControllerLog log;
};

}  // namespace app_test
