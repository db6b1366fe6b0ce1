#include "core/VisualizerModel.h"

#include <algorithm>

namespace lorvane {

namespace {
double clamped(double value, double low, double high) {
    // NaN is clamped to the low end so the wave never receives a NaN.
    if (!(value >= low)) return low;
    return std::min(value, high);
}
}  // namespace

void VisualizerModel::updateLiveFrame(const AudioVisualizationFrame& frame) {
    publish(captureStatus_, AudioCaptureStatus::live);
    if (captureFailureReason_) publish(captureFailureReason_, std::nullopt);
    publish(audioLevel_, clamped(frame.level, 0.0, 1.0));
    publish(motionRate_, clamped(frame.motionRate, 0.55, 2.8));
    publish(beatPulse_, clamped(frame.beatPulse, 0.0, 1.0));
    std::vector<double> spectrum(frame.spectrum.size());
    std::transform(frame.spectrum.begin(), frame.spectrum.end(), spectrum.begin(),
                   [](double band) { return clamped(band, 0.0, 1.0); });
    publish(spectrum_, std::move(spectrum));
}

void VisualizerModel::useFallbackAudio(std::optional<AudioCaptureFailureReport> failure) {
    AudioCaptureStatus status = AudioCaptureStatus::fallback;
    if (failure && failure->failure == AudioCaptureFailure::permissionRequired) {
        status = AudioCaptureStatus::permissionRequired;
    }
    if (failure && failure->failure == AudioCaptureFailure::silentOrProtectedAudio) {
        status = AudioCaptureStatus::protectedAudio;
    }
    publish(captureStatus_, status);
    const auto reason = failure ? std::optional(failure->reason) : std::nullopt;
    if (reason != captureFailureReason_) publish(captureFailureReason_, reason);
    publishFallbackValues();
}

void VisualizerModel::updateFallbackLevel(double level) {
    fallbackLevel_ = clamped(level, 0.0, 1.0);
    if (captureStatus_ == AudioCaptureStatus::live) return;
    publishFallbackValues();
}

void VisualizerModel::pause() {
    publish(captureStatus_, AudioCaptureStatus::waiting);
    if (captureFailureReason_) publish(captureFailureReason_, std::nullopt);
    publish(audioLevel_, 0.0);
    publish(motionRate_, 0.7);
    publish(beatPulse_, 0.0);
    publish(spectrum_, std::vector<double>{});
}

void VisualizerModel::publishFallbackValues() {
    publish(audioLevel_, fallbackLevel_);
    publish(motionRate_, 0.82 + 0.72 * fallbackLevel_);
    publish(beatPulse_, 0.0);
    publish(spectrum_, std::vector<double>{});
}

}  // namespace lorvane
