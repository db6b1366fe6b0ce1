#pragma once
// The observable values the wave is drawn from, and where they come from.

#include <optional>
#include <string_view>
#include <vector>

#include "core/AudioCaptureFailure.h"
#include "core/AudioVisualizationFrame.h"
#include "core/Signal.h"
#include "core/StringEnum.h"

namespace lorvane {

enum class AudioCaptureStatus { waiting, live, fallback, permissionRequired, protectedAudio };

template <>
struct EnumTraits<AudioCaptureStatus> {
    static constexpr std::array<std::string_view, 5> rawValues{"waiting", "live", "fallback", "permissionRequired",
                                                               "protectedAudio"};
};

class VisualizerModel {
public:
    double audioLevel() const { return audioLevel_; }
    double motionRate() const { return motionRate_; }
    double beatPulse() const { return beatPulse_; }
    const std::vector<double>& spectrum() const { return spectrum_; }
    AudioCaptureStatus captureStatus() const { return captureStatus_; }
    // Why the last capture run failed, while the model is in fallback because of it; nothing otherwise.
    std::optional<AudioCaptureReason> captureFailureReason() const { return captureFailureReason_; }
    double fallbackLevel() const { return fallbackLevel_; }

    // Inputs are clamped where they enter, never rejected.
    void updateLiveFrame(const AudioVisualizationFrame& frame);
    void useFallbackAudio(std::optional<AudioCaptureFailureReport> failure);
    void updateFallbackLevel(double level);
    void pause();

    // Fired before each published value is assigned.
    Signal<> objectWillChange;

private:
    void publishFallbackValues();
    template <typename T, typename U>
    void publish(T& member, U&& value) {
        objectWillChange();
        member = std::forward<U>(value);
    }

    double audioLevel_ = 0.48;
    double motionRate_ = 1.0;
    double beatPulse_ = 0.0;
    std::vector<double> spectrum_;
    AudioCaptureStatus captureStatus_ = AudioCaptureStatus::waiting;
    std::optional<AudioCaptureReason> captureFailureReason_;
    double fallbackLevel_ = 0.48;
};

}  // namespace lorvane
