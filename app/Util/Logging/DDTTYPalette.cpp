#include "app/Util/Logging/DDTTYPalette.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
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
    DDTTYPalette palette(Kind::Table16);
    palette.mColors.assign(std::begin(kStandardColors), std::end(kStandardColors));
    return palette;
}

DDTTYPalette DDTTYPalette::with256Colors() {
    DDTTYPalette palette = with16Colors();
    palette.mKind = Kind::Table256;
    for (const int red : kCubeLevels)
        for (const int green : kCubeLevels)
            for (const int blue : kCubeLevels) palette.mColors.push_back({red, green, blue});
    for (int gray = 8; gray <= 238; gray += 10) palette.mColors.push_back({gray, gray, gray});
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

std::string DDTTYPalette::code(Layer layer, const DDTTYColor& color) const {
    const bool front = layer == Layer::Foreground;
    const std::size_t index = codeIndex(color);
    const auto [red, green, blue] = color.bytes();
    char text[48] = "";
    switch (mKind) {
        case Kind::None:
            break;
        case Kind::Table16:
            std::snprintf(text, sizeof text, "\033[%s%d%zum", index < 8 ? "" : "1;", front ? 3 : 4, index % 8);
            break;
        case Kind::Table256:
            std::snprintf(text, sizeof text, "\033[%d8;5;%zum", front ? 3 : 4, index);
            break;
        case Kind::Direct:
            std::snprintf(text, sizeof text, "\033[%s%d,%d,%d;", front ? "fg" : "bg", red, green, blue);
            break;
    }
    return text;
}

std::string DDTTYPalette::resetCode() const {
    switch (mKind) {
        case Kind::None:
            return {};
        case Kind::Table16:
        case Kind::Table256:
            return "\033[0m";
        case Kind::Direct:
            return "\033[;";
    }
    return {};
}
