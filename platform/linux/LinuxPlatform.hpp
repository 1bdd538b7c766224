#pragma once

#include <memory>
#include <string>

namespace platform {

class MainQueue;

/// What a program may say of itself and choose. Each field may stay as it is.
struct LinuxPlatformOptions {
    std::string name = "TrovikIO";  ///< what people call the program; also the name of its trace files
    std::string version = "1.0";    ///< numbers and dots

    /// Domain of the program's preferences, "org.example.Tool" for `~/.config/Trovik/org.example.Tool.plist`, with the
    /// switches of the traces. Empty: there are no preferences, nothing is kept and nothing is traced.
    std::string identifier;

    /// Takes the lines of the system log, such as why a device could not be opened. Called on whichever thread has
    /// something to say. Null: they are dropped, and nothing is printed.
    void (*log)(const std::string& line) = nullptr;

    /// Where the timers of win::CallbackTimer_t run, on the program's own event loop. It must outlive the platform.
    /// Null: on the run loop of the thread that makes the platform.
    MainQueue* mainQueue = nullptr;
};

/// All that the library needs of the system, on Linux: libusb, libudev, Boost.Asio and the user's folders, installed
/// for the life of this object. `main` makes one before any other thread uses the library, and destroys it after they
/// have ended. There is one for a process: a second one replaces the first until it is destroyed.
///
/// It starts no thread, opens no descriptor, handles no signal and leaves the terminate handler alone. A script runner,
/// a global queue and an exception handler are not set: nothing of the library but glo's error report asks for one. A
/// program that needs them installs a PlatformScope of its own.
class LinuxPlatform {
  public:
    explicit LinuxPlatform(const LinuxPlatformOptions& options = {});  ///< @plain
    ~LinuxPlatform();                                                  ///< puts back what was installed before
    LinuxPlatform(const LinuxPlatform&) = delete;
    LinuxPlatform& operator=(const LinuxPlatform&) = delete;

  private:
    struct Parts;
    const std::unique_ptr<const Parts> mParts;
};

/// For a thread whose event loop is not the library's: that of a window toolkit, or a plain poll(). The descriptor is
/// readable while the calling thread's run loop may have work in its default mode, where attach notices, calls through
/// message ports and timers are delivered; serveRunLoop() then does that work without waiting for more, and what a
/// call-back throws passes through. The descriptor is the library's and good until the thread ends: it is polled, never
/// read, never closed. One that was never asked for costs nothing.
///
/// A link needs none of this: it blocks, and serves itself alone meanwhile.
/// @throws std::system_error  no descriptor is to be had
/// Any thread, each for itself, while a LinuxPlatform lives.
/// @{
[[nodiscard]] int runLoopDescriptor();
void serveRunLoop();
/// @}

}  // namespace platform
