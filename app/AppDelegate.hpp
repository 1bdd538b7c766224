#pragma once

#include "app/TrovikMode/USBRegistryInfo.hpp"
#include "platform/IORegistry.hpp"
#include "platform/NSExceptionHandler.hpp"

#include <QPointer>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

class QAction;
class QLabel;
class QProgressBar;
class QPushButton;
class QWidget;

/// What is done when a device in Trovik mode attaches.
enum class NextAction : std::uint32_t { None = 0, RebootOnAttach = 1, ClearOnAttach = 2 };

/// The controller: sets the tool up at launch, answers the window's controls, and drives a reset. A reset has two
/// phases, since the device leaves and comes back in between: first it is told to reboot; when it attaches again it is
/// held in its boot loader, cleared, and its boot resumed. Any command that fails leads to one more reboot.
///
/// Owned by the composition root. Three threads meet in it: the main thread (launch, actions, completion), one worker
/// block per Reset Now, and the listener thread, on which attached devices are dealt with.
class AppDelegate final : public platform::NSExceptionHandlerDelegate {
  public:
    /// Every control that the controller fills in or acts on, as the window made them. Plain pointers that the window
    /// owns; the two that are used after launch become null with their widget.
    struct Outlets {
        QPointer<QWidget> mainWindowView;
        QWidget* notStartedView = nullptr;
        QWidget* inProgressView = nullptr;
        QWidget* completeView = nullptr;
        QAction* aboutMenuItem = nullptr;
        QAction* quitMenuItem = nullptr;
        QAction* mainMenuItemTwo = nullptr;
        QLabel* titleText = nullptr;
        QLabel* resetBodyText = nullptr;
        QLabel* resetInProgressText = nullptr;
        QLabel* dontUnplugText = nullptr;
        QLabel* resetCompleteText = nullptr;
        QLabel* resetCompleteBodyText = nullptr;
        QPushButton* resetNowButton = nullptr;
        QPushButton* quitButton = nullptr;
        QPushButton* mainMenuButton = nullptr;
        QPointer<QProgressBar> progressIndicator;
    };

    /// @param terminate  ends the process with a status; a test's may return. std::exit when left out
    explicit AppDelegate(std::function<void(int)> terminate = {});
    ~AppDelegate() override;  ///< stops the listener thread if it runs; main thread, while the platform is there
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// @name Window side. Main thread only.
    /// @{
    Outlets& outlets() { return mOutlets; }

    /// Makes the listener thread, which then waits for the launch. Before the window is shown: without that thread
    /// there is no reset. Once.
    /// @throws std::system_error  no thread is to be had
    void applicationWillFinishLaunching();

    /// Sets logging, exception reports and the library's metadata up and lets the listener go. Once, after the above.
    void applicationDidFinishLaunching();

    /// Gives the controls their texts in the user's language. Every outlet must be set.
    void awakeFromNib();

    /// Asks for confirmation and starts a reset on a worker.
    void handleButtonClick();

    /// Shows the first screen; a reset that is under way goes on.
    void returnToMainMenuButtonClicked();

    void quitButtonClicked();  ///< ends the process with status 0, at once
    void windowWillClose();    ///< the same
    /// @}

    /// Asks the companion programs, which hold the device, to quit, and kills them where that fails. Best effort,
    /// silent. Blocks for some seconds at most. Any thread.
    void stopStation();

    /// Body of the listener thread: has attached devices reported on the calling thread and runs its loop until
    /// stopListener().
    void runTrovikModeListenLoop();

    /// Blocks until the listener thread has subscribed to attached devices (or failed to): a device that attaches from
    /// then on is seen. Any thread but the listener's; only after applicationDidFinishLaunching.
    void waitUntilListening();

    /// Ends the listener thread in order, after what it is doing at the moment. For programs that go on without it, as
    /// tests do; the tool lets it run until the process ends. Main thread only.
    void stopListener();

    /// Deals with one attached device: what mNextAction says. Blocks while the device is talked to. Listener thread.
    void trovikModeDeviceDetected(const USBRegistryInfo& record);

    /// The two phases. Neither throws; how they ended is in mNextAction and in the log. Block for some seconds, at most
    /// about half a minute with a device that does not answer. Worker or listener thread.
    void rebootDevice(const USBRegistryInfo& record);
    void clearNonvol(const USBRegistryInfo& record);

    /// Logs an exception that nobody caught. Always true. Any thread.
    bool exceptionHandlerShouldLogException(const platform::NSException& exception, std::uint32_t mask) override;
    /// Always false: the exception goes on to end the process. Any thread.
    bool exceptionHandlerShouldHandleException(const platform::NSException& exception, std::uint32_t mask) override;

    /// What comes next. Any thread; a relaxed read, which orders nothing else.
    NextAction nextAction() const;

    /// A device was opened for its first reboot, whatever came of that, and is not cleared and resumed yet. Any thread.
    bool isResetUnfinished() const { return mIsResetUnfinished; }

  private:
    void setNextAction(NextAction action);
    void resetAttachedDevice();
    void letListenerGo();

    Outlets mOutlets;
    std::function<void(int)> mTerminate;
    bool mReportsExceptions = false;  ///< is the exception handler's delegate

    /// A NextAction. Written by the worker and by the listener thread, without a lock: both follow from one action of
    /// the user. Only through the two accessors, which are atomic.
    std::uint32_t mNextAction = 0;
    std::atomic<bool> mIsResetUnfinished = false;

    std::thread mListener;
    std::mutex mListenerMutex;
    std::condition_variable mListenerChanged;  ///< one of the three below
    bool mHasLaunched = false;                 ///< behind mListenerMutex; what the listener thread waits for first
    bool mListenerFailed = false;              ///< behind mListenerMutex; it has no loop and has ended
    std::shared_ptr<platform::CFRunLoop> mListenLoop;  ///< behind mListenerMutex; null until the listener is ready
};

/// Call-back for attached devices: takes every entry from the iterator and hands the last one that has a path and an id
/// to the controller.
/// @param refCon  the AppDelegate
/// Callback on the listener thread.
void trovikModeDeviceAttached(void* refCon, platform::IOIterator& iterator);
