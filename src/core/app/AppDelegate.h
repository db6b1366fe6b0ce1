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

namespace lorvane {

// The services the controller is built over; every pointer must outlive the controller.
struct AppEnvironment {
    std::shared_ptr<KeyValueStore> defaults;
    MainQueue* mainQueue = nullptr;
    // Absolute dates for the capture back-off.
    const Clock* dates = nullptr;
    LoginItemService* loginItem = nullptr;
    AlertPresenting* alerts = nullptr;
    AudioSettingsOpening* audioSettings = nullptr;
    ApplicationTerminating* application = nullptr;
    AppFactories factories;
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
    void retryAudioCapture();
    // Answers whether the login item is enabled afterwards.
    bool setLaunchAtLogin(bool enabled);
    void openSettingsWindow();
    void openAudioCaptureSettings();
    void refreshMenuState();

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

    // The settings window's callbacks, bound to the setters above; each does nothing once the
    // controller is gone (the login-item one then answers false).
    SettingsActions settingsActions();

    // State, for the views and for tests.
    OverlayPreferences& preferences() { return preferences_; }
    VisualizerModel& visualizerModel() { return visualizerModel_; }
    bool hasAudioLevelMonitor() const { return audioLevelMonitor_ != nullptr; }
    std::optional<double> audioCaptureRetryAfter() const { return audioCaptureRetryAfter_; }
    const PlaybackStatus& playbackStatus() const { return playbackStatus_; }
    std::optional<MusicPlayer> currentMusicPlayer() const { return playbackStatus_.player(); }
    MusicPlaybackState currentPlaybackState() const { return playbackStatus_.state(); }
    MenuState menuState() const;
    bool launchAtLoginEnabled() const;

private:
    void configureSettingsWindow();
    void configureStatusItem();
    void startAudioLevelMonitorIfNeeded();
    void stopAudioLevelMonitor();
    void dropAudioLevelMonitor();
    void updateOverlayVisibility();
    void stopBranch();
    void audioAndVisibilityStep(bool allOn);
    void frameDidChange(std::uint64_t run, const AudioVisualizationFrame& frame);
    void captureDidFail(std::uint64_t run, AudioCaptureFailure failure);
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
    std::unique_ptr<StatusMenuPresenting> statusMenu_;
    // Numbers each capture attempt, so a dropped monitor can no longer reach the controller.
    std::uint64_t audioCaptureRun_ = 0;
    // Last, so it dies first: callbacks see the controller gone while its parts are torn down.
    LifetimeToken lifetime_;
};

}  // namespace lorvane
