#include "app/AppDelegate.hpp"

#include "app/LegacyIOConfig.hpp"
#include "app/SupportLog.hpp"
#include "app/TrovikMode/ResetSteps.hpp"
#include "app/TrovikMode/USBTrovikModeFinderUtils.hpp"
#include "app/TrovikMode/UsbTrovikModeIoLink.hpp"
#include "app/Util/Alert.hpp"
#include "app/Util/Error.hpp"
#include "app/Util/Logging/DDFileLogger.hpp"
#include "app/Util/Logging/DDLog.hpp"
#include "app/Util/Logging/DDTTYLogger.hpp"
#include "app/Util/Logging/DailyLog.hpp"
#include "app/Util/Logging/TrovikLogs.hpp"
#include "app/Util/ViewUtilities.hpp"
#include "platform/CFRunLoop.hpp"
#include "platform/Dispatch.hpp"
#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"
#include "platform/common/Boundary.hpp"

#include <QAction>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QWidget>

#include <atomic>
#include <cstdlib>
#include <utility>
#include <vector>

namespace {

constexpr const char* kSourceFile = "AppDelegate";  ///< what messages of a thread's boundary name

/// Inside a catch block at the boundary of a thread or a call-back. An error line: it is written when this returns.
void logCaughtException(int line) noexcept {
    try {
        DDLogError("%s", platform::caughtException(kSourceFile, line).c_str());
    } catch (...) {
        platform::logCaughtException(kSourceFile, line);
    }
}

/// All eight flags: log and handle each kind of exception that nobody caught.
constexpr std::uint32_t kExceptionHandlingMask = 255;

/// Opens a device. A device that can't be opened makes the library throw a bare number, which is no exception of its
/// own and therefore passes through the facade: here it counts as a facade that could not be made.
std::unique_ptr<UsbTrovikModeIoLink> openDevice(const USBRegistryInfo& record) {
    try {
        return UsbTrovikModeIoLink::initWithPath(record.ioPath());
    } catch (...) {
        logCaughtException(__LINE__);
        return nullptr;
    }
}

/// A command to a device that could not be opened fails without an error text.
bool send(UsbTrovikModeIoLink* device, const ResetStep& step, Error& error) {
    return device && device->sendIopCommand(step.command, step.data, step.awaitResponse, &error);
}

std::string localized(const char* key) {
    return platform::mainBundle().localizedStringForKey(key, "", "");
}

template <typename Control>
void setText(Control* control, const char* key) {
    control->setText(QString::fromStdString(localized(key)));
}

}  // namespace

AppDelegate::AppDelegate(std::function<void(int)> terminate)
    : mTerminate(terminate ? std::move(terminate) : [](int status) { std::exit(status); }) {}

AppDelegate::~AppDelegate() {
    stopListener();
    if (mReportsExceptions) platform::defaultExceptionHandler().setDelegate(nullptr);
}

NextAction AppDelegate::nextAction() const {
    // atomic_ref has no form for a constant object.
    auto& field = const_cast<std::uint32_t&>(mNextAction);
    return static_cast<NextAction>(std::atomic_ref(field).load(std::memory_order_relaxed));
}

void AppDelegate::setNextAction(NextAction action) {
    std::atomic_ref(mNextAction).store(static_cast<std::uint32_t>(action), std::memory_order_relaxed);
}

void AppDelegate::applicationWillFinishLaunching() {
    mListener = std::thread([this] {
        {
            std::unique_lock lock(mListenerMutex);
            mListenerChanged.wait(lock, [this] { return mHasLaunched; });
        }
        try {
            runTrovikModeListenLoop();
        } catch (...) {
            logCaughtException(__LINE__);
            const std::lock_guard lock(mListenerMutex);
            mListenerFailed = true;
            mListenerChanged.notify_all();
        }
    });
}

void AppDelegate::applicationDidFinishLaunching() {
    TrovikLogs::initLogLevel();

    const auto fileLogger = makeDailyLog();
    DDLog::addLogger(DDTTYLogger::sharedInstance());
    DDLog::addLogger(fileLogger);
    if (!fileLogger) SupportLog::cause(Cause::NoHomeFolder);

    const std::string version = platform::mainBundle().infoText("CFBundleShortVersionString");
    DDLogInfo("Trovik Reset Tool %s has started.", version.c_str());

    platform::defaultExceptionHandler().setDelegate(this);
    mReportsExceptions = true;
    platform::defaultExceptionHandler().setExceptionHandlingMask(kExceptionHandlingMask);

    LegacyIOConfig::configureMetaData();

    letListenerGo();
}

