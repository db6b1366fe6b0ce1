#include "core/render/VisualizerView.h"

namespace lorvane {

VisualizerView::VisualizerView(std::shared_ptr<const OverlayPreferences> preferences,
                               std::shared_ptr<const VisualizerModel> model)
    : preferences_(std::move(preferences)), model_(std::move(model)) {}

SizeF VisualizerView::waveSize(SizeF available) const {
    return lorvane::waveSize(available, preferences_->displayMode());
}

double VisualizerView::spectrumValue(int at, int barCount) const {
    return lorvane::spectrumValue(model_->spectrum(), at, barCount);
}

WaveInputs VisualizerView::inputs() const {
    return {preferences_->audioResponsive(), preferences_->displayMode(), preferences_->color(), model_->audioLevel(),
            model_->motionRate(),            model_->beatPulse(),         model_->spectrum()};
}

double VisualizerView::motion() const { return effectiveMotion(inputs()); }

WaveLayout VisualizerView::layout(SizeF size, const WavePhase& phase) const { return layoutWave(inputs(), size, phase); }

WaveLayout VisualizerView::layout(SizeF size, double time) const { return layoutWave(inputs(), size, time); }

WaveFrame VisualizerView::frame(SizeF panel, const WavePhase& phase) const {
    WaveFrame result{panel, body(panel), {}};
    result.layout = layout(result.composition.waveform.size(), phase);
    return result;
}

WaveFrame VisualizerView::frame(SizeF panel, double time) const {
    return frame(panel, WavePhase::atTime(time, motion()));
}

WaveComposition VisualizerView::body(SizeF panel) const {
    WaveComposition composition;
    if (preferences_->displayMode() == OverlayDisplayMode::fullscreenFog) {
        composition.frostedBackground = true;
        composition.tint = fogTint;
    }
    const SizeF canvas = waveSize(panel);
    composition.waveform = {(panel.width - canvas.width) / 2, (panel.height - canvas.height) / 2, canvas.width,
                            canvas.height};
    return composition;
}

}  // namespace lorvane
