#pragma once

#include <string>

namespace platform {

/// What no exception gets past (the body of a thread, a call-back, a block of a queue) says one of two lines to the
/// system log: "Exception thrown at %s, %d; caught at %s, %d\n" of an exception that knows where it was thrown, and
/// "Unknown exception caught at %s, %d\n" of any other. Call it inside a catch block; the caller then goes on.
/// @param file, line  the catcher's own position
/// Never throws. Any thread.
void logCaughtException(const char* file, int line) noexcept;

/// Runs a block that nothing leaves.
/// @param file, line  the caller's own position
template <typename Block>
void runGuarded(const Block& block, const char* file, int line) noexcept {
    try {
        block();
    } catch (...) {
        logCaughtException(file, line);
    }
}

/// The same line, without its end, for a boundary that has a log of its own. Throws only for want of memory.
std::string caughtException(const char* file, int line);

/// Tells where the exception that is being handled was thrown.
/// @return false when it does not know, with both arguments unchanged
using RaiseSiteReader = bool (*)(std::string& file, int& line);

/// The exceptions that know it belong to a row above this one, which says here how to ask them. Before any thread.
void setRaiseSiteReader(RaiseSiteReader reader) noexcept;

}  // namespace platform
