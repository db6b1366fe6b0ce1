#pragma once
// The settings window's tabs and the texts it derives from the model and the build.

#include <optional>
#include <string>
#include <string_view>

#include "core/StringEnum.h"
#include "core/VisualizerModel.h"

namespace lorvane {

enum class SettingsTab { display, players, audio, general };

template <>
struct EnumTraits<SettingsTab> {
    static constexpr std::array<std::string_view, 4> rawValues{"display", "players", "audio", "general"};
};

// "Waveform", "Players", "Audio", "General".
std::string_view label(SettingsTab tab);

// "Live Audio and Rhythm · 42%" while live, else the status in words (as in the menu, without its prefix).
std::string audioStatusText(AudioCaptureStatus status, double audioLevel);

// "Version 1.2 (Build 7)"; a missing or empty value shows as "-".
std::string versionText(const std::optional<std::string>& version, const std::optional<std::string>& build);

}  // namespace lorvane
