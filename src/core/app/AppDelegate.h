#pragma once
// The application controller: owns every long-lived part, wires their callbacks together and makes
// the few decisions that tie them: when the overlay is on screen, when system-audio capture runs,
// when a failed capture may be retried, and what every user action writes and refreshes.
// Main thread only.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "core/Clock.h"
#include "core/KeyValueStore.h"
#include "core/MainQueue.h"
#include "core/OverlayPreferences.h"
#include "core/VisualizerModel.h"
#include "core/app/AppServices.h"
#include "core/app/StatusMenuBinding.h"
#include "core/app/TrayHost.h"

namespace lorvane {

// The services the controller is built over; every pointer must outlive the controller.
struct AppEnvironment {
    std::shared_ptr<KeyValueStore> defaults;
    MainQueue* mainQueue = nullptr;
    // Monotonic seconds for the capture back-off, so a change of the wall clock cannot move a retry.
    const Clock* steadyClock = nullptr;
    LoginItemService* loginItem = nullptr;
    AlertPresenting* alerts = nullptr;
    AudioSettingsOpening* audioSettings = nullptr;
    ApplicationTerminating* application = nullptr;
    AppFactories factories;
    // Started in the tray only (e.g. at login): the settings window is not opened at launch.
    bool startInBackground = false;
};

class AppDelegate {
public:
    static constexpr double permissionRetryDelay = 300.0;
    static constexpr double failureRetryDelay = 30.0;
    static constexpr const char* loginItemAlertMessage = "Unable to Change Login Item Settings";

    explicit AppDelegate(AppEnvironment environment);
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    // Lifecycle.
    void applicationDidFinishLaunching();
    // Starting the program again while it runs: always brings up the settings window.
    bool applicationShouldHandleReopen(bool hasVisibleWindows);
    void applicationWillTerminate();

    // Setters shared by the tray menu and the settings window.
    void setOverlayEnabled(bool enabled);
    void setAutoShow(bool enabled);
    void setAudioResponsive(bool enabled);
    void setAvoidsCoveringWindows(bool enabled);
    void setDisplayMode(OverlayDisplayMode mode);
    void setPosition(OverlayPosition position);
    void setColor(WaveColor color);
    void setRenderer(RendererChoice choice);
    void setPlayer(MusicPlayer player, bool enabled);
    // Other players: all at once, and one by one by desktop entry.
    void setOtherPlayersEnabled(bool enabled);
    void setOtherPlayerEnabled(const std::string& desktopEntry, bool enabled);
    void retryAudioCapture();
    // The sound server has (re)appeared: a capture that is backing off is retried at once.
    void soundServerDidAppear();
    // Answers whether the login item is enabled afterwards.
    bool setLaunchAtLogin(bool enabled);
    void openSettingsWindow();
    void openAudioCaptureSettings();

    // Menu actions.
    void perform(MenuCommand command, const std::optional<std::string>& representedObject = std::nullopt);
    void toggleOverlayEnabled();
    void toggleAutoShow();
    void toggleAvoidCovering();
    void toggleAudioResponsive();
    void selectCompactMode();
    void selectFullscreenMode();
    void selectTopPosition();
    void selectCenterPosition();
    void selectBottomPosition();
    // Ignores anything that is not a colour's raw value.
    void selectWaveColor(const std::optional<std::string>& representedObject);
    void toggleLaunchAtLogin();
    void quitApplication();

    // The playback monitor's report.
    void handlePlaybackSnapshot(const MusicPlaybackSnapshot& snapshot);
    // The playback monitor came across a player; other players are remembered for the settings.
    void handlePlayerSeen(const PlaybackPlayer& player);

    // The settings window's callbacks, bound to the setters above; each does nothing once the
    // controller is gone (the login-item one then answers false).
    SettingsActions settingsActions();

    // State, for the views and for tests.
    OverlayPreferences& preferences() { return preferences_; }
    VisualizerModel& visualizerModel() { return visualizerModel_; }
    bool hasAudioLevelMonitor() const { return audioLevelMonitor_ != nullptr; }
    std::optional<double> audioCaptureRetryAfter() const { return audioCaptureRetryAfter_; }
    const PlaybackStatus& playbackStatus() const { return playbackStatus_; }
    std::optional<PlaybackPlayer> currentMusicPlayer() const { return playbackStatus_.player(); }
    MusicPlaybackState currentPlaybackState() const { return playbackStatus_.state(); }
    // What the menu would show now, read afresh (the tray itself follows changes as they happen).
    MenuState menuState() const;
    bool launchAtLoginEnabled() const;
    // The login entry or its program changed on disk, not through the controller.
    void loginItemDidChange();
    // Whether the desktop shows tray icons, as the tray found out.
    TrayHost& trayHost() { return trayHost_; }

private:
    void configureSettingsWindow();
    void configureStatusItem();
    void startAudioLevelMonitorIfNeeded();
    void stopAudioLevelMonitor();
    void dropAudioLevelMonitor();
    void updateOverlayVisibility();
    void stopBranch();
    // After a change of the enabled players: drop a player no longer enabled at once, then decide again.
    void enabledPlayersDidChange();
    void audioAndVisibilityStep(bool allOn);
    void frameDidChange(std::uint64_t run, const AudioVisualizationFrame& frame);
    void captureDidFail(std::uint64_t run, AudioCaptureFailureReport failure);
    // The back-off's timer: capture is retried when it ends, not only at the next changed snapshot.
    void scheduleBackOffEnd(double seconds);
    void backOffDidEnd(std::uint64_t backOff);
    // Playing, with audio response, the overlay and automatic showing on.
    bool captureWanted() const;
    double now() const;

    AppEnvironment environment_;
    OverlayPreferences preferences_;
    VisualizerModel visualizerModel_;
    std::unique_ptr<OverlayPresenting> overlayController_;
    std::unique_ptr<SettingsWindowPresenting> settingsWindowController_;
    std::unique_ptr<PlaybackMonitoring> playbackMonitor_;
    std::unique_ptr<AudioLevelMonitoring> audioLevelMonitor_;
    std::optional<double> audioCaptureRetryAfter_;
    PlaybackStatus playbackStatus_;
    TrayHost trayHost_;
    std::unique_ptr<StatusMenuPresenting> statusMenu_;
    // After the menu, so it stops observing before the menu goes.
    std::unique_ptr<StatusMenuBinding> statusMenuBinding_;
    // Numbers each capture attempt, so a dropped monitor can no longer reach the controller.
    std::uint64_t audioCaptureRun_ = 0;
    // Numbers each back-off, so the timer of an earlier one does nothing.
    std::uint64_t audioCaptureBackOff_ = 0;
    // Last, so it dies first: callbacks see the controller gone while its parts are torn down.
    LifetimeToken lifetime_;
};

}  // namespace lorvane
