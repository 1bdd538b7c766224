#include "GLO/GLO_HexValueDump.hpp"
#include "GLO/GLO_String.hpp"
#include "GLO/GLO_Time.hpp"
#include "UTL/UTL_HexDump.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <sstream>
#include <tuple>
#include <utility>
#include <vector>

namespace {

std::wstring Dump(const std::string& bytes, bool withText) {
    std::wostringstream stream;
    const auto* begin = reinterpret_cast<const unsigned char*>(bytes.data());
    glo::HexValueDump(begin, begin + bytes.size(), stream, withText);
    return stream.str();
}

}  // namespace

TEST(CodePage, Utf8ReadsWhatIsWellFormedAndReplacesWhatIsNot) {
    const std::pair<std::string, std::wstring> cases[] = {
        {std::string("a\0\x7F", 3), std::wstring(L"a\0\x7F", 3)},
        {"\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF", L"\x80\x7FF\x800\xFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", L"\x10000\x10FFFF"},
        {"\xC3", L"\xFFFD"},                                // cut
        {"\xE2\x82z", L"\xFFFDz"},                          // cut by another character
        {"\x80", L"\xFFFD"},                                // no lead
        {"\xC0\x80", L"\xFFFD\xFFFD"},                      // overlong
        {"\xED\xA0\x80", L"\xFFFD\xFFFD\xFFFD"},            // surrogate
        {"\xF4\x90\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD"},  // beyond Unicode
    };
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(glo::wstring(bytes, glo::gcUtf8Encoding), text);
        if (text.find(L'\xFFFD') != std::wstring::npos) continue;
        EXPECT_EQ(glo::string(text, glo::gcUtf8Encoding), bytes);
    }
    EXPECT_EQ(glo::string(std::wstring{0xD800, 0x110000, static_cast<wchar_t>(-1)}, glo::gcUtf8Encoding),
              "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(CodePage, Windows1252HasCharactersOfItsOwnAndOthersBecomeQuestionMarks) {
    EXPECT_EQ(glo::gcErrStdEncoding(), 0x0500U);
    EXPECT_EQ(glo::wstring("\x80\x9F\xA0\xFF", 0x0500), L"\x20AC\x178\xA0\xFF");
    EXPECT_EQ(glo::string(L"\x20AC\x4E00\x80\x1F600", 0x0500), "\x80???");
    EXPECT_EQ(glo::string(L"a\xE9", glo::gcAsciiEncoding), "a?");
    EXPECT_EQ(glo::wstring("a\xE9", glo::gcAsciiEncoding), L"a\xFFFD");
}

TEST(HexDump, LaysOutRowsAndAddsALineAfterAFullOneWhereFramesAreDumped) {
    const std::string sixteen = "0123456789a \x1F~\x7F\x80";
    const std::string row = "0000: 30 31 32 33 34 35 36 37 38 39 61 20 1f 7e 7f 80   ";
    const std::string second = "0010: ae 00 " + std::string(3 * 14, ' ') + "  ..\n";
    const std::tuple<std::string, bool, std::string, std::string> cases[] = {
        {"", true, "", "  \n"},
        {sixteen, true, row + "0123456789a .~..\n", "  \n"},
        {sixteen, false, row + "\n", ""},
        {sixteen + std::string("\xAE\0", 2), true, row + "0123456789a .~..\n" + second, ""}};
    for (const auto& [bytes, withText, rows, extraLine] : cases) {
        EXPECT_EQ(Dump(bytes, withText), glo::wstring(rows + extraLine, glo::gcAsciiEncoding));
        if (!withText) continue;
        EXPECT_EQ(utl::HexDump(std::vector<unsigned char>(bytes.begin(), bytes.end())), rows);
    }
    EXPECT_NE(utl::HexDump(std::vector<unsigned char>(0x10001)).find("\n10000: 00 "), std::string::npos);
}

TEST(Time, CountsFromTheGpsEpochAndShowsLocalTime) {
    ASSERT_EQ(::setenv("TZ", "XXX-01:30", 1), 0);
    ::tzset();
    const glo::Time_t time = glo::Time_t::GpsEpoch() + 86399;
    EXPECT_EQ(time.LocalText(glo::Time_t::DateFlag_t::WithDate), L"1980-01-07 01:29:59");
}
