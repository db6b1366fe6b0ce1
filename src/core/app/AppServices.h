#pragma once
// What the application controller drives, seen as plain interfaces so that every decision can be
// exercised without windows, a tray or a sound server. The desktop implementations live in ui/ and
// platform/; tests replace them.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "core/AudioCaptureFailure.h"
#include "core/AudioVisualizationFrame.h"
#include "core/Monitoring.h"
#include "core/MusicPlayer.h"
#include "core/OverlayPreferences.h"
#include "core/VisualizerModel.h"
#include "core/app/MenuState.h"
#include "core/app/PlaybackStatus.h"
#include "core/app/SettingsActions.h"
#include "core/app/StatusMenuLayout.h"
#include "core/render/OverlayPresenting.h"

namespace lorvane {

// The settings window, built once and only hidden when closed.
class SettingsWindowPresenting {
public:
    virtual ~SettingsWindowPresenting() = default;
    // Puts the window on every desktop, activates the application and raises the window.
    virtual void present() = 0;
};

// What the tray reports back: its menu opening and closing (a desktop's tray host says so before it
// shows the menu), and whether the desktop has a tray host at all.
struct StatusMenuEvents {
    std::function<void(bool open)> menuVisibilityChanged;
    std::function<void(bool available)> trayHostChanged;
};

// The tray icon and its menu. `apply` is called only when something the menu shows has changed;
// implementations touch an item only when its value differs.
class StatusMenuPresenting {
public:
    virtual ~StatusMenuPresenting() = default;
    virtual void apply(const MenuState& state) = 0;
    virtual void setEvents(StatusMenuEvents /*events*/) {}
};

// The login item: the system's registration is the only truth.
class LoginItemService {
public:
    virtual ~LoginItemService() = default;
    virtual bool isEnabled() const = 0;
    // Each answers nothing on success, or the error's description.
    virtual std::optional<std::string> registerItem() = 0;
    virtual std::optional<std::string> unregisterItem() = 0;
};

// A warning for the user. It returns at once (the caller refreshes what it shows while the warning
// is up); at most one warning is on screen at a time.
class AlertPresenting {
public:
    virtual ~AlertPresenting() = default;
    virtual void showWarning(const std::string& message, const std::string& informativeText) = 0;
};

// Opens the desktop's page where audio capture can be set up; nothing when there is none.
class AudioSettingsOpening {
public:
    virtual ~AudioSettingsOpening() = default;
    virtual void openAudioCaptureSettings() = 0;
};

// Ending the program.
class ApplicationTerminating {
public:
    virtual ~ApplicationTerminating() = default;
    virtual void terminate() = 0;
};

using EnabledPlayersSupplier = std::function<EnabledPlayers()>;
using SnapshotCallback = std::function<void(const MusicPlaybackSnapshot&)>;
// A player the monitor has come across (enabled or not), so the settings can list it.
using PlayerSeenCallback = std::function<void(const PlaybackPlayer&)>;
using FrameCallback = std::function<void(const AudioVisualizationFrame&)>;
using FailureCallback = std::function<void(AudioCaptureFailureReport)>;
using MenuCommandHandler = std::function<void(MenuCommand, const std::optional<std::string>& representedObject)>;

// Makers of the long-lived parts; the controller calls each at most once, except the audio level
// monitor, of which one is made per capture attempt.
struct AppFactories {
    std::function<std::unique_ptr<OverlayPresenting>(OverlayPreferences&, VisualizerModel&)> makeOverlay;
    std::function<std::unique_ptr<SettingsWindowPresenting>(OverlayPreferences&, VisualizerModel&,
                                                            PlaybackStatus&, SettingsActions,
                                                            bool launchAtLoginEnabled)>
        makeSettingsWindow;
    std::function<std::unique_ptr<StatusMenuPresenting>(MenuCommandHandler)> makeStatusMenu;
    std::function<std::unique_ptr<PlaybackMonitoring>(EnabledPlayersSupplier, SnapshotCallback, PlayerSeenCallback)>
        makePlaybackMonitor;
    std::function<std::unique_ptr<AudioLevelMonitoring>(FrameCallback, FailureCallback)> makeAudioLevelMonitor;
};

}  // namespace lorvane
