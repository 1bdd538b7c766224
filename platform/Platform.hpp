#pragma once

#include "platform/IOReturn.hpp"
#include "platform/SystemSurvey.hpp"

#include <memory>
#include <string>

namespace platform {

class Clock;
class CFRunLoop;
class CFRunLoops;
class Directories;
class DispatchQueue;
class DispatchSources;
class FileAttributes;
class IORegistry;
class MainQueue;
class NSBundle;
class NSExceptionHandler;
class NSUserDefaults;
class ScriptRunner;
class WallClock;

/// The process-wide objects of the operating system, as the composition root picked them. None is owned. What stays
/// null has a harmless stand-in where the accessor below says so, and must be set before use elsewhere.
struct Platform {
    Clock* clock = nullptr;                          ///< stand-in: the machine's clock
    CFRunLoops* runLoops = nullptr;                  ///< must be set
    IORegistry* masterPort = nullptr;                ///< must be set
    MainQueue* mainQueue = nullptr;                  ///< must be set
    DispatchQueue* globalQueue = nullptr;            ///< must be set
    NSBundle* mainBundle = nullptr;                  ///< stand-in: an empty bundle
    NSUserDefaults* standardUserDefaults = nullptr;  ///< stand-in: no preferences
    ScriptRunner* scriptRunner = nullptr;            ///< must be set
    NSExceptionHandler* exceptionHandler = nullptr;  ///< must be set
    WallClock* wallClock = nullptr;                  ///< stand-in: the machine's time of day
    FileAttributes* fileAttributes = nullptr;        ///< stand-in: files keep none
    Directories* directories = nullptr;              ///< stand-in: the user has no folders
    DispatchSources* dispatchSources = nullptr;      ///< stand-in: nothing can be watched
    void (*log)(const std::string& line) = nullptr;  ///< stand-in: standard error
    std::string lockFolder = {};                     ///< where devices are marked as taken; stand-in: nothing is
    /// As openFailureText() below; stand-in: nothing is known.
    std::string (*describeOpenFailure)(const std::string& registryPath, IOReturn result) = nullptr;
    SystemSurvey (*surveySystem)() = nullptr;  ///< stand-in: nothing is known
};

/// Installs a Platform for the life of this object and puts the one before back at its end. `main` makes one before any
/// other thread runs and destroys it after they have ended; a test's fixture does the same.
class PlatformScope {
  public:
    explicit PlatformScope(const Platform& platform);  ///< copies it; what it points to must outlive this object
    ~PlatformScope();
    PlatformScope(const PlatformScope&) = delete;
    PlatformScope& operator=(const PlatformScope&) = delete;

  private:
    Platform mPrevious;
};

/// The installed object. One that had to be set and was not ends the process. Any thread, while a PlatformScope lives.
/// @{
Clock& systemClock();
IORegistry& kIOMasterPortDefault();
std::shared_ptr<CFRunLoop> CFRunLoopGetCurrent();
MainQueue& dispatch_get_main_queue();
DispatchQueue& dispatch_get_global_queue();
NSBundle& mainBundle();
NSUserDefaults& standardUserDefaults();
ScriptRunner& scriptRunner();
NSExceptionHandler& defaultExceptionHandler();
WallClock& wallClock();
FileAttributes& fileAttributes();
Directories& directories();
DispatchSources& dispatchSources();
std::string lockFolder();  ///< empty for none
/// @}

/// Now, by the process's clock: seconds since 2001-01-01 00:00:00 UTC. Any thread.
double CFAbsoluteTimeGetCurrent();

/// Why the USB device at a registry path could not be opened, as one sentence or more for the log; empty when nothing
/// is known beyond the result. Any thread.
std::string openFailureText(const std::string& registryPath, IOReturn result);

/// What support asks first of this system; whatever can't be found out is left out. Blocks on the disk.
SystemSurvey surveySystem();

/// Writes one line to the system log, printf style. Never throws. Any thread.
void NSLog(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// A fresh globally unique id as text, upper-case hexadecimal in the usual five groups. Any thread.
std::string CFUUIDCreateString();

}  // namespace platform
