#include "WIN/WIN_Encoding.hpp"

#include "GLO/GLO_String.hpp"

namespace win {

unsigned int AsciiEncoding() {
    return glo::gcAsciiEncoding;
}
unsigned int Utf8Encoding() {
    return glo::gcUtf8Encoding;
}

}  // namespace win
