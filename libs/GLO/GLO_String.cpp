#include "GLO/GLO_String.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace glo {
namespace {

constexpr wchar_t gcReplacement = 0xFFFD;

/// Windows-1252 from 0x80 to 0x9F; the five bytes that it leaves open stand for the control characters of their number.
constexpr std::array<wchar_t, 32> gcWindows1252High = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                                       0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                                       0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                                       0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

constexpr bool IsUnicode(std::uint32_t c) {
    return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
}

void AppendUtf8(std::string& bytes, std::uint32_t c) {
    if (!IsUnicode(c)) c = gcReplacement;
    if (c < 0x80) {
        bytes += static_cast<char>(c);
        return;
    }
    const int tail = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr std::uint32_t gcLead[] = {0, 0xC0, 0xE0, 0xF0};
    bytes += static_cast<char>(gcLead[tail] | (c >> (6 * tail)));
    for (int i = tail - 1; i >= 0; --i) bytes += static_cast<char>(0x80 | ((c >> (6 * i)) & 0x3F));
}

/// Takes one character from the front of the bytes; a malformed sequence is taken up to its first impossible byte.
wchar_t TakeUtf8(std::string_view& bytes) {
    const auto lead = static_cast<unsigned char>(bytes.front());
    bytes.remove_prefix(1);
    if (lead < 0x80) return lead;
    if (lead < 0xC2 || lead > 0xF4) return gcReplacement;
    const int tail = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    std::uint32_t c = lead & (0x3FU >> tail);
    for (int i = 0; i < tail; ++i) {
        // The second byte's range excludes overlong forms, surrogates and what lies beyond Unicode.
        unsigned char low = 0x80;
        unsigned char high = 0xBF;
        if (i == 0) {
            if (lead == 0xE0) low = 0xA0;
            if (lead == 0xED) high = 0x9F;
            if (lead == 0xF0) low = 0x90;
            if (lead == 0xF4) high = 0x8F;
        }
        if (bytes.empty()) return gcReplacement;
        const auto byte = static_cast<unsigned char>(bytes.front());
        if (byte < low || byte > high) return gcReplacement;
        c = (c << 6) | (byte & 0x3FU);
        bytes.remove_prefix(1);
    }
    return static_cast<wchar_t>(c);
}

char ToWindows1252(wchar_t c) {
    if ((c >= 0 && c < 0x80) || (c >= 0xA0 && c <= 0xFF)) return static_cast<char>(c);
    const auto* const it = std::ranges::find(gcWindows1252High, c);
    return it == gcWindows1252High.end() ? '?' : static_cast<char>(0x80 + (it - gcWindows1252High.begin()));
}

wchar_t FromWindows1252(unsigned char byte) {
    return byte < 0x80 || byte > 0x9F ? static_cast<wchar_t>(byte) : gcWindows1252High[byte - 0x80U];
}

wchar_t Lower(wchar_t c) {
    return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

}  // namespace

unsigned int EncodingOfWindowsCodepage(unsigned int windowsCodepage) {
    switch (windowsCodepage) {
        case 1252:
            return gcWindows1252Encoding;
        case 20127:
            return gcAsciiEncoding;
        case 65001:
            return gcUtf8Encoding;
        default:
            return ~0U;
    }
}

unsigned int gcErrStdEncoding() {
    static const unsigned int sEncoding = EncodingOfWindowsCodepage(1252);
    return sEncoding;
}

std::string string(std::wstring_view text, unsigned int codePage) {
    std::string bytes;
    bytes.reserve(text.size());
    for (const wchar_t c : text) {
        if (codePage == gcUtf8Encoding)
            AppendUtf8(bytes, static_cast<std::uint32_t>(c));
        else if (codePage == gcWindows1252Encoding)
            bytes += ToWindows1252(c);
        else
            bytes += c >= 0 && c < 0x80 ? static_cast<char>(c) : '?';
    }
    return bytes;
}

std::wstring wstring(std::string_view bytes, unsigned int codePage) {
    std::wstring text;
    text.reserve(bytes.size());
    if (codePage == gcUtf8Encoding) {
        while (!bytes.empty()) text += TakeUtf8(bytes);
        return text;
    }
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (codePage == gcWindows1252Encoding)
            text += FromWindows1252(byte);
        else
            text += byte < 0x80 ? static_cast<wchar_t>(byte) : gcReplacement;
    }
    return text;
}

bool IsPrintable(unsigned char byte, unsigned int codePage) {
    if (byte < 0x80) return byte >= 0x20 && byte != 0x7F;
    if (codePage != gcWindows1252Encoding) return false;
    return byte >= 0xA0 || FromWindows1252(byte) != static_cast<wchar_t>(byte);
}

bool EqualNoCase(std::wstring_view a, std::wstring_view b) {
    return std::ranges::equal(a, b, {}, Lower, Lower);
}

}  // namespace glo
