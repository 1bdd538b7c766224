#include "platform/PropertyList.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <random>

namespace platform {
namespace {

using List = PropertyList;

const List kEverything{List::Dictionary{
    {" key & <tag> ", {true}},
    {"array", {List::Array{{false}, {std::string("x")}, {List::Array{}}, {List::Dictionary{}}}}},
    {"bytes", {List::Data{0, 1, 254, 255}}},
    {"date", {List::Date{700000000}}},
    {"largest", {std::numeric_limits<std::int64_t>::max()}},
    {"no bytes", {List::Data{}}},
    {"real", {-1.0 / 3}},
    {"smallest", {std::numeric_limits<std::int64_t>::min()}},
    {"text", {std::string("  a<&>\"'\n\xC3\xA4 ")}},
    {"", {std::string()}},
}};

std::string Nested(int depth) {
    std::string xml = "<plist>";
    for (int i = 0; i < depth; ++i) xml += "<array>";
    for (int i = 0; i < depth; ++i) xml += "</array>";
    return xml + "</plist>";
}

TEST(PropertyList, EveryKindOfValueSurvivesARoundTrip) {
    EXPECT_EQ(parsePropertyList(formatPropertyList(kEverything)), kEverything);
}

TEST(PropertyList, WhatIsNoPropertyListIsRefused) {
    const std::string refused[] = {
        "", "<", "text", "<plist>", "<plist><dict><key>a</key><string>x</dict></plist>",
        "<plist><array><dict></array></dict></plist>",
        // What the parser behind this would abort the process over, or expand or nest without bound.
        std::string("<plist><string>a\0b</string></plist>", 35), "<plist><string>a&#0;b</string></plist>",
        "<plist><string>a&#x00;b</string></plist>", "<plist><string>&#4294967296;</string></plist>",
        "<plist><string>&#-1;</string></plist>", Nested(257), Nested(1'000'000),
        "<plist><!-- " + Nested(1) + "--><array/>" + Nested(100'000), "bplist00" + std::string(100, '\1'),
        "<plist><string>" + std::string(17u << 20, 'x') + "</string></plist>"};
    for (const auto& bytes : refused) EXPECT_FALSE(parsePropertyList(bytes)) << bytes.substr(0, 60);
    EXPECT_TRUE(parsePropertyList(Nested(256)));
    EXPECT_EQ(parsePropertyList("<plist><string>&#65;&#x42;</string></plist>"), List{std::string("AB")});
}

TEST(PropertyList, DamageAnywhereIsReadOrRefusedAndNothingElse) {
    const std::string whole = formatPropertyList(kEverything);
    std::mt19937 random(1);
    int readable = 0;
    for (int round = 0; round < 5000; ++round) {
        std::string bytes = whole;
        for (auto changes = random() % 4 + 1; changes > 0; --changes) {
            // A piece of the list, a random byte or nothing takes the place of some bytes; now and then of all that
            // follow.
            const std::string piece = random() % 2 ? whole.substr(random() % whole.size(), random() % 30)
                                                   : std::string(random() % 2, static_cast<char>(random() % 256));
            bytes.replace(random() % (bytes.size() + 1), random() % 8 ? random() % 20 : std::string::npos, piece);
        }
        const auto list = parsePropertyList(bytes);
        if (list && parsePropertyList(formatPropertyList(*list))) ++readable;
    }
    EXPECT_GT(readable, 100);
}

}  // namespace
}  // namespace platform
