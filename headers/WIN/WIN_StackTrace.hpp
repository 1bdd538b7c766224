#pragma once

#include <string>

namespace win {

/// The calling thread's stack, one frame a line, C++ names demangled. At most 1024 frames. Any thread.
std::wstring StackTrace();

}  // namespace win
