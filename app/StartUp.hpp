#pragma once

#include <QApplication>

#include <memory>
#include <system_error>

/// What a program of the tool does before its window is there, and how it refuses to start. Class operations; main
/// thread only.
class StartUp {
  public:
    StartUp() = delete;

    static constexpr int kNoDisplay = 1;  ///< exit statuses of a refused start
    static constexpr int kNoThread = 3;

    /// Opens /dev/null for each of the descriptors 0 to 2 that the program was started without: the next file, perhaps
    /// a log, would get that number, and every line for standard error. First thing in main.
    static void openStandardStreams();

    /// Makes the application object and the thread that the toolkit draws with. Without a display the toolkit would
    /// abort, without one of its threads wait for ever: here, and for the threads until windowIsShown, that ends the
    /// process with one line, and kNoDisplay or kNoThread. What else the toolkit has to say comes out then, except a
    /// fatal message: that comes at once, and the toolkit aborts.
    static std::unique_ptr<QApplication> makeApplication(int& argc, char** argv);
    static void windowIsShown();

    /// Runs what starts a thread that a reset needs. Where none is to be had the process ends with kNoThread and one
    /// line: there is no reset without it.
    template <typename Action>
    static auto withThread(Action action) {
        try {
            return action();
        } catch (const std::system_error& error) {
            refuseWithout(error);
        }
    }

  private:
    [[noreturn]] static void refuseWithout(const std::system_error& thread);
};
