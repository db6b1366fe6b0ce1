#pragma once
// Paints one computed frame (background, fog tint, the centred waveform) through the GL renderer into
// one target: shared by the overlay window and the offscreen renderer.

#include "core/render/VisualizerView.h"
#include "ui/WaveGlRenderer.h"

namespace lorvane {

// Fills the panel behind everything the view draws: transparent when a compositor blends the window
// over the desktop, an opaque dark grey when nothing would (the window's pixels are shown as they are).
constexpr RgbaColor transparentBackground{0, 0, 0, 0};
constexpr RgbaColor opaqueBackground{0.055, 0.058, 0.066, 1};

void paintFrame(WaveGlRenderer& renderer, const WaveFrame& frame, const WaveTarget& target,
                const RgbaColor& background);

}  // namespace lorvane
