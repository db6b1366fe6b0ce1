#include "core/app/SettingsText.h"

#include "core/app/MenuState.h"

namespace lorvane {

std::string_view label(SettingsTab tab) {
    static constexpr std::array<std::string_view, 4> labels{"Waveform", "Players", "Audio", "General"};
    return labels[caseIndex(tab)];
}

std::string audioStatusText(AudioCaptureStatus status, double audioLevel) {
    if (status == AudioCaptureStatus::live) {
        return "Live Audio and Rhythm \u00B7 " + std::to_string(levelPercent(audioLevel)) + "%";
    }
    return std::string(captureStatusText(status));
}

std::string versionText(const std::optional<std::string>& version, const std::optional<std::string>& build) {
    const auto shown = [](const std::optional<std::string>& value) {
        return value && !value->empty() ? *value : std::string("-");
    };
    return "Version " + shown(version) + " (Build " + shown(build) + ")";
}

}  // namespace lorvane