void AppDelegate::letListenerGo() {
    const std::lock_guard lock(mListenerMutex);
    mHasLaunched = true;
    mListenerChanged.notify_all();
}

void AppDelegate::awakeFromNib() {
    mOutlets.mainWindowView->window()->setWindowTitle(QString::fromStdString(localized("TrovikResetTitle")));
    setText(mOutlets.aboutMenuItem, "AboutTrovikReset");
    setText(mOutlets.quitMenuItem, "QuitTrovikReset");
    setText(mOutlets.titleText, "TrovikResetTitle");
    setText(mOutlets.resetBodyText, "ResetInstructionsBody");
    setText(mOutlets.resetNowButton, "ResetNow");
    setText(mOutlets.resetInProgressText, "ResetInProgress");
    setText(mOutlets.dontUnplugText, "DoNotUnplugDevice");
    setText(mOutlets.resetCompleteText, "ResetCompleteTitle");
    setText(mOutlets.resetCompleteBodyText, "ResetCompleteBody");
    setText(mOutlets.quitButton, "Quit");
    setText(mOutlets.mainMenuButton, "ReturnToMainMenu");
}

void AppDelegate::handleButtonClick() {
    Alert alert;
    alert.addButtonWithTitle(localized("ResetNow"));
    alert.addButtonWithTitle(localized("Cancel"));
    alert.setMessageText(localized("ConfirmResetDialogTitle"));
    alert.setInformativeText(localized("ConfirmResetDialogBody"));
    alert.setAlertStyle(NSAlertStyle::Critical);
    if (alert.runModal(mOutlets.mainWindowView->window()) != NSAlertFirstButtonReturn) {
        DDLogInfo("Reset canceled");
        return;
    }
    ViewUtilities::setAndPinSubview(*mOutlets.mainWindowView, *mOutlets.inProgressView);
    // A range without an extent is what Qt shows as busy.
    if (mOutlets.progressIndicator) mOutlets.progressIndicator->setRange(0, 0);
    platform::dispatch_get_global_queue().dispatch_async([this] {
        try {
            resetAttachedDevice();
        } catch (...) {
            logCaughtException(__LINE__);
            setNextAction(NextAction::RebootOnAttach);  // the user waits: the next attach is a new chance
            SupportLog::cause(Cause::InternalError);
        }
    });
}

void AppDelegate::resetAttachedDevice() {
    stopStation();
    const auto records = USBTrovikModeFinderUtils::connectedPaths();
    if (records && !records->empty()) {
        DDLogInfo("Device found, rebooting");
        rebootDevice(records->front());
    } else {
        DDLogInfo("No device found, waiting for connection");
        SupportLog::cause(Cause::DeviceNotFound);
        setNextAction(NextAction::RebootOnAttach);
    }
}

void AppDelegate::returnToMainMenuButtonClicked() {
    ViewUtilities::setAndPinSubview(*mOutlets.mainWindowView, *mOutlets.notStartedView);
}

void AppDelegate::quitButtonClicked() {
    SupportLog::ending("Quit was chosen", isResetUnfinished());
    mTerminate(EXIT_SUCCESS);
}

void AppDelegate::windowWillClose() {
    SupportLog::ending("the window was closed", isResetUnfinished());
    mTerminate(EXIT_SUCCESS);
}

void AppDelegate::stopStation() {
    ResetSteps::quitStation();
}

void AppDelegate::runTrovikModeListenLoop() {
    const std::shared_ptr<platform::CFRunLoop> loop = platform::CFRunLoopGetCurrent();
    bool observing = false;
    try {
        observing = USBTrovikModeFinderUtils::observeTMDevicesForType(platform::kIOServiceMatched,
                                                                      trovikModeDeviceAttached, this);
    } catch (...) {
        logCaughtException(__LINE__);
    }
    if (!observing) {
        DDLogInfo("Could not start observing Trovik-mode device attaches.");
        SupportLog::cause(Cause::AttachesNotSeen);
    }
    {
        const std::lock_guard lock(mListenerMutex);
        mListenLoop = loop;
        mListenerChanged.notify_all();
    }
    for (;;) {
        try {
            return loop->CFRunLoopRun();
        } catch (...) {
            logCaughtException(__LINE__);  // the listener goes on to the next attach
        }
    }
}

