#include "explore/Window.hpp"

#include "app/TrovikMode/ResetSteps.hpp"
#include "app/Util/Alert.hpp"
#include "app/Util/Logging/DDFileLogger.hpp"
#include "app/Util/Logging/DailyLog.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "explore/Report.hpp"
#include "tests/support/TemporaryFolder.hpp"

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
    std::string_view next = {};  ///< the next actions that there may be then; empty for those of before
};
/// What the next action, a number, may become.
constexpr std::array<std::string_view, 5> kChanges = {"01", "02", "12", "21", "20"};
constexpr char kCaught = 'X';

/// @return null for no line of the controller
const Line* lineOf(const std::string& text) {
    // After D, S, R and r an attached device has been dealt with, and the thread goes on with the next one. That one is
    // rebooted where the next action is RebootOnAttach by then, and the reboot may fail.
    static const std::array lines = {
        Line{'D', "Device detected but no action taken", "-DSRr", "0"},
        Line{'F', "Device found, rebooting", "-"},
        Line{'O', "Could not start observing Trovik-mode device attaches.", "-"},
        Line{'N', "No device found, waiting for connection", "-", "1"},
        Line{kCaught, "Unknown exception caught", "-FDSRrhcs", "012"},
        Line{'R', ResetSteps::kReboot.succeeded, "-FDRrhcs", "2"},
        Line{'r', ResetSteps::kReboot.failed, "-FDRrhcs", "1"},
        Line{'H', ResetSteps::kHold.succeeded, "-DRrS"},
        Line{'h', ResetSteps::kHold.failed, "-DRrS"},
        Line{'C', ResetSteps::kClear.succeeded, "H"},
        Line{'c', ResetSteps::kClear.failed, "H"},
        Line{'S', ResetSteps::kResume.succeeded, "C", "02"},  // the device is let go of in between
        Line{'s', ResetSteps::kResume.failed, "C"},
    };
    const auto line = std::ranges::find_if(lines, [&](const Line& one) { return text.starts_with(one.begins); });
    return line == lines.end() ? nullptr : &*line;
}

}  // namespace

Window::Window(Baton& baton, simulator::ManualQueue& queue, const Machine& machine)
    : mBaton(baton), mQueue(queue), mToolkit(gArguments, gArgument), mMachine(machine), mFile(makeDailyLog()) {
    DDLog::addLogger(mFile);
    DDLogInfo("The window opens.");
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
    while (!holds() && mBaton.now() < moment && mBaton.flows() > 0) {
        mBaton.wait(moment, [&] { return mQueue.waiting() > 0 || holds(); });
        mQueue.drain();
    }
}

void Window::stopListening() {
    mListenLoop->CFRunLoopPerformBlock(platform::kCFRunLoopDefaultMode,
                                       [loop = mListenLoop] { loop->CFRunLoopStop(); });
    until(simulator::Time::max(), [this] { return mBaton.flows() == 0; });
}

void Window::press() {
    mController.returnToMainMenuButtonClicked();
    mController.handleButtonClick();
}

bool Window::quit(bool closes) {
    look();
    const std::size_t before = mLines.size();
    closes ? mController.windowWillClose() : mController.quitButtonClicked();
    look();
    const bool isUnfinished = mController.isResetUnfinished();
    const std::size_t told = mLines.size() - before;
    if (!mHasEnded || (!mMachine.isFull() && told != (isUnfinished ? 2U : 1U))) fail("It does not say how it ends.");
    return isUnfinished;
}

void Window::timeWasSet(bool isEarlier) {
    mFile->setRollingFrequency(mFile->rollingFrequency());  // what the system's timer would have it do
    if (isEarlier) mLines.clear();
}

void Window::lookAtFiles() const {
    std::string all;
    for (auto paths = TrovikLogs::sortedLogsWithPrefix("ResetTool"); !paths.empty(); paths.pop_back())
        all += support::ReadFile(paths.back());
    std::size_t place = 0;
    for (const std::string& line : mLines) {
        place = all.find(" | " + line + "\n", place);
        if (place == std::string::npos) fail("The log files lack a line: " + line);
        ++place;
    }
}

void Window::lookAtNextAction() {
    const char next = static_cast<char>('0' + static_cast<int>(mController.nextAction()));
    const std::string change{mNextAction, next};
    if (next == mNextAction) return;
    if (std::ranges::find(kChanges, change) == kChanges.end()) fail("The next action becomes " + change);
    fact("next action", change);
    mNextAction = next;
}

void Window::told(const simulator::UsbPacket& packet) {
    for (const ResetStep* const step :
         {&ResetSteps::kReboot, &ResetSteps::kHold, &ResetSteps::kClear, &ResetSteps::kResume}) {
        if (packet.id == step->command && packet.data == step->data) ++mTold[step->succeeded];
    }
}

void Window::look() {
    for (const DDLogMessage& message : mLog.take()) {
        const std::string& text = message.logMsg;
        trace("logs: " + text);
        if (!mMachine.isFull()) mLines.push_back(text);
        if (message.fileName() != "AppDelegate") continue;
        char& last = mLast.try_emplace(message.machThreadID, '-').first->second;
        const Line* const line = lineOf(text);
        if (!line || line->after.find(last) == std::string_view::npos)
            fail("The window logs \"" + text + "\" after " + last + ".");
        if (std::string_view("RHCS").find(line->letter) != std::string_view::npos && --mTold[text] < 0)
            fail("The window logs \"" + text + "\", which no device was told to do.");
        // An opening that fails logs its exception first: what may follow still goes by the line before that.
        if (line->letter != kCaught) last = line->letter;
        if (!line->next.empty()) mExpected = line->next;
    }
    lookAtNextAction();
    if (mExpected.find(mNextAction) == std::string_view::npos)
        fail(std::string("The next action is ") + mNextAction + " and not " + std::string(mExpected));
}

}  // namespace explore
