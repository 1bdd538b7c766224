#pragma once

#include <string>

namespace glo {

/// The calling thread's stack, one frame a line, C++ names demangled. At most 1024 frames. Any thread.
std::wstring CallStack();

/// One line of a stack with the mangled name in it, from the first "_" to the last "+", made readable; the line itself
/// where there is none or it can't be demangled. Any thread.
std::string DemangledStackLine(const std::string& line);

}  // namespace glo
