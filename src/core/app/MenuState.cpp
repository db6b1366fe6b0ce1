#include "core/app/MenuState.h"

#include <cmath>

#include "core/app/SettingsTable.h"

namespace lorvane {

std::string playbackStatusTitle(const std::optional<PlaybackPlayer>& player, MusicPlaybackState state) {
    std::string title(playerName(player));
    title += ": ";
    title += displayText(state);
    return title;
}

std::string_view captureStatusText(AudioCaptureStatus status) {
    switch (status) {
        case AudioCaptureStatus::waiting:
            return "Waiting for Playback";
        case AudioCaptureStatus::live:
            return "Live Audio and Rhythm";
        case AudioCaptureStatus::fallback:
            return "Fixed-Level Fallback";
        case AudioCaptureStatus::permissionRequired:
            return "System Audio Permission Required";
        case AudioCaptureStatus::protectedAudio:
            return "Protected or Muted Audio";
    }
    return "Waiting for Playback";
}

long levelPercent(double audioLevel) {
    const double percent = audioLevel * 100.0;
    // The model clamps its level, but a NaN would make the rounding undefined.
    if (!std::isfinite(percent)) return 0;
    return std::lround(percent);
}

std::string audioStatusMenuTitle(AudioCaptureStatus status, double audioLevel) {
    if (status == AudioCaptureStatus::live) {
        return "Audio Analysis: Live " + std::to_string(levelPercent(audioLevel)) + "%";
    }
    return "Audio Analysis: " + std::string(captureStatusText(status));
}

std::string trayToolTip(const std::optional<PlaybackPlayer>& player, MusicPlaybackState state,
                        AudioCaptureStatus status, std::optional<AudioCaptureReason> reason) {
    const std::string_view audio = status == AudioCaptureStatus::live ? "Live" : captureStatusText(status);
    std::string tip = playbackStatusTitle(player, state) + " \u2014 Audio Analysis: " + std::string(audio);
    if (reason && status != AudioCaptureStatus::live) tip += " (" + std::string(audioCaptureReasonText(*reason)) + ")";
    return tip;
}

MenuState makeMenuState(const MenuInputs& inputs, const OverlayPreferences& preferences) {
    MenuState state;
    state.playbackStatusTitle = playbackStatusTitle(inputs.player, inputs.playbackState);
    state.audioStatusTitle = audioStatusMenuTitle(inputs.captureStatus, inputs.audioLevel);
    const SettingContext context = SettingContext::of(preferences, inputs.playbackState, inputs.captureStatus);
    state.audioPermissionHidden = !isShownInMenu(SettingKey::openAudioCaptureSettings, context);
    state.retryAudioEnabled = isEnabled(SettingKey::retryAudioCapture, context);
    state.overlayEnabledChecked = preferences.overlayEnabled();
    state.autoShowChecked = preferences.autoShow();
    state.avoidCoveringChecked = preferences.avoidsCoveringWindows();
    state.audioResponsiveChecked = preferences.audioResponsive();
    state.compactModeChecked = preferences.displayMode() == OverlayDisplayMode::compact;
    state.fullscreenModeChecked = preferences.displayMode() == OverlayDisplayMode::fullscreenFog;
    state.positionEnabled = isEnabled(SettingKey::position, context);
    state.topPositionChecked = preferences.position() == OverlayPosition::top;
    state.centerPositionChecked = preferences.position() == OverlayPosition::center;
    state.bottomPositionChecked = preferences.position() == OverlayPosition::bottom;
    for (WaveColor color : allCases<WaveColor>()) {
        state.colorChecked[caseIndex(color)] = color == preferences.color();
    }
    state.launchAtLoginChecked = inputs.launchAtLoginEnabled;
    state.toolTip = trayToolTip(inputs.player, inputs.playbackState, inputs.captureStatus, inputs.captureFailureReason);
    return state;
}

}  // namespace lorvane
