#pragma once

#include "app/AppDelegate.hpp"
#include "explore/Baton.hpp"
#include "simulator/world/ManualQueue.hpp"
#include "tests/support/LogRecorder.hpp"

#include <QApplication>
#include <QWidget>

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace explore {

/// The window's controller with screens that nobody sees. The first flow is its main thread; the listener is another,
/// and the block of Reset Now a third.
class Window {
  public:
    /// @param queue  the main queue of the platform, which is installed by then
    Window(Baton& baton, simulator::ManualQueue& queue);

    /// Waits until attached devices are seen.
    void listen();
    /// Reset Now, and the alert's destructive button.
    void press() { mController.handleButtonClick(); }
    /// Serves the main queue until something holds, but not beyond a moment.
    void until(simulator::Time moment, const std::function<bool()>& holds);
    void stopListening();
    [[nodiscard]] bool isComplete() const { return mScreens[2].parentWidget() != nullptr; }
    [[nodiscard]] bool isAtRest() const {
        return mController.nextAction() == NextAction::None && !mController.isResetUnfinished();
    }
    /// What the controller has logged since the last call. Each thread's lines must follow on each other.
    void readLog();

  private:
    Baton& mBaton;
    simulator::ManualQueue& mQueue;
    support::LogRecorder mLog;
    QApplication mToolkit;
    QWidget mContainer;
    QWidget mScreens[3];
    AppDelegate mController{[](int) {}};
    std::shared_ptr<platform::CFRunLoop> mListenLoop;
    std::map<std::uint32_t, char> mLast;  ///< line by thread
};

}  // namespace explore
