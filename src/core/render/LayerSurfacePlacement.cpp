#include "core/render/LayerSurfacePlacement.h"

#include <cmath>

namespace lorvane {

LayerSurfacePlacement layerSurfacePlacement(OverlayWindowLevel level, OverlayDisplayMode mode,
                                            OverlayPosition position, double visibleHeight) {
    LayerSurfacePlacement placement;
    placement.layer = level == OverlayWindowLevel::floating ? LayerShellLayer::top : LayerShellLayer::bottom;
    placement.anchorLeft = placement.anchorRight = true;
    if (mode == OverlayDisplayMode::fullscreenFog) {
        placement.anchorTop = placement.anchorBottom = true;
        placement.exclusiveZone = -1;
        return placement;
    }
    // The same band as the X11 overlay's frame, measured from the edge it belongs to.
    const ScreenInfo output{{0, 0, 1, visibleHeight}, {0, 0, 1, visibleHeight}};
    const RectF band = overlayFrame(output, mode, position);
    placement.height = static_cast<int>(std::lround(band.height));
    switch (position) {
        case OverlayPosition::top:
            placement.anchorTop = true;
            placement.marginTop = static_cast<int>(std::lround(band.top()));
            break;
        case OverlayPosition::bottom:
            placement.anchorBottom = true;
            placement.marginBottom = static_cast<int>(std::lround(visibleHeight - band.bottom()));
            break;
        case OverlayPosition::center:
            // Anchored left and right only: the compositor centres it vertically in the free area.
            break;
    }
    return placement;
}

}  // namespace lorvane
