#pragma once

#include "GLO/GLO_String.hpp"

namespace win {

/// Code-page numbers for glo::string, glo::wstring and the binary streams. Any thread.
/// @{
constexpr unsigned int AsciiEncoding() {
    return glo::gcAsciiEncoding;
}
constexpr unsigned int Utf8Encoding() {
    return glo::gcUtf8Encoding;
}
/// @}

}  // namespace win
