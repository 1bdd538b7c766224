#pragma once

#include <string>

namespace glo {

/// The calling thread's stack, one frame a line, C++ names demangled. At most 1024 frames. Any thread.
[[nodiscard]] std::wstring CallStack();

}  // namespace glo
