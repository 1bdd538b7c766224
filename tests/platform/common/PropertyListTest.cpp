#include "platform/PropertyList.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <tuple>

namespace platform {
namespace {

using List = PropertyList;

const List kEverything{List::Dictionary{
    {" key & <tag> ", {true}},
    {"array", {List::Array{{false}, {std::string("x")}, {List::Array{}}, {List::Dictionary{}}}}},
    {"bytes", {List::Data(1000, 251)}},  // several lines, with all the special digits
    {"date", {List::Date{std::numeric_limits<std::int32_t>::max()}}},
    {"largest", {std::numeric_limits<std::int64_t>::max()}},
    {"no bytes", {List::Data{}}},
    {"real", {-1.0 / 3}},
    {"smallest", {std::numeric_limits<std::int64_t>::min()}},
    {"text", {std::string("  a<&>\"'\n\xC3\xA4 ")}},
    {"", {std::string()}},
}};

std::string Times(int count, const std::string& text) {
    std::string result;
    for (int i = 0; i < count; ++i) result += text;
    return result;
}

std::string Nested(int depth) {
    return "<plist>" + Times(depth, "<array>") + Times(depth, "</array>") + "</plist>";
}

TEST(PropertyList, EveryKindOfValueSurvivesARoundTrip) {
    EXPECT_EQ(parsePropertyList(formatPropertyList(kEverything)), kEverything);
}

TEST(PropertyList, WhatIsNoPropertyListIsRefused) {
    const std::string refused[] = {
        "", "<", "text", "<plist>", "<plist><dict><key>a</key><string>x</dict></plist>",
        "<plist><array><dict></array></dict></plist>",
        // What the parser behind this would abort the process over, or take minutes for.
        std::string("<plist><string>a\0b</string></plist>", 35), "<plist><string>a&#0;b</string></plist>",
        "<plist><string>a&#x00;b</string></plist>", "<plist><string>&#4294967296;</string></plist>",
        "<plist><string>&#-1;</string></plist>", "bplist00" + std::string(100, '\1'),
        "<plist><string>" + Times(1'000'000, "&lt;") + "</string></plist>",
        "<plist><string>" + std::string(4u << 20, 'x') + "</string></plist>",
        // Too deep, or with more than one root. fuzz_property_list hides markup from the count of the depth.
        Nested(257), Nested(1'000'000), "<plist>" + Times(256, "<array>") + "<array/>", "<array/><array/>",
        "<plist>" + Times(300, "</array>") + Times(300, "<array>") + Times(300, "</array>"),
        // What the parser would read as another value, and what equals nothing, so that no check of a save could pass.
        "<real>+-1</real>", "<real>nan</real>", "<real/>", "<integer/>", "<date/>",
        "<date>2001-01-01T00:00:00Z" + std::string(12, ' ') + "</date>", "<data>@@@</data>", "<data>AAE</data>",
        "<data>AA==AAE=</data>", "<data>A===</data>", "<data>AAEC=</data>"};
    for (const auto& bytes : refused) EXPECT_FALSE(parsePropertyList(bytes)) << bytes.substr(0, 60);
    // What the parser would read as another value.
    for (const std::string text : {"9223372036854775808", "-9223372036854775809", "18446744073709551616", "010", "--7",
                                   "", "7<!-- -->x", "4001-01-01T00:00:00Z", "1932-12-13T20:45:51Z", "tomorrow",
                                   "2000-xx-31T00:00:00Z", "2000-02-31T00:00:00Z", "2000-12-31T23:59:60Z"}) {
        EXPECT_FALSE(parsePropertyList("<plist><integer>" + text + "</integer></plist>")) << text;
        EXPECT_FALSE(parsePropertyList("<plist><real>" + text + "x</real></plist>")) << text;
        EXPECT_FALSE(parsePropertyList("<plist><date>" + text + "</date></plist>")) << text;
    }
}

TEST(PropertyList, WhatAPersonMayWriteIsRead) {
    const std::tuple<std::string, List> cases[] = {
        {"<plist><string>&#65;&#x42;</string></plist>", {std::string("AB")}},
        {"<?xml version='1.0'?>\n<!DOCTYPE plist PUBLIC \"-//A//B//C\" \"http://x/\"><plist><true/></plist>", {true}},
        {"<!-- <array> --><plist><string>a<!-- </array> --><![CDATA[<array>]]></string></plist>",
         {std::string("a<array>")}},
        {"<plist><integer> -12 </integer></plist>", {std::int64_t{-12}}},
        {"<plist><real> +1.5 </real></plist>", {1.5}},
        {"<plist><date>2000-02-29T23:59:59Z</date></plist>", {List::Date{-306 * 86400 - 1}}},
        {"<plist><data> AAE\n CAw Q=\n</data></plist>", {List::Data{0, 1, 2, 3, 4}}},
    };
    for (const auto& [xml, list] : cases) EXPECT_EQ(parsePropertyList(xml), list) << xml;
    EXPECT_TRUE(parsePropertyList(Nested(256)));
}

}  // namespace
}  // namespace platform
