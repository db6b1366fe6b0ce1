#pragma once
// Everything a menu refresh sets, as one plain value computed from the controller's state. The tray
// applies only the fields that differ from what it shows.

#include <array>
#include <optional>
#include <string>

#include "core/MusicPlayer.h"
#include "core/OverlayPreferences.h"
#include "core/VisualizerModel.h"
#include "core/WaveColor.h"

namespace lorvane {

struct MenuState {
    std::string playbackStatusTitle;
    std::string audioStatusTitle;
    bool audioPermissionHidden = true;
    bool retryAudioEnabled = false;
    bool overlayEnabledChecked = false;
    bool autoShowChecked = false;
    bool avoidCoveringChecked = false;
    bool audioResponsiveChecked = false;
    bool compactModeChecked = false;
    bool fullscreenModeChecked = false;
    bool positionEnabled = false;
    bool topPositionChecked = false;
    bool centerPositionChecked = false;
    bool bottomPositionChecked = false;
    std::array<bool, caseCount<WaveColor>()> colorChecked{};
    bool launchAtLoginChecked = false;
    // The tray icon's tool tip: what is happening, in one line.
    std::string toolTip;

    friend bool operator==(const MenuState&, const MenuState&) = default;
};

// What the controller knows at the moment of a refresh.
struct MenuInputs {
    std::optional<PlaybackPlayer> player;
    MusicPlaybackState playbackState = MusicPlaybackState::notRunning;
    AudioCaptureStatus captureStatus = AudioCaptureStatus::waiting;
    double audioLevel = 0;
    bool launchAtLoginEnabled = false;
    std::optional<AudioCaptureReason> captureFailureReason;
};

MenuState makeMenuState(const MenuInputs& inputs, const OverlayPreferences& preferences);

// "Spotify: Playing", "Music Player: Not Running", ...
std::string playbackStatusTitle(const std::optional<PlaybackPlayer>& player, MusicPlaybackState state);
// "Audio Analysis: Live 13%" while live, else "Audio Analysis: " and the status text.
std::string audioStatusMenuTitle(AudioCaptureStatus status, double audioLevel);
// "Spotify: Playing — Audio Analysis: Live": the playback line and the audio status, without the level
// (which would change with every frame); away from live, the capture failure's reason in brackets.
std::string trayToolTip(const std::optional<PlaybackPlayer>& player, MusicPlaybackState state,
                        AudioCaptureStatus status, std::optional<AudioCaptureReason> reason = std::nullopt);
// The status in words: "Waiting for Playback", "Live Audio and Rhythm", "Fixed-Level Fallback", ...
std::string_view captureStatusText(AudioCaptureStatus status);
// The level 0...1 as a whole percentage, halves away from zero: 0.125 gives 13. Not-a-number gives 0.
long levelPercent(double audioLevel);

}  // namespace lorvane
