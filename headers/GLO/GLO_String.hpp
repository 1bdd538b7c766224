#pragma once

#include <string>
#include <string_view>

namespace glo {

/// Code-page numbers. They are the platform's string encoding numbers, not the Windows ones; every code page that this
/// library takes or gives is one of these. An unknown number is treated as ASCII.
/// @{
inline constexpr unsigned int gcWindows1252Encoding = 0x0500;
inline constexpr unsigned int gcAsciiEncoding = 0x0600;
inline constexpr unsigned int gcUtf8Encoding = 0x08000100;
/// @}

/// The encoding number of a Windows code page (1252, 20127, 65001); the all-ones number for one that is not known.
/// Any thread.
[[nodiscard]] unsigned int EncodingOfWindowsCodepage(unsigned int windowsCodepage);

/// The code page of exception messages: that of Windows-1252. Any thread.
[[nodiscard]] unsigned int gcErrStdEncoding();

/// Text in a code page. What the code page lacks becomes "?" (in UTF-8, what is no Unicode character becomes U+FFFD).
/// Never fails. Any thread.
[[nodiscard]] std::string string(std::wstring_view text, unsigned int codePage);

/// Bytes of a code page as text. What is malformed becomes U+FFFD: in UTF-8 that holds for cut, overlong and surrogate
/// sequences. Never fails. Any thread.
[[nodiscard]] std::wstring wstring(std::string_view bytes, unsigned int codePage);

/// True when the byte is a printable character of the code page by itself. Any thread.
[[nodiscard]] bool IsPrintable(unsigned char byte, unsigned int codePage);

/// Compares without regard to the case of the letters A to Z. Any thread.
[[nodiscard]] bool EqualNoCase(std::wstring_view a, std::wstring_view b);

}  // namespace glo
