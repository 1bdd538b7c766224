#pragma once

#include "app/AppDelegate.hpp"
#include "explore/Baton.hpp"
#include "explore/Machine.hpp"
#include "simulator/engine/Wire.hpp"
#include "simulator/world/ManualQueue.hpp"
#include "tests/support/LogRecorder.hpp"

#include <QApplication>
#include <QWidget>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class DDFileLogger;

namespace explore {

/// The window's controller with screens that nobody sees. The first flow is its main thread; the listener is another,
/// and the block of Reset Now a third.
class Window {
  public:
    /// @param queue  the main queue of the platform, which is installed by then
    Window(Baton& baton, simulator::ManualQueue& queue, const Machine& machine);

    /// Waits until attached devices are seen.
    void listen();
    /// Reset Now, on the first screen, and the alert's destructive button.
    void press();
    /// Quit, or the window's close button. @return whether the log has called the reset unfinished
    bool quit(bool closes);
    /// Serves the main queue until something holds, but not beyond a moment.
    void until(simulator::Time moment, const std::function<bool()>& holds);
    void stopListening();
    /// The time of day was set: the log file is looked at, as a timer would have it. Call look() first.
    /// @param isEarlier  lines logged so far are no longer looked for: a day that comes twice begins its file anew
    void timeWasSet(bool isEarlier);
    [[nodiscard]] bool isComplete() const { return mScreens[2].parentWidget() != nullptr; }
    [[nodiscard]] bool isAtRest() const {
        return mController.nextAction() == NextAction::None && !mController.isResetUnfinished();
    }
    /// A device has taken this packet: a command in it entitles the controller to one line that says so.
    void told(const simulator::UsbPacket& packet);
    /// Between two turns, at what the controller has logged since the last call: each thread's lines must follow on
    /// each other, and the next action is the one that they lead to.
    void look();
    /// At any moment: it only changes as its table says.
    void lookAtNextAction();
    /// The log files have the lines, in their order.
    void lookAtFiles() const;

  private:
    Baton& mBaton;
    simulator::ManualQueue& mQueue;
    support::LogRecorder mLog;
    QApplication mToolkit;
    QWidget mContainer;
    QWidget mScreens[3];
    AppDelegate mController{[this](int status) { mHasEnded = status == 0; }};
    const Machine& mMachine;
    const std::shared_ptr<DDFileLogger> mFile;
    std::shared_ptr<platform::CFRunLoop> mListenLoop;
    std::map<std::uint32_t, char> mLast;  ///< line of each thread, by its letter
    std::string_view mExpected = "0";     ///< the next actions that the lines so far lead to
    char mNextAction = '0';
    std::vector<std::string> mLines;  ///< that the log files have
    bool mHasEnded = false;
    std::map<std::string, int>
        mTold;  ///< by log line: how often a device took that command and the line has not come yet
};

}  // namespace explore
