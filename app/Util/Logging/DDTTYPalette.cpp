#include "app/Util/Logging/DDTTYPalette.hpp"

#include <strings.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

constexpr double kFarthest = 100.0;  // farther than any two colours are from each other

constexpr unsigned kStandardColors[16][3] = {{0, 0, 0},       {205, 0, 0},   {0, 205, 0},   {205, 205, 0},
                                             {0, 0, 238},     {205, 0, 205}, {0, 205, 205}, {229, 229, 229},
                                             {127, 127, 127}, {255, 0, 0},   {0, 255, 0},   {255, 255, 0},
                                             {92, 92, 255},   {255, 0, 255}, {0, 255, 255}, {255, 255, 255}};
constexpr unsigned kCubeLevels[6] = {0, 95, 135, 175, 215, 255};

bool containsIgnoringCase(std::string_view text, std::string_view part) {
    const auto same = [](char a, char b) { return (a | 0x20) == (b | 0x20); };
    return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

std::string directCode(const char* kind, const DDTTYColor& color) {
    const auto byte = [](double component) { return static_cast<unsigned>(std::clamp(component, 0.0, 1.0) * 255.0); };
    char text[40];
    std::snprintf(text, sizeof text, "\033[%s%u,%u,%u;", kind, byte(color.red), byte(color.green), byte(color.blue));
    return text;
}

}  // namespace

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
        palette.mColors.push_back(
            DDTTYColor::fromBytes(kStandardColors[i][0], kStandardColors[i][1], kStandardColors[i][2]));
        palette.mForegrounds.push_back(bright + "3" + std::to_string(i % 8) + "m");
        palette.mBackgrounds.push_back(bright + "4" + std::to_string(i % 8) + "m");
    }
    return palette;
}

DDTTYPalette DDTTYPalette::with256Colors() {
    DDTTYPalette palette;
    palette.mKind = Kind::Table;
    const auto add = [&palette](unsigned r, unsigned g, unsigned b) {
        const std::string index = std::to_string(palette.mColors.size());
        palette.mColors.push_back(DDTTYColor::fromBytes(r, g, b));
        palette.mForegrounds.push_back("38;5;" + index + "m");
        palette.mBackgrounds.push_back("48;5;" + index + "m");
    };
    for (const auto& color : kStandardColors) add(color[0], color[1], color[2]);
    for (const unsigned red : kCubeLevels)
        for (const unsigned green : kCubeLevels)
            for (const unsigned blue : kCubeLevels) add(red, green, blue);
    for (unsigned gray = 8; gray <= 238; gray += 10) add(gray, gray, gray);
    return palette;
}

DDTTYPalette DDTTYPalette::withDirectColors() {
    DDTTYPalette palette;
    palette.mKind = Kind::Direct;
    return palette;
}

std::size_t DDTTYPalette::codeIndex(const DDTTYColor& color) const {
    std::size_t best = 0;
    double bestDistance = kFarthest;
    for (std::size_t i = 0; i < mColors.size(); ++i) {
        const DDTTYColor& entry = mColors[i];
        const double distance = std::hypot(color.red - entry.red, color.green - entry.green, color.blue - entry.blue);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = i;
        }
    }
    return best;
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
