#include "platform/common/OneLine.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace platform {
namespace {

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

/// Breaks a line, acts on a terminal, is invisible, or turns the direction of what follows round.
bool isHarmful(std::uint32_t character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0) || character == 0x061C ||
           (character >= 0x200B && character <= 0x200F) || (character >= 0x2028 && character <= 0x202E) ||
           (character >= 0x2060 && character <= 0x206F) || character == 0xFEFF;
}

/// How many bytes the character at the start of the text has; 0 where it is no valid UTF-8, or harmful.
std::size_t lengthOfCharacter(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    const std::size_t length = first < 0x80 ? 1 : first < 0xC0 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (length == 0 || first > 0xF4 || text.size() < length) return 0;
    if (!std::ranges::all_of(text.substr(1, length - 1), isContinuation)) return 0;
    std::uint32_t character = length == 1 ? first : first & (0x7FU >> length);
    for (const char byte : text.substr(1, length - 1))
        character = character << 6 | (static_cast<unsigned>(byte) & 0x3F);
    constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};  // by length; less is an overlong form
    const bool isSurrogate = character >= 0xD800 && character < 0xE000;
    if (character < kSmallest[length] || character > 0x10FFFF || isSurrogate || isHarmful(character)) return 0;
    return length;
}

}  // namespace

std::string oneLine(std::string_view text, std::size_t longest) {
    std::string line;
    while (!text.empty()) {
        const std::size_t length = lengthOfCharacter(text);
        char escape[8] = {};
        if (length == 0) std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned char>(text.front()));
        const std::string_view next = length == 0 ? std::string_view(escape) : text.substr(0, length);
        if (line.size() + next.size() > longest) return line + "…";
        line += next;
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return line;
}

}  // namespace platform
