#include "explore/Window.hpp"

#include "app/TrovikMode/ResetSteps.hpp"
#include "app/Util/Alert.hpp"
#include "explore/Report.hpp"

#include <algorithm>
#include <array>
#include <string_view>

/// Stands in for the box on the screen: whoever presses Reset Now means it.
int Alert::runModal(QWidget*) const {
    return NSAlertFirstButtonReturn;
}

namespace explore {
namespace {

int gArguments = 1;
char gName[] = "explore";
char* gArgument[] = {gName, nullptr};

/// A line of the controller, known by a letter, and those that it may come after on its thread; '-' is its beginning.
struct Line {
    char letter;
    std::string_view begins;
    std::string_view after;
};
constexpr char kCaught = 'X';

/// @return null for no line of the controller
const Line* lineOf(const std::string& text) {
    // D, S, R and r: one attached device has been dealt with. With an end at RebootOnAttach the next is a reboot, which
    // may fail.
    static const std::array lines = {
        Line{'D', "Device detected but no action taken", "-DSRr"},
        Line{'F', "Device found, rebooting", "-"},
        Line{'O', "Could not start observing Trovik-mode device attaches.", "-"},
        Line{'N', "No device found, waiting for connection", "-"},
        Line{kCaught, "Unknown exception caught", "-FDSRrhcs"},
        Line{'R', ResetSteps::kReboot.succeeded, "-FDRrhcs"},
        Line{'r', ResetSteps::kReboot.failed, "-FDRrhcs"},
        Line{'H', ResetSteps::kHold.succeeded, "-DRr"},
        Line{'h', ResetSteps::kHold.failed, "-DRr"},
        Line{'C', ResetSteps::kClear.succeeded, "H"},
        Line{'c', ResetSteps::kClear.failed, "H"},
        Line{'S', ResetSteps::kResume.succeeded, "C"},
        Line{'s', ResetSteps::kResume.failed, "C"},
    };
    const auto line = std::ranges::find_if(lines, [&](const Line& one) { return text.starts_with(one.begins); });
    return line == lines.end() ? nullptr : &*line;
}

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

void Window::readLog() {
    for (const DDLogMessage& message : mLog.take()) {
        const std::string& text = message.logMsg;
        trace("logs: " + text);
        if (message.fileName() != "AppDelegate") continue;
        char& last = mLast.try_emplace(message.machThreadID, '-').first->second;
        const Line* const line = lineOf(text);
        if (!line || line->after.find(last) == std::string_view::npos)
            fail("The window logs \"" + text + "\" after " + last + ".");
        // What could not be opened says so first; what came before that still counts.
        if (line->letter != kCaught) last = line->letter;
    }
}

}  // namespace explore
