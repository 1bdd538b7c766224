#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

/// A text from outside (a device's name, a process's) as a part of one log line: valid UTF-8 without a line break or
/// anything else that acts on a terminal or hides. Such characters, and bytes that are no UTF-8, become "\x0A", byte by
/// byte in hexadecimal; what is too long is cut and ends with "…".
/// @param longest  in bytes, the ending aside
/// Any thread.
std::string oneLine(std::string_view text, std::size_t longest = 200);

}  // namespace platform
