#pragma once
// Where the overlay panel goes: its stacking level, the screen it uses and its frame on that screen.
// Coordinates are global points with the origin at the top left and y growing downward.

#include <cstddef>
#include <optional>
#include <span>

#include "core/OverlayPreferences.h"
#include "core/StringEnum.h"
#include "core/render/Geometry.h"

namespace lorvane {

// `floating` keeps the wave above ordinary windows; `desktop` puts it on the desktop, below every
// application window.
enum class OverlayWindowLevel { floating, desktop };

template <>
struct EnumTraits<OverlayWindowLevel> {
    static constexpr std::array<std::string_view, 2> rawValues{"floating", "desktop"};
};

struct ScreenInfo {
    RectF frame;         // the whole screen
    RectF visibleFrame;  // without the space panels and docks reserve
    friend bool operator==(const ScreenInfo&, const ScreenInfo&) = default;
};

// Full-screen fog always sits on the desktop; the compact band does when it should not cover windows.
OverlayWindowLevel overlayWindowLevel(bool avoidsCoveringWindows, OverlayDisplayMode mode);

// The first screen whose frame holds the pointer, else the main screen, else the first screen.
std::optional<std::size_t> targetScreenIndex(std::span<const ScreenInfo> screens,
                                             std::optional<std::size_t> mainScreen, PointF pointer);

// The centre band's height: a quarter of the visible height, at least 190, at most 280.
double centerBandHeight(double visibleHeight);

// The panel frame: the full screen in fog; in the compact band the full width of the screen at the
// height and place the position asks for inside the visible frame.
RectF overlayFrame(const ScreenInfo& screen, OverlayDisplayMode mode, OverlayPosition position);

}  // namespace lorvane
