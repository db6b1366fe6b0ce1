#include "core/WaveColor.h"

#include <array>
#include <cmath>

namespace lorvane {

namespace {

constexpr auto rgb = RgbaColor::fromBytes;

struct Scheme {
    std::string_view displayName;
    std::array<RgbaColor, 4> colors;
    std::size_t count;
};

constexpr std::array<Scheme, 17> schemes{{
    {"Black", {rgb(15, 16, 18)}, 1},
    {"White", {rgb(250, 250, 250)}, 1},
    {"Cyan", {rgb(31, 204, 209)}, 1},
    {"Pink", {rgb(255, 77, 145)}, 1},
    {"Blue", {rgb(50, 135, 255)}, 1},
    {"Purple", {rgb(155, 93, 229)}, 1},
    {"Green", {rgb(61, 223, 76)}, 1},
    {"Orange", {rgb(255, 140, 90)}, 1},
    {"Yellow", {rgb(255, 216, 61)}, 1},
    {"Aurora", {rgb(19, 216, 212), rgb(61, 139, 255), rgb(168, 85, 247)}, 3},
    {"Ocean", {rgb(0, 194, 215), rgb(0, 224, 184), rgb(36, 116, 255)}, 3},
    {"Sunset", {rgb(255, 138, 91), rgb(255, 77, 145), rgb(255, 209, 102)}, 3},
    {"Neon", {rgb(255, 0, 212), rgb(139, 92, 246), rgb(32, 217, 255)}, 3},
    {"Candy Pop", {rgb(244, 174, 212), rgb(143, 142, 248), rgb(255, 212, 134), rgb(158, 221, 247)}, 4},
    {"Lime Pulse", {rgb(223, 255, 133), rgb(61, 223, 76), rgb(30, 144, 255), rgb(240, 0, 232)}, 4},
    {"Mint Grape", {rgb(165, 236, 178), rgb(10, 215, 176), rgb(142, 49, 217), rgb(47, 208, 211)}, 4},
    {"Coral Sky", {rgb(255, 155, 122), rgb(45, 212, 215), rgb(120, 136, 245)}, 3},
}};

// Case numbers 0...8 are solid, 9...12 gradient, the rest contrast.
constexpr unsigned solidMask = 0x1FFu;
constexpr unsigned gradientMask = 0x1E00u;

}  // namespace

std::string_view displayName(WaveColor color) { return schemes[caseIndex(color)].displayName; }

std::span<const RgbaColor> colors(WaveColor color) {
    const Scheme& scheme = schemes[caseIndex(color)];
    return {scheme.colors.data(), scheme.count};
}

RgbaColor colorAt(WaveColor color, double position) {
    const auto list = colors(color);
    const std::size_t n = list.size();
    if (n < 2) return list.front();
    // "Not greater than 0" includes NaN.
    if (!(position > 0)) position = 0;
    if (position > 1) position = 1;
    const double scaled = position * static_cast<double>(n - 1);
    std::size_t lower = static_cast<std::size_t>(std::floor(scaled));
    if (lower > n - 1) lower = n - 1;
    const std::size_t upper = std::min(lower + 1, n - 1);
    const double fraction = scaled - static_cast<double>(lower);
    return list[lower].blended(fraction, list[upper]);
}

WaveColorGroup group(WaveColor color) {
    const unsigned bit = 1u << caseIndex(color);
    if (bit & solidMask) return WaveColorGroup::solid;
    if (bit & gradientMask) return WaveColorGroup::gradient;
    return WaveColorGroup::contrast;
}

std::string_view title(WaveColorGroup group) {
    static constexpr std::array<std::string_view, 3> titles{"Solid Colors", "Gradients", "Contrast"};
    return titles[caseIndex(group)];
}

std::vector<WaveColor> members(WaveColorGroup wanted) {
    std::vector<WaveColor> result;
    for (WaveColor color : allCases<WaveColor>()) {
        if (group(color) == wanted) result.push_back(color);
    }
    return result;
}

}  // namespace lorvane
