#include "app/Util/Logging/DDTTYPalette.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <strings.h>

namespace {

constexpr std::array<int, 3> kStandardColors[] = {{0, 0, 0},       {205, 0, 0},   {0, 205, 0},   {205, 205, 0},
                                                  {0, 0, 238},     {205, 0, 205}, {0, 205, 205}, {229, 229, 229},
                                                  {127, 127, 127}, {255, 0, 0},   {0, 255, 0},   {255, 255, 0},
                                                  {92, 92, 255},   {255, 0, 255}, {0, 255, 255}, {255, 255, 255}};
constexpr int kCubeLevels[6] = {0, 95, 135, 175, 215, 255};

bool containsIgnoringCase(std::string_view text, std::string_view part) {
    const auto same = [](char a, char b) { return (a | 0x20) == (b | 0x20); };
    return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

std::string directCode(const char* kind, const DDTTYColor& color) {
    const auto [red, green, blue] = color.bytes();
    char text[40];
    std::snprintf(text, sizeof text, "\033[%s%d,%d,%d;", kind, red, green, blue);
    return text;
}

}  // namespace

std::array<int, 3> DDTTYColor::bytes() const {
    const auto byte = [](double component) { return static_cast<int>(std::fmin(std::fmax(component, 0), 1) * 255); };
    return {byte(red), byte(green), byte(blue)};
}

DDTTYPalette DDTTYPalette::fromEnvironment() {
    if (const char* term = std::getenv("TERM")) {
        if (!containsIgnoringCase(term, "color")) return none();
        return containsIgnoringCase(term, "256") ? with256Colors() : with16Colors();
    }
    const char* console = std::getenv("XcodeColors");
    return console && std::string_view(console) == "YES" ? withDirectColors() : none();
}

DDTTYPalette DDTTYPalette::with16Colors() {
    DDTTYPalette palette;
    palette.mKind = Kind::Table;
    for (unsigned i = 0; i < 16; ++i) {
        const std::string bright = i < 8 ? "" : "1;";
        palette.mColors.push_back(kStandardColors[i]);
        palette.mForegrounds.push_back(bright + "3" + std::to_string(i % 8) + "m");
        palette.mBackgrounds.push_back(bright + "4" + std::to_string(i % 8) + "m");
    }
    return palette;
}

DDTTYPalette DDTTYPalette::with256Colors() {
    DDTTYPalette palette;
    palette.mKind = Kind::Table;
    const auto add = [&palette](const std::array<int, 3>& color) {
        const std::string index = std::to_string(palette.mColors.size());
        palette.mColors.push_back(color);
        palette.mForegrounds.push_back("38;5;" + index + "m");
        palette.mBackgrounds.push_back("48;5;" + index + "m");
    };
    for (const auto& color : kStandardColors) add(color);
    for (const int red : kCubeLevels)
        for (const int green : kCubeLevels)
            for (const int blue : kCubeLevels) add({red, green, blue});
    for (int gray = 8; gray <= 238; gray += 10) add({gray, gray, gray});
    return palette;
}

DDTTYPalette DDTTYPalette::withDirectColors() {
    DDTTYPalette palette;
    palette.mKind = Kind::Direct;
    return palette;
}

std::size_t DDTTYPalette::codeIndex(const DDTTYColor& color) const {
    // The squares of whole components are exact, so that equal distances are told from nearly equal ones.
    const auto distance = [&](const std::array<int, 3>& entry) {
        const double r = color.red * 255 - entry[0], g = color.green * 255 - entry[1], b = color.blue * 255 - entry[2];
        return r * r + g * g + b * b;
    };
    const auto nearest = std::ranges::min_element(mColors, {}, distance);
    return static_cast<std::size_t>(nearest == mColors.end() ? 0 : nearest - mColors.begin());
}

std::string DDTTYPalette::foregroundCode(const DDTTYColor& color) const {
    switch (mKind) {
        case Kind::None:
            return {};
        case Kind::Table:
            return "\033[" + mForegrounds[codeIndex(color)];
        case Kind::Direct:
            return directCode("fg", color);
    }
    return {};
}

std::string DDTTYPalette::backgroundCode(const DDTTYColor& color) const {
    switch (mKind) {
        case Kind::None:
            return {};
        case Kind::Table:
            return "\033[" + mBackgrounds[codeIndex(color)];
        case Kind::Direct:
            return directCode("bg", color);
    }
    return {};
}

std::string DDTTYPalette::resetCode() const {
    switch (mKind) {
        case Kind::None:
            return {};
        case Kind::Table:
            return "\033[0m";
        case Kind::Direct:
            return "\033[;";
    }
    return {};
}
