#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace platform {

/// What a report on the end of the process shows: stacks, and the text that the program publishes. Any thread.

/// The calling thread's stack from the caller on, one frame a line, innermost first, C++ names demangled.
[[nodiscard]] std::vector<std::string> callStackSymbols(std::size_t mostFrames);

/// A line of a stack with the mangled name in it, from the first "_" to the last "+", made readable; the line itself
/// where there is none or it can't be demangled.
[[nodiscard]] std::string demangledStackLine(const std::string& line);

/// A mangled name as people write it; the name itself where it is none.
[[nodiscard]] std::string demangled(const std::string& name);

/// The data symbol "__crashreporter_info__", through which a program publishes the text of its black box; null in a
/// program that exports none.
[[nodiscard]] const char** crashReporterInfo() noexcept;

}  // namespace platform
