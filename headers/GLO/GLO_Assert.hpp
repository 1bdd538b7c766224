#pragma once

namespace glo {

/// What a failed assertion does: announces a glo::Assert_t, adds "\nFile: <file> Line: <line>" to the black box and
/// executes the processor's undefined-instruction trap. Nothing is thrown, whatever fails on the way, and nothing is
/// cleaned up. Any thread.
[[noreturn]] void AssertFailed(const char* file, unsigned short line) noexcept;

/// Stops the process when the condition does not hold. For mistakes of this program only, never for what a device, a
/// file or a user hands in.
/// @param file  source path of the check ("libs/IOL/IOL_Link"), a string literal
/// Any thread.
inline void Assert(bool condition, const char* file, unsigned short line) {
    if (!condition) [[unlikely]]
        AssertFailed(file, line);
}

}  // namespace glo
