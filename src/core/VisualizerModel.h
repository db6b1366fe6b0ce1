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

// Names what changed in the model. `liveFrame` is announced once for every live frame taken in,
// after the values it changed, so a view can draw exactly once per frame.
enum class VisualizerModelKey { captureStatus, audioLevel, motionRate, beatPulse, spectrum, fallbackLevel, liveFrame };

template <>
struct EnumTraits<VisualizerModelKey> {
    static constexpr std::array<std::string_view, 7> rawValues{"captureStatus", "audioLevel", "motionRate",
                                                               "beatPulse",     "spectrum",   "fallbackLevel",
                                                               "liveFrame"};
};

class VisualizerModel {
public:
    double audioLevel() const { return audioLevel_; }
    double motionRate() const { return motionRate_; }
    double beatPulse() const { return beatPulse_; }
    const std::vector<double>& spectrum() const { return spectrum_; }
    AudioCaptureStatus captureStatus() const { return captureStatus_; }
    double fallbackLevel() const { return fallbackLevel_; }

    // Inputs are clamped where they enter, never rejected.
    void updateLiveFrame(const AudioVisualizationFrame& frame);
    void useFallbackAudio(std::optional<AudioCaptureFailure> failure);
    void updateFallbackLevel(double level);
    void pause();

    // Announced after an operation has assigned all its values, keyed by each value that took a new
    // value, in the order captureStatus, audioLevel, motionRate, beatPulse, spectrum, fallbackLevel.
    Signal<VisualizerModelKey> changed;
    // Fired before each published value is assigned (older observers; prefer `changed`).
    Signal<> objectWillChange;

private:
    // Collects the keys one operation changed and announces them when it ends.
    class ChangeSet;
    void publishFallbackValues(ChangeSet& changes);
    template <typename T, typename U>
    void publish(ChangeSet& changes, VisualizerModelKey key, T& member, U&& value);

    double audioLevel_ = 0.48;
    double motionRate_ = 1.0;
    double beatPulse_ = 0.0;
    std::vector<double> spectrum_;
    AudioCaptureStatus captureStatus_ = AudioCaptureStatus::waiting;
    double fallbackLevel_ = 0.48;
};

}  // namespace lorvane
