#include "GLO/GLO_HexValueDump.hpp"

#include <cstddef>
#include <ostream>
#include <string>

#include "GLO/GLO_String.hpp"

namespace glo {
namespace {

constexpr std::size_t gcBytesPerRow = 16;

void AppendHex(std::wstring& row, std::size_t value, int digits) {
    static constexpr wchar_t gcDigits[] = L"0123456789abcdef";
    // An offset of more than 16 bits takes as many digits as it needs.
    while (digits < 16 && (value >> (4 * digits)) != 0) ++digits;
    while (digits-- > 0) row += gcDigits[(value >> (4 * digits)) & 0xF];
}

}  // namespace

void HexValueDump(const unsigned char* begin, const unsigned char* end, std::wostream& stream, bool withTextColumn) {
    const auto size = static_cast<std::size_t>(end - begin);
    for (std::size_t offset = 0; offset < size; offset += gcBytesPerRow) {
        std::wstring row;
        std::wstring text;
        AppendHex(row, offset, 4);
        row += L": ";
        for (std::size_t i = offset; i < offset + gcBytesPerRow; ++i) {
            if (i < size) {
                AppendHex(row, begin[i], 2);
                row += L' ';
                text += IsPrintable(begin[i], gcAsciiEncoding) ? static_cast<wchar_t>(begin[i]) : L'.';
            } else {
                row += L"   ";
            }
        }
        if (!withTextColumn) text.clear();
        stream << row << L"  " << text << L"\n";
    }
    if (withTextColumn && size % gcBytesPerRow == 0) stream << L"  \n";
}

}  // namespace glo
