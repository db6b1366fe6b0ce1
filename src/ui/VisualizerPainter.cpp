#include "ui/VisualizerPainter.h"

namespace lorvane {

void paintFrame(WaveGlRenderer& renderer, const WaveFrame& frame, const WaveTarget& target,
                const RgbaColor& background) {
    RgbaColor fill = background;
    if (frame.composition.tint) fill = sourceOver(premultiplied(*frame.composition.tint), fill);
    renderer.beginFrame(target, fill);
    renderer.drawWave(frame.layout, frame.composition.waveform);
}

}  // namespace lorvane
