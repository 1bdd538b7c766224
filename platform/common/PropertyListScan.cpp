#include "platform/common/PropertyListScan.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <string>
#include <system_error>

namespace platform {
namespace {

constexpr std::string_view kSpace = " \t\r\n";
constexpr std::uint64_t kMostMoved = std::uint64_t{1} << 36;  // bytes; a second or two

std::string_view trimmed(std::string_view text) {
    const auto first = std::min(text.find_first_not_of(kSpace), text.size());
    return text.substr(first, text.find_last_not_of(kSpace) + 1 - first);
}

/// The parser aborts the process over a text that holds a zero character, written as such or as a reference.
bool hasOnlySafeCharacters(std::string_view xml) {
    if (xml.find('\0') != std::string_view::npos) return false;
    constexpr std::uint32_t kLastCharacter = 0x10FFFF;
    for (auto at = xml.find("&#"); at != std::string_view::npos; at = xml.find("&#", at)) {
        at += 2;
        const bool isHexadecimal = at < xml.size() && xml[at] == 'x';
        if (isHexadecimal) ++at;
        std::uint32_t value = 0;
        const auto [end, error] =
            std::from_chars(xml.data() + at, xml.data() + xml.size(), value, isHexadecimal ? 16 : 10);
        if (error != std::errc{} || value == 0 || value > kLastCharacter) return false;
        if (end == xml.data() + xml.size() || *end != ';') return false;
    }
    return true;
}

/// True for a moment that exists, within 32 bits of seconds on both sides of 2001.
bool isDate(std::string_view text) {
    constexpr std::string_view kFirst = "1932-12-13T20:45:52Z";
    constexpr std::string_view kLast = "2069-01-19T03:14:07Z";
    constexpr const char* kFormat = "%Y-%m-%dT%H:%M:%SZ";
    if (text.size() != kFirst.size() || text < kFirst || text > kLast) return false;
    std::tm time{};
    if (!strptime(std::string(text).c_str(), kFormat, &time)) return false;
    timegm(&time);  // makes a March day of the 31st of February
    char again[kFirst.size() + 1];
    return std::string_view(again, std::strftime(again, sizeof again, kFormat, &time)) == text;
}

/// True for whole groups of four base64 digits, the last one padded, with white space anywhere.
bool isData(std::string_view text) {
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::size_t digits = 0;
    std::size_t padding = 0;
    for (const char c : text) {
        if (kSpace.find(c) != std::string_view::npos) continue;
        const bool isPadding = c == '=';
        if (!isPadding && (padding > 0 || kDigits.find(c) == std::string_view::npos)) return false;
        ++(isPadding ? padding : digits);
    }
    return padding <= 2 && (digits + padding) % 4 == 0;
}

/// True when the parser reads the element's text as what it says. It reads any text as a number, a date or data, and
/// integers of any size and base into 64 bits.
bool isKept(std::string_view element, std::string_view text) {
    if (element == "date") return isDate(text);  // untrimmed: the parser can't read one with much space behind it
    if (element == "data") return isData(text);
    text = trimmed(text);
    if (element == "integer") {
        std::int64_t value = 0;
        std::from_chars(text.data(), text.data() + text.size(), value);
        return std::to_string(value) == text;
    }
    if (element == "real") {
        if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);  // of an infinity
        double value = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        // Nothing equals a NaN, so that what is written could not be compared with what is read back.
        return error == std::errc{} && end == text.data() + text.size() && !std::isnan(value);
    }
    return true;
}

}  // namespace

std::optional<int> scanPropertyList(std::string_view xml) {
    if (!hasOnlySafeCharacters(xml)) return std::nullopt;
    int depth = 0;
    int deepest = 0;
    std::size_t textBegin = 0;  // behind the last tag; comments and sections are part of a text
    std::uint64_t moved = 0;    // the parser moves the rest of a text for each entity in it
    for (std::size_t at = xml.find('<'); at != std::string_view::npos; at = xml.find('<', at)) {
        const std::string_view rest = xml.substr(at);
        const bool isComment = rest.starts_with("<!--");
        if (isComment || rest.starts_with("<![CDATA[")) {
            at = isComment ? xml.find("-->", at + 4) : xml.find("]]>", at + 9);
            if (at == std::string_view::npos) return std::nullopt;
            continue;
        }
        std::string_view markup = rest.substr(0, rest.find('>'));
        // Behind an even number of quotes the ">" stands outside of them.
        if (markup.size() == rest.size() || std::ranges::count(markup, '"') % 2 != 0) return std::nullopt;
        const std::string_view text = xml.substr(textBegin, at - textBegin);
        at += markup.size() + 1;
        if (markup.starts_with("<?")) {
            if (!markup.ends_with('?')) return std::nullopt;
            continue;
        }
        if (markup.starts_with("<!")) {
            if (!markup.starts_with("<!DOCTYPE") || markup.find('[') != std::string_view::npos) return std::nullopt;
            continue;
        }
        textBegin = at;
        moved += static_cast<std::uint64_t>(std::ranges::count(text, '&')) * text.size();
        if (moved > kMostMoved) return std::nullopt;

        const bool isClosing = markup.starts_with("</");
        const bool isEmpty = markup.ends_with('/');
        markup.remove_prefix(isClosing ? 2 : 1);
        const std::string_view name = markup.substr(0, markup.find_first_of(" \t\r\n/"));
        if (name == "array" || name == "dict") {
            if (isClosing && depth-- == 0) return std::nullopt;
            // A list has one root. The parser would put a second one into the first where that is empty.
            if (!isClosing && depth == 0 && deepest > 0) return std::nullopt;
            if (!isClosing) deepest = std::max(deepest, depth + 1);
            if (!isClosing && !isEmpty) ++depth;
        } else if (isClosing ? !isKept(name, text) : isEmpty && !isKept(name, {})) {
            return std::nullopt;
        }
    }
    return deepest;
}

}  // namespace platform