void AppDelegate::waitUntilListening() {
    std::unique_lock lock(mListenerMutex);
    mListenerChanged.wait(lock, [this] { return mListenLoop != nullptr || mListenerFailed; });
}

void AppDelegate::stopListener() {
    if (!mListener.joinable()) return;
    letListenerGo();  // should the launch have been given up
    waitUntilListening();
    const auto loop = mListenLoop;  // written once, before the wait ended; null where the listener has failed
    // As a block of the mode that the body runs: it may be inside a wait of its own for a device.
    if (loop) loop->CFRunLoopPerformBlock(platform::kCFRunLoopDefaultMode, [loop] { loop->CFRunLoopStop(); });
    mListener.join();
}

void trovikModeDeviceAttached(void* refCon, platform::IOIterator& iterator) {
    USBRegistryInfo last;
    bool hasId = false;
    while (const std::unique_ptr<platform::IOService> entry = iterator.IOIteratorNext()) {
        if (USBTrovikModeFinderUtils::readEntry(*entry, last)) hasId = true;
    }
    if (hasId) static_cast<AppDelegate*>(refCon)->trovikModeDeviceDetected(last);
}

void AppDelegate::trovikModeDeviceDetected(const USBRegistryInfo& record) {
    switch (nextAction()) {
        case NextAction::ClearOnAttach:
            return clearNonvol(record);
        case NextAction::RebootOnAttach:
            return rebootDevice(record);
        case NextAction::None:
            break;
    }
    DDLogInfo("Device detected but no action taken");
}

void AppDelegate::rebootDevice(const USBRegistryInfo& record) {
    const std::unique_ptr<UsbTrovikModeIoLink> device = openDevice(record);
    if (device) mIsResetUnfinished = true;
    Error error;
    const bool isRebooting = send(device.get(), ResetSteps::kReboot, error);
    // Before the next action is set: from then on the listener opens the device again, which may be back while this
    // link is still being closed.
    if (device) device->giveUpLock();
    if (isRebooting) {
        DDLogInfo("%s", ResetSteps::kReboot.succeeded);
        setNextAction(NextAction::ClearOnAttach);
    } else {
        DDLogInfo("%s: %s", ResetSteps::kReboot.failed, error.description().c_str());
        setNextAction(NextAction::RebootOnAttach);
    }
    SupportLog::identified(device.get());
}

void AppDelegate::clearNonvol(const USBRegistryInfo& record) {
    std::unique_ptr<UsbTrovikModeIoLink> device = openDevice(record);
    for (const ResetStep& step : ResetSteps::kClearSequence) {
        Error error;
        if (!send(device.get(), step, error)) {
            DDLogInfo("%s: %s", step.failed, error.description().c_str());
            if (&step == &ResetSteps::kClear) SupportLog::cause(Cause::StoreNotCleared);
            SupportLog::identified(device.get());
            device.reset();  // the reboot opens the device anew, which needs it free
            return rebootDevice(record);
        }
        DDLogInfo("%s", step.succeeded);
        SupportLog::identified(device.get());
    }
    device.reset();  // the next screen says that the device may be unplugged
    mIsResetUnfinished = false;
    setNextAction(NextAction::None);
    platform::dispatch_get_main_queue().dispatch_async([this] {
        if (mOutlets.mainWindowView) {
            ViewUtilities::setAndPinSubview(*mOutlets.mainWindowView, *mOutlets.completeView);
        }
    });
}

bool AppDelegate::exceptionHandlerShouldLogException(const platform::NSException& exception, std::uint32_t) {
    DDLogError("Exception: name: %s reason: %s", exception.name.c_str(), exception.reason.c_str());
    const bool known = !exception.callStackSymbols.empty();
    std::string stack;
    for (const std::string& symbol :
         known ? exception.callStackSymbols : platform::defaultExceptionHandler().callStackSymbols()) {
        stack += symbol + "\n";
    }
    DDLogError("Stack:\n%s", stack.c_str());
    SupportLog::cause(Cause::InternalError);
    return true;
}

bool AppDelegate::exceptionHandlerShouldHandleException(const platform::NSException&, std::uint32_t) {
    return false;
}
