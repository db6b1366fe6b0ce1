#pragma once
// The wave view: what the overlay panel shows, read from the shared preferences and model. Once per
// drawn frame it computes the whole frame (composition and layout); a renderer turns that into
// pixels without asking anything back.

#include <memory>

#include "core/OverlayPreferences.h"
#include "core/VisualizerModel.h"
#include "core/render/Geometry.h"
#include "core/render/WaveLayout.h"

namespace lorvane {

// The view's composition inside the panel, back to front.
struct WaveComposition {
    bool frostedBackground = false;  // fog only: the blurred desktop behind the panel
    std::optional<RgbaColor> tint;   // fog only: white at 0.045 over the whole panel
    RectF waveform;                  // the canvas, sized by waveSize() and centred in the panel
};

// Everything one frame of the panel is drawn from.
struct WaveFrame {
    SizeF panel;
    WaveComposition composition;
    WaveLayout layout;  // for a canvas of composition.waveform's size
};

class VisualizerView {
public:
    static constexpr RgbaColor fogTint{1, 1, 1, 0.045};

    VisualizerView(std::shared_ptr<const OverlayPreferences> preferences, std::shared_ptr<const VisualizerModel> model);

    SizeF waveSize(SizeF available) const;
    double spectrumValue(int at, int barCount) const;
    WaveInputs inputs() const;
    // The motion the wave's phases advance at.
    double motion() const;
    WaveLayout layout(SizeF size, const WavePhase& phase) const;
    // For a motion held constant since time 0 (pictures and tests).
    WaveLayout layout(SizeF size, double time) const;
    WaveComposition body(SizeF panel) const;
    // The whole frame for a panel of `panel` points.
    WaveFrame frame(SizeF panel, const WavePhase& phase) const;
    WaveFrame frame(SizeF panel, double time) const;

    const OverlayPreferences& preferences() const { return *preferences_; }
    const VisualizerModel& model() const { return *model_; }

private:
    std::shared_ptr<const OverlayPreferences> preferences_;
    std::shared_ptr<const VisualizerModel> model_;
};

}  // namespace lorvane
