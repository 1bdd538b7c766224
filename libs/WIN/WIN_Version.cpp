#include "WIN/WIN_Version.hpp"

#include <boost/tokenizer.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <locale>
#include <sstream>
#include <string_view>

namespace win {
namespace {

/// The platform's conversion of a text to an integer: blanks, a sign, digits; what doesn't fit stays at the limit.
int IntValue(std::string_view text) {
    constexpr std::int64_t gcLimit = std::numeric_limits<int>::max();
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+')) text.remove_prefix(1);
    std::int64_t value = 0;
    for (const char character : text) {
        if (character < '0' || character > '9') break;
        value = std::min(value * 10 + (character - '0'), isNegative ? gcLimit + 1 : gcLimit);
    }
    return static_cast<int>(isNegative ? -value : value);
}

}  // namespace

Version_t::Version_t(const std::wstring& text) {
    using Tokenizer_t = boost::tokenizer<boost::char_separator<wchar_t>, std::wstring::const_iterator, std::wstring>;
    const std::array<std::uint16_t*, 4> parts{&mMajor, &mMinor, &mThird, &mFourth};
    std::size_t count = 0;
    for (const std::wstring& piece : Tokenizer_t(text, boost::char_separator<wchar_t>(L"."))) {
        std::wistringstream stream(piece);
        stream.imbue(std::locale::classic());
        std::uint16_t number = 0;
        if (!(stream >> number)) continue;
        *parts[count++] = number;
        if (count == parts.size()) break;
    }
}

Version_t StringToVersion(const std::string& text) {
    std::array<std::uint16_t, 4> parts{};
    std::string_view rest = text;
    for (auto& part : parts) {
        const auto dot = std::min(rest.find('.'), rest.size());
        part = static_cast<std::uint16_t>(IntValue(rest.substr(0, dot)));
        rest.remove_prefix(std::min(dot + 1, rest.size()));
    }
    return {parts[0], parts[1], parts[2], parts[3]};
}

std::wstring Version_t::Str() const {
    return MajorMinorString() + L'.' + std::to_wstring(mThird) + L'.' + std::to_wstring(mFourth);
}

std::wstring Version_t::MajorMinorString() const {
    return std::to_wstring(mMajor) + L'.' + std::to_wstring(mMinor);
}

std::wstring Version_t::DeviceString() const {
    return std::to_wstring(mMajor) + (mMinor < 10 ? L".0" : L".") + std::to_wstring(mMinor);
}

}  // namespace win
