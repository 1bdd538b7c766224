#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

/// A colour as a person asks for it; components from 0 to 1.
struct DDTTYColor {
    double red = 0;
    double green = 0;
    double blue = 0;

    /// From components of 0 to 255.
    static constexpr DDTTYColor fromBytes(unsigned r, unsigned g, unsigned b) {
        return {r / 255.0, g / 255.0, b / 255.0};
    }

    /// Components of 0 to 255 to be printed: cut to whole numbers; what lies outside becomes the nearer end.
    std::array<int, 3> bytes() const;
};

/// The colours that a terminal can show, and how it is told to. A plain value.
class DDTTYPalette {
  public:
    /// What the environment says of the output: "TERM" with "color" in it has 16 colours, with "256" too it has 256;
    /// without "TERM", "XcodeColors" of "YES" is a debugger's console that takes any colour; else there are none.
    /// Reads the environment.
    static DDTTYPalette fromEnvironment();

    static DDTTYPalette none() { return DDTTYPalette(Kind::None); }
    static DDTTYPalette with16Colors();
    static DDTTYPalette with256Colors();
    static DDTTYPalette withDirectColors() { return DDTTYPalette(Kind::Direct); }

    /// Escape sequences; empty where there are no colours.
    std::string foregroundCode(const DDTTYColor& color) const { return code(Layer::Foreground, color); }
    std::string backgroundCode(const DDTTYColor& color) const { return code(Layer::Background, color); }
    std::string resetCode() const;

    /// The entry nearest to the colour, the first of several. 0 for a palette without entries.
    std::size_t codeIndex(const DDTTYColor& color) const;

  private:
    enum class Kind { None, Table16, Table256, Direct };
    enum class Layer { Foreground, Background };

    explicit DDTTYPalette(Kind kind) : mKind(kind) {}
    std::string code(Layer layer, const DDTTYColor& color) const;

    Kind mKind;
    std::vector<std::array<int, 3>> mColors;
};
