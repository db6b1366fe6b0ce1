#pragma once
// Paints the wave view's whole composition (background, fog tint, the centred waveform) through the
// GL renderer into one target: shared by the overlay window and the offscreen renderer.

#include "core/render/VisualizerView.h"
#include "ui/WaveGlRenderer.h"

namespace lorvane {

// Fills the panel behind everything the view draws: transparent when a compositor blends the window
// over the desktop, an opaque dark grey when nothing would (the window's pixels are shown as they are).
constexpr RgbaColor transparentBackground{0, 0, 0, 0};
constexpr RgbaColor opaqueBackground{0.055, 0.058, 0.066, 1};

// The renderer as a canvas placed at a rectangle of the target.
class GlWaveCanvas final : public WaveCanvas {
public:
    GlWaveCanvas(WaveGlRenderer& renderer, const RectF& frame) : renderer_(renderer), frame_(frame) {}
    void drawWave(const WaveLayout& layout) override { renderer_.drawWave(layout, frame_); }

private:
    WaveGlRenderer& renderer_;
    RectF frame_;
};

// One frame of the view over a panel of `panel` points; time in seconds since 1 January 2001 UTC.
void paintVisualizer(WaveGlRenderer& renderer, const VisualizerView& view, const WaveTarget& target, SizeF panel,
                     double time, const RgbaColor& background);

}  // namespace lorvane
