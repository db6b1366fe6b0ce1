#include "ui/VisualizerPainter.h"

namespace lorvane {

void paintVisualizer(WaveGlRenderer& renderer, const VisualizerView& view, const WaveTarget& target, SizeF panel,
                     double time, const RgbaColor& background) {
    const WaveComposition body = view.body(panel);
    RgbaColor fill = background;
    if (body.tint) fill = sourceOver(premultiplied(*body.tint), fill);
    renderer.beginFrame(target, fill);
    GlWaveCanvas canvas(renderer, body.waveform);
    view.draw(canvas, body.waveform.size(), time);
}

}  // namespace lorvane
