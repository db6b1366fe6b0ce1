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

class VisualizerModel::ChangeSet {
public:
    explicit ChangeSet(VisualizerModel& model) : model_(model) {}
    ~ChangeSet() {
        if (mask_ == 0 || model_.changed.observerCount() == 0) return;
        for (VisualizerModelKey key : allCases<VisualizerModelKey>()) {
            if (mask_ & bit(key)) model_.changed(key);
        }
    }
    ChangeSet(const ChangeSet&) = delete;
    ChangeSet& operator=(const ChangeSet&) = delete;
    void insert(VisualizerModelKey key) { mask_ |= bit(key); }

private:
    static unsigned bit(VisualizerModelKey key) { return 1u << caseIndex(key); }
    VisualizerModel& model_;
    unsigned mask_ = 0;
};

template <typename T, typename U>
void VisualizerModel::publish(ChangeSet& changes, VisualizerModelKey key, T& member, U&& value) {
    objectWillChange();
    if (member == value) return;
    member = std::forward<U>(value);
    changes.insert(key);
}

void VisualizerModel::updateLiveFrame(const AudioVisualizationFrame& frame) {
    ChangeSet changes(*this);
    publish(changes, VisualizerModelKey::captureStatus, captureStatus_, AudioCaptureStatus::live);
    publish(changes, VisualizerModelKey::audioLevel, audioLevel_, clamped(frame.level, 0.0, 1.0));
    publish(changes, VisualizerModelKey::motionRate, motionRate_, clamped(frame.motionRate, 0.55, 2.8));
    publish(changes, VisualizerModelKey::beatPulse, beatPulse_, clamped(frame.beatPulse, 0.0, 1.0));
    std::vector<double> spectrum(frame.spectrum.size());
    std::transform(frame.spectrum.begin(), frame.spectrum.end(), spectrum.begin(),
                   [](double band) { return clamped(band, 0.0, 1.0); });
    publish(changes, VisualizerModelKey::spectrum, spectrum_, std::move(spectrum));
    changes.insert(VisualizerModelKey::liveFrame);
}

void VisualizerModel::useFallbackAudio(std::optional<AudioCaptureFailure> failure) {
    AudioCaptureStatus status = AudioCaptureStatus::fallback;
    if (failure == AudioCaptureFailure::permissionRequired) status = AudioCaptureStatus::permissionRequired;
    if (failure == AudioCaptureFailure::silentOrProtectedAudio) status = AudioCaptureStatus::protectedAudio;
    ChangeSet changes(*this);
    publish(changes, VisualizerModelKey::captureStatus, captureStatus_, status);
    publishFallbackValues(changes);
}

void VisualizerModel::updateFallbackLevel(double level) {
    ChangeSet changes(*this);
    const double clampedLevel = clamped(level, 0.0, 1.0);
    if (clampedLevel != fallbackLevel_) {
        fallbackLevel_ = clampedLevel;
        changes.insert(VisualizerModelKey::fallbackLevel);
    }
    if (captureStatus_ == AudioCaptureStatus::live) return;
    publishFallbackValues(changes);
}

void VisualizerModel::pause() {
    ChangeSet changes(*this);
    publish(changes, VisualizerModelKey::captureStatus, captureStatus_, AudioCaptureStatus::waiting);
    publish(changes, VisualizerModelKey::audioLevel, audioLevel_, 0.0);
    publish(changes, VisualizerModelKey::motionRate, motionRate_, 0.7);
    publish(changes, VisualizerModelKey::beatPulse, beatPulse_, 0.0);
    publish(changes, VisualizerModelKey::spectrum, spectrum_, std::vector<double>{});
}

void VisualizerModel::publishFallbackValues(ChangeSet& changes) {
    publish(changes, VisualizerModelKey::audioLevel, audioLevel_, fallbackLevel_);
    publish(changes, VisualizerModelKey::motionRate, motionRate_, 0.82 + 0.72 * fallbackLevel_);
    publish(changes, VisualizerModelKey::beatPulse, beatPulse_, 0.0);
    publish(changes, VisualizerModelKey::spectrum, spectrum_, std::vector<double>{});
}

}  // namespace lorvane
