#pragma once

#include "GLO/GLO_CallStack.hpp"

#include <string>

namespace win {

/// The calling thread's stack, as glo::CallStack() tells it: the exceptions, a layer below, capture stacks themselves.
/// Any thread.
[[nodiscard]] inline std::wstring StackTrace() {
    return glo::CallStack();
}

}  // namespace win
