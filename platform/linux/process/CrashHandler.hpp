#pragma once

#include <string>

namespace platform {

/// From now on SIGILL, SIGSEGV, SIGABRT, SIGBUS and SIGFPE write a crash report before they end the process as they
/// always do: the version, the signal, the text that the program publishes through its data symbol
/// "__crashreporter_info__", and the stack of the thread that crashed. The report goes to standard error and to the
/// file "<prefix>-<unix seconds>-<process id>.crash", readable by the user alone. The handler does only what is allowed
/// in one; of several threads that crash at once the first writes and the others wait for the end. Of the reports that
/// lie there already the newest ten stay.
/// @param filePrefix   folder and beginning of the file's name; empty writes no file. Cut at 3900 bytes.
/// @param versionText  first line of the report. Cut at 500 bytes.
/// Once, at start-up, on the main thread: only that thread gets a stack of its own for the handler, which a report on
/// an exhausted stack needs.
void installCrashHandler(const std::string& filePrefix, const std::string& versionText);

}  // namespace platform
