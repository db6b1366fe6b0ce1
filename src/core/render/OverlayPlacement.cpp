#include "core/render/OverlayPlacement.h"

#include <algorithm>

namespace lorvane {

namespace {
constexpr double edgeBandHeight = 150;
constexpr double edgeInset = 28;
}  // namespace

OverlayWindowLevel overlayWindowLevel(bool avoidsCoveringWindows, OverlayDisplayMode mode) {
    if (avoidsCoveringWindows || mode == OverlayDisplayMode::fullscreenFog) return OverlayWindowLevel::desktop;
    return OverlayWindowLevel::floating;
}

std::optional<std::size_t> targetScreenIndex(std::span<const ScreenInfo> screens,
                                             std::optional<std::size_t> mainScreen, PointF pointer) {
    for (std::size_t i = 0; i < screens.size(); ++i) {
        if (screens[i].frame.contains(pointer)) return i;
    }
    if (mainScreen && *mainScreen < screens.size()) return mainScreen;
    if (!screens.empty()) return 0;
    return std::nullopt;
}

double centerBandHeight(double visibleHeight) { return std::min(std::max(visibleHeight * 0.25, 190.0), 280.0); }

RectF overlayFrame(const ScreenInfo& screen, OverlayDisplayMode mode, OverlayPosition position) {
    if (mode == OverlayDisplayMode::fullscreenFog) return screen.frame;
    const RectF& visible = screen.visibleFrame;
    double height = edgeBandHeight;
    double top = 0;
    switch (position) {
        case OverlayPosition::top:
            top = visible.top() + edgeInset;
            break;
        case OverlayPosition::center:
            height = centerBandHeight(visible.height);
            top = visible.top() + visible.height / 2 - height / 2;
            break;
        case OverlayPosition::bottom:
            top = visible.bottom() - edgeInset - height;
            break;
    }
    // The band spans the full frame's width even where a dock narrows the visible frame.
    return {screen.frame.x, top, screen.frame.width, height};
}

}  // namespace lorvane
