#pragma once
// The callbacks through which the settings window changes anything. The controller fills them with
// its own setters, so a change made there has exactly the effects of the same change in the tray menu.

#include <functional>
#include <string>

#include "core/MusicPlayer.h"
#include "core/OverlayPreferences.h"
#include "core/WaveColor.h"

namespace lorvane {

struct SettingsActions {
    std::function<void(bool)> setOverlayEnabled;
    std::function<void(bool)> setAutoShow;
    std::function<void(bool)> setAvoidsCoveringWindows;
    std::function<void(bool)> setAudioResponsive;
    std::function<void(OverlayDisplayMode)> setDisplayMode;
    std::function<void(OverlayPosition)> setPosition;
    std::function<void(WaveColor)> setColor;
    // The drawing path under General; the overlay follows the preference by itself.
    std::function<void(RendererChoice)> setRenderer;
    std::function<void(MusicPlayer, bool)> setPlayerEnabled;
    // Other players: the one switch for all, and one player by its desktop entry.
    std::function<void(bool)> setOtherPlayersEnabled;
    std::function<void(const std::string&, bool)> setOtherPlayerEnabled;
    std::function<void()> retryAudioCapture;
    std::function<void()> openAudioCaptureSettings;
    // Answers the login-item state actually reached.
    std::function<bool(bool)> setLaunchAtLogin;
    // The login item's state now, read when the window shows.
    std::function<bool()> isLaunchAtLoginEnabled;
};

}  // namespace lorvane
