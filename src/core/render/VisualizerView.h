#pragma once
// The wave view: what the overlay panel shows, read from the shared preferences and model on every
// frame. It holds no state of its own; a drawing surface (WaveCanvas) turns each frame into pixels.

#include <memory>

#include "core/OverlayPreferences.h"
#include "core/VisualizerModel.h"
#include "core/render/Geometry.h"
#include "core/render/WaveLayout.h"

namespace lorvane {

// Something that can draw one frame of the wave.
class WaveCanvas {
public:
    virtual ~WaveCanvas() = default;
    virtual void drawWave(const WaveLayout& layout) = 0;
};

// The view's composition inside the panel, back to front.
struct WaveComposition {
    bool frostedBackground = false;  // fog only: the blurred desktop behind the panel
    std::optional<RgbaColor> tint;   // fog only: white at 0.045 over the whole panel
    RectF waveform;                  // the canvas, sized by waveSize() and centred in the panel
};

class VisualizerView {
public:
    static constexpr RgbaColor fogTint{1, 1, 1, 0.045};

    VisualizerView(std::shared_ptr<const OverlayPreferences> preferences, std::shared_ptr<const VisualizerModel> model);

    SizeF waveSize(SizeF available) const;
    double spectrumValue(int at, int barCount) const;
    WaveInputs inputs() const;
    WaveLayout layout(SizeF size, double time) const;
    // Draws one frame of the given canvas size; time in seconds since 1 January 2001 UTC.
    void draw(WaveCanvas& in, SizeF size, double time) const;
    WaveComposition body(SizeF panel) const;

    const OverlayPreferences& preferences() const { return *preferences_; }
    const VisualizerModel& model() const { return *model_; }

private:
    std::shared_ptr<const OverlayPreferences> preferences_;
    std::shared_ptr<const VisualizerModel> model_;
};

}  // namespace lorvane
