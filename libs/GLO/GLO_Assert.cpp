#include "GLO/GLO_Assert.hpp"

#include "GLO/GLO_Blackbox.hpp"
#include "GLO/GLO_Exception.hpp"

#include <string>

namespace glo {

void AssertFailed(const char* file, unsigned short line) noexcept {
    // Made for its announcement only: it is never thrown, and it is never deleted because nothing is cleaned up.
    static_cast<void>(new Assert_t(file, line));  // NOLINT(bugprone-throw-keyword-missing)
    Blackbox().Add("\nFile: " + std::string(file) + " Line: " + std::to_string(line));
    __builtin_trap();
}

}  // namespace glo
