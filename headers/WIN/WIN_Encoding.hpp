#pragma once

namespace win {

/// Code-page numbers for glo::string, glo::wstring and the binary streams. Any thread.
unsigned int AsciiEncoding();
unsigned int Utf8Encoding();

}  // namespace win
