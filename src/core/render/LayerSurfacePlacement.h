#pragma once
// The overlay as a Wayland layer surface: the layer, the edges it is anchored to, its margins and
// height. The compositor places it on its output, so the band's offsets are edge distances rather
// than global coordinates; an exclusive zone of 0 keeps the compact band inside the area panels leave
// free (the visible frame), and -1 lets the fog cover the whole output.

#include "core/OverlayPreferences.h"
#include "core/render/OverlayPlacement.h"

namespace lorvane {

enum class LayerShellLayer { bottom, top };

template <>
struct EnumTraits<LayerShellLayer> {
    static constexpr std::array<std::string_view, 2> rawValues{"bottom", "top"};
};

struct LayerSurfacePlacement {
    LayerShellLayer layer = LayerShellLayer::top;
    bool anchorTop = false, anchorBottom = false, anchorLeft = false, anchorRight = false;
    int marginTop = 0, marginBottom = 0;
    int height = 0;  // 0: stretched between the top and bottom anchors
    int exclusiveZone = 0;
    friend bool operator==(const LayerSurfacePlacement&, const LayerSurfacePlacement&) = default;
};

// Kept above windows -> the top layer; on the desktop -> the bottom layer (above the wallpaper, below
// every window). `visibleHeight` is the output's height without panels, for the centre band's height.
LayerSurfacePlacement layerSurfacePlacement(OverlayWindowLevel level, OverlayDisplayMode mode,
                                            OverlayPosition position, double visibleHeight);

}  // namespace lorvane
