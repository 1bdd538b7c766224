#include "GLO/GLO_HexValueDump.hpp"

#include "GLO/GLO_String.hpp"

#include <algorithm>
#include <ostream>

namespace glo {
namespace {

constexpr std::size_t gcRowLength = 16;
constexpr char gcDigits[] = "0123456789abcdef";

}  // namespace

std::string HexRows(std::span<const unsigned char> bytes, bool withTextColumn) {
    // Offset and ": ", three characters a byte, two spaces, one character a byte, line end.
    constexpr std::size_t gcRowText = 6 + 4 * gcRowLength + 3;
    std::string text;
    text.reserve((bytes.size() + gcRowLength - 1) / gcRowLength * gcRowText);
    for (std::size_t offset = 0; offset < bytes.size(); offset += gcRowLength) {
        const auto row = bytes.subspan(offset, std::min(gcRowLength, bytes.size() - offset));
        int shift = 12;  // four digits at least; an offset past them keeps all it has
        while (offset >> shift > 0xF) shift += 4;
        for (; shift >= 0; shift -= 4) text += gcDigits[(offset >> shift) & 0xF];
        text += ": ";
        for (const unsigned char byte : row) {
            text += gcDigits[byte >> 4];
            text += gcDigits[byte & 0xF];
            text += ' ';
        }
        text.append(3 * (gcRowLength - row.size()) + 2, ' ');
        for (const unsigned char byte : row)
            if (withTextColumn) text += IsPrintable(byte, gcAsciiEncoding) ? static_cast<char>(byte) : '.';
        text += '\n';
    }
    return text;
}

void HexValueDump(const unsigned char* begin, const unsigned char* end, std::wostream& stream, bool withTextColumn) {
    const std::span<const unsigned char> bytes(begin, end);
    stream << wstring(HexRows(bytes, withTextColumn), gcAsciiEncoding);
    if (withTextColumn && bytes.size() % gcRowLength == 0) stream << L"  \n";
}

}  // namespace glo
