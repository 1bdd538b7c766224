#include "explore/Window.hpp"

#include "app/Util/Alert.hpp"

#include <algorithm>
#include <array>
#include <utility>

/// Stands in for the box on the screen: whoever presses Reset Now means it.
int Alert::runModal(QWidget*) const {
    return NSAlertFirstButtonReturn;
}

namespace explore {
namespace {

int gArguments = 1;
char gName[] = "explore";
char* gArgument[] = {gName, nullptr};

/// What a thread's line of the controller may come after; an empty text stands for its first.
struct Line {
    std::string_view begins;
    std::array<std::string_view, 9> after;
};
constexpr std::string_view kDetected = "Device detected but no action taken", kFound = "Device found, rebooting",
                           kNone = "No device found, waiting for connection", kRebooted = "Device rebooted",
                           kRebootFailed = "Reboot failed: ", kHeld = "Hold in bootloader sent",
                           kHoldFailed = "Hold in bootloader failed: ", kCleared = "Nonvol cleared",
                           kClearFailed = "Nonvol clear failed: ", kResumed = "Boot resumed",
                           kResumeFailed = "Resume boot failed: ", kCaught = "Unknown exception caught";
// Where one attached device has been dealt with; with an end at RebootOnAttach the next is a reboot, which may fail.
constexpr Line kLines[] = {
    {kDetected, {"", kDetected, kResumed, kRebooted, kRebootFailed}},
    {kFound, {""}},
    {kNone, {""}},
    {kCaught, {"", kFound, kDetected, kResumed, kRebooted, kRebootFailed, kHoldFailed, kClearFailed, kResumeFailed}},
    {kRebooted, {"", kFound, kDetected, kRebooted, kRebootFailed, kHoldFailed, kClearFailed, kResumeFailed}},
    {kRebootFailed, {"", kFound, kDetected, kRebooted, kRebootFailed, kHoldFailed, kClearFailed, kResumeFailed}},
    {kHeld, {"", kDetected, kRebooted, kRebootFailed}},
    {kHoldFailed, {"", kDetected, kRebooted, kRebootFailed}},
    {kCleared, {kHeld}},
    {kClearFailed, {kHeld}},
    {kResumed, {kCleared}},
    {kResumeFailed, {kCleared}},
};

}  // namespace

Window::Window(Baton& baton, simulator::ManualQueue& queue)
    : mBaton(baton), mQueue(queue), mToolkit(gArguments, gArgument) {
    auto& outlets = mController.outlets();
    outlets.mainWindowView = &mContainer;
    outlets.notStartedView = &mScreens[0];
    outlets.inProgressView = &mScreens[1];
    outlets.completeView = &mScreens[2];
}

void Window::listen() {
    bool listens = false;
    mBaton.flow("listener", [this, &listens] {
        mListenLoop = mBaton.CFRunLoopGetCurrent();
        mListenLoop->CFRunLoopPerformBlock(platform::kCFRunLoopDefaultMode, [&listens] { listens = true; });
        mController.runTrovikModeListenLoop();
        mListenLoop.reset();
    });
    until(simulator::Time::max(), [&] { return listens; });
}

void Window::until(simulator::Time moment, const std::function<bool()>& holds) {
    while (!holds() && mBaton.now() < moment) {
        mBaton.wait(moment, [&] { return mQueue.waiting() > 0 || holds(); });
        mQueue.drain();
    }
}

void Window::stopListening() {
    mListenLoop->CFRunLoopPerformBlock(platform::kCFRunLoopDefaultMode,
                                       [loop = mListenLoop] { loop->CFRunLoopStop(); });
    until(simulator::Time::max(), [this] { return mBaton.flows() == 0; });
}

void Window::readLog(const std::function<void(const std::string&)>& told) {
    for (const DDLogMessage& message : mLog.take()) {
        if (told) told(message.logMsg);
        if (message.fileName() == "AppDelegate") follow(message.logMsg, mLast[message.machThreadID]);
    }
}

void Window::follow(const std::string& line, std::string& last) {
    const auto begins = [&](const Line& one) { return line.starts_with(one.begins); };
    const auto known = std::ranges::find_if(kLines, begins);
    if (known == std::end(kLines)) fail("The window logs: " + line);
    // What could not be opened says so first; what came before that still counts.
    const auto fits = [&](std::string_view before) { return before == last; };
    if (std::ranges::none_of(known->after, fits)) fail("The window logs \"" + line + "\" after \"" + last + "\".");
    if (known->begins != kCaught) last = known->begins;
}

}  // namespace explore
