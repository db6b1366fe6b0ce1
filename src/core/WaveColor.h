#pragma once
// The closed set of colour schemes the wave is drawn in. Colours are plain sRGB doubles;
// the drawing layer converts them to whatever its graphics stack wants.

#include <span>
#include <string_view>
#include <vector>

#include "core/StringEnum.h"

namespace lorvane {

struct RgbaColor {
    double red = 0, green = 0, blue = 0, alpha = 1;

    // Components on the 0...255 scale, alpha 1.
    static constexpr RgbaColor fromBytes(int r, int g, int b) { return {r / 255.0, g / 255.0, b / 255.0, 1.0}; }
    constexpr RgbaColor withAlpha(double a) const { return {red, green, blue, a}; }
    // Straight component-wise blend toward `other` by `fraction`.
    constexpr RgbaColor blended(double fraction, const RgbaColor& other) const {
        return {red + fraction * (other.red - red), green + fraction * (other.green - green),
                blue + fraction * (other.blue - blue), alpha + fraction * (other.alpha - alpha)};
    }
    friend bool operator==(const RgbaColor&, const RgbaColor&) = default;
};

enum class WaveColor {
    black, white, cyan, pink, blue, purple, green, orange, yellow,  // solid
    aurora, ocean, sunset, neon,                                     // gradient
    candyPop, limePulse, mintGrape, coralSky                         // contrast
};

template <>
struct EnumTraits<WaveColor> {
    static constexpr std::array<std::string_view, 17> rawValues{
        "black", "white", "cyan",   "pink", "blue",     "purple",    "green",     "orange",  "yellow",
        "aurora", "ocean", "sunset", "neon", "candyPop", "limePulse", "mintGrape", "coralSky"};
};

enum class WaveColorGroup { solid, gradient, contrast };

template <>
struct EnumTraits<WaveColorGroup> {
    static constexpr std::array<std::string_view, 3> rawValues{"solid", "gradient", "contrast"};
};

std::string_view displayName(WaveColor color);
// The scheme's colours in list order (one, three or four); the storage is static.
std::span<const RgbaColor> colors(WaveColor color);
// The colour at a position along the wave (0 = left end, 1 = right end), blended between neighbours.
RgbaColor colorAt(WaveColor color, double position);

WaveColorGroup group(WaveColor color);
std::string_view title(WaveColorGroup group);  // "Solid Colors", "Gradients", "Contrast"
std::vector<WaveColor> members(WaveColorGroup group);

}  // namespace lorvane
