#pragma once

#include "app/Support/ErrorCatalogue.hpp"

#include <string>
#include <vector>

class UsbTrovikModeIoLink;

/// The lines of the log that stand beside the workflow's own, for whoever reads it without having been there. None
/// holds a line break. Class operations; any thread.
class SupportLog {
  public:
    SupportLog() = delete;

    /// What the tool runs on: a line each for what is given, the toolkit, the display server, the language and the
    /// build. Says also when the log files can't be written. Main thread, after the launch.
    /// @param system  lines about the system, its kernel and its libraries
    static void started(const std::vector<std::string>& system);

    /// A cause that has no other line of its own.
    static void cause(Cause cause);

    /// What the device has said of itself over this link, the first time that there is something to say.
    /// @param device  null where there is no link, and nothing to say
    static void identified(UsbTrovikModeIoLink* device);

    /// Why the tool ends, and whether it leaves a reset unfinished: a device that was opened and is not cleared and
    /// resumed.
    static void ending(const std::string& why, bool isResetUnfinished);
};
