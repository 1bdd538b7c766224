#include "WIN/WIN_StackTrace.hpp"

#include "GLO/GLO_CallStack.hpp"

namespace win {

// The exceptions, a layer below, capture stacks themselves.
std::wstring StackTrace() {
    return glo::CallStack();
}

}  // namespace win
