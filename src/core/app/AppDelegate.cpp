#include "core/app/AppDelegate.h"

#include <cstdlib>
#include <string_view>
#include <utility>

#include "core/Logging.h"

namespace lorvane {

namespace {

// Wraps a member call so that it does nothing once the controller is gone.
template <typename Result, typename Call>
auto weaklyOr(Result fallback, AppDelegate* self, std::weak_ptr<bool> alive, Call call) {
    return [self, alive = std::move(alive), call = std::move(call), fallback](auto&&... args) -> Result {
        if (alive.expired()) return fallback;
        return call(*self, std::forward<decltype(args)>(args)...);
    };
}

template <typename Call>
auto weakly(AppDelegate* self, std::weak_ptr<bool> alive, Call call) {
    return [self, alive = std::move(alive), call = std::move(call)](auto&&... args) {
        if (alive.expired()) return;
        call(*self, std::forward<decltype(args)>(args)...);
    };
}

}  // namespace

AppDelegate::AppDelegate(AppEnvironment environment)
    : environment_(std::move(environment)), preferences_(environment_.defaults) {}

AppDelegate::~AppDelegate() = default;

double AppDelegate::now() const { return environment_.steadyClock ? environment_.steadyClock->now() : 0.0; }

// MARK: Lifecycle

void AppDelegate::applicationDidFinishLaunching() {
    auto& factories = environment_.factories;
    if (factories.makeOverlay) overlayController_ = factories.makeOverlay(preferences_, visualizerModel_);
    configureSettingsWindow();
    configureStatusItem();

    if (factories.makePlaybackMonitor) {
        const auto alive = lifetime_.weak();
        EnabledPlayersSupplier enabledPlayers = [this, alive] {
            if (alive.expired()) return EnabledPlayers{{}, false, {}};
            return preferences_.enabledPlayerChoice();
        };
        SnapshotCallback snapshotDidChange = weakly(
            this, alive, [](AppDelegate& self, const MusicPlaybackSnapshot& snapshot) {
                self.handlePlaybackSnapshot(snapshot);
            });
        PlayerSeenCallback playerSeen =
            weakly(this, alive, [](AppDelegate& self, const PlaybackPlayer& player) { self.handlePlayerSeen(player); });
        playbackMonitor_ = factories.makePlaybackMonitor(std::move(enabledPlayers), std::move(snapshotDidChange),
                                                         std::move(playerSeen));
        if (playbackMonitor_) playbackMonitor_->start();
    }

    // The settings window comes up once at every launch, after the tray icon exists.
    if (environment_.mainQueue && !environment_.startInBackground) {
        environment_.mainQueue->post(weakly(this, lifetime_.weak(), [](AppDelegate& self) { self.openSettingsWindow(); }));
    }
}

bool AppDelegate::applicationShouldHandleReopen(bool /*hasVisibleWindows*/) {
    openSettingsWindow();
    return true;
}

void AppDelegate::applicationWillTerminate() {
    if (playbackMonitor_) playbackMonitor_->stop();
    if (audioLevelMonitor_) audioLevelMonitor_->stop();
}

void AppDelegate::configureSettingsWindow() {
    if (!environment_.factories.makeSettingsWindow) return;
    settingsWindowController_ = environment_.factories.makeSettingsWindow(
        preferences_, visualizerModel_, playbackStatus_, settingsActions(), launchAtLoginEnabled());
}

void AppDelegate::configureStatusItem() {
    if (!environment_.factories.makeStatusMenu) return;
    MenuCommandHandler handler =
        weakly(this, lifetime_.weak(),
               [](AppDelegate& self, MenuCommand command, const std::optional<std::string>& representedObject) {
                   self.perform(command, representedObject);
               });
    statusMenu_ = environment_.factories.makeStatusMenu(std::move(handler));
    if (!statusMenu_) return;
    // The menu observes the state from here on; nothing refreshes it by hand.
    statusMenuBinding_ = std::make_unique<StatusMenuBinding>(*statusMenu_, preferences_, visualizerModel_,
                                                             playbackStatus_, [this] { return launchAtLoginEnabled(); });
    const auto alive = lifetime_.weak();
    StatusMenuEvents events;
    events.menuVisibilityChanged = weakly(this, alive, [](AppDelegate& self, bool open) {
        if (!self.statusMenuBinding_) return;
        if (open) {
            self.statusMenuBinding_->menuWillOpen();
        } else {
            self.statusMenuBinding_->menuDidClose();
        }
    });
    events.trayHostChanged =
        weakly(this, alive, [](AppDelegate& self, bool available) { self.trayHost_.setAvailable(available); });
    statusMenu_->setEvents(std::move(events));
}

SettingsActions AppDelegate::settingsActions() {
    const auto alive = lifetime_.weak();
    SettingsActions actions;
    actions.setOverlayEnabled = weakly(this, alive, [](AppDelegate& self, bool value) { self.setOverlayEnabled(value); });
    actions.setAutoShow = weakly(this, alive, [](AppDelegate& self, bool value) { self.setAutoShow(value); });
    actions.setAvoidsCoveringWindows =
        weakly(this, alive, [](AppDelegate& self, bool value) { self.setAvoidsCoveringWindows(value); });
    actions.setAudioResponsive =
        weakly(this, alive, [](AppDelegate& self, bool value) { self.setAudioResponsive(value); });
    actions.setDisplayMode =
        weakly(this, alive, [](AppDelegate& self, OverlayDisplayMode mode) { self.setDisplayMode(mode); });
    actions.setPosition =
        weakly(this, alive, [](AppDelegate& self, OverlayPosition position) { self.setPosition(position); });
    actions.setColor = weakly(this, alive, [](AppDelegate& self, WaveColor color) { self.setColor(color); });
    actions.setRenderer =
        weakly(this, alive, [](AppDelegate& self, RendererChoice choice) { self.setRenderer(choice); });
    actions.setPlayerEnabled = weakly(
        this, alive, [](AppDelegate& self, MusicPlayer player, bool enabled) { self.setPlayer(player, enabled); });
    actions.setOtherPlayersEnabled =
        weakly(this, alive, [](AppDelegate& self, bool enabled) { self.setOtherPlayersEnabled(enabled); });
    actions.setOtherPlayerEnabled = weakly(this, alive, [](AppDelegate& self, const std::string& entry, bool enabled) {
        self.setOtherPlayerEnabled(entry, enabled);
    });
    actions.retryAudioCapture = weakly(this, alive, [](AppDelegate& self) { self.retryAudioCapture(); });
    actions.openAudioCaptureSettings =
        weakly(this, alive, [](AppDelegate& self) { self.openAudioCaptureSettings(); });
    actions.setLaunchAtLogin =
        weaklyOr(false, this, alive, [](AppDelegate& self, bool enabled) { return self.setLaunchAtLogin(enabled); });
    actions.isLaunchAtLoginEnabled =
        weaklyOr(false, this, alive, [](AppDelegate& self) { return self.launchAtLoginEnabled(); });
    return actions;
}

// MARK: Setters

void AppDelegate::setOverlayEnabled(bool enabled) {
    preferences_.setOverlayEnabled(enabled);
    audioAndVisibilityStep(preferences_.overlayEnabled() && preferences_.autoShow() &&
                           preferences_.audioResponsive() &&
                           currentPlaybackState() == MusicPlaybackState::playing);
}

void AppDelegate::setAutoShow(bool enabled) {
    preferences_.setAutoShow(enabled);
    audioAndVisibilityStep(preferences_.autoShow() && preferences_.overlayEnabled() &&
                           preferences_.audioResponsive() &&
                           currentPlaybackState() == MusicPlaybackState::playing);
}

// A user action that turns the overlay back on always gets a fresh capture attempt, even inside a back-off.
void AppDelegate::audioAndVisibilityStep(bool allOn) {
    if (allOn) {
        audioCaptureRetryAfter_.reset();
        startAudioLevelMonitorIfNeeded();
    } else {
        stopAudioLevelMonitor();
        visualizerModel_.pause();
    }
    updateOverlayVisibility();
}

void AppDelegate::setAudioResponsive(bool enabled) {
    preferences_.setAudioResponsive(enabled);
    const bool playing = currentPlaybackState() == MusicPlaybackState::playing;
    if (preferences_.audioResponsive() && preferences_.overlayEnabled() && preferences_.autoShow() && playing) {
        audioCaptureRetryAfter_.reset();
        startAudioLevelMonitorIfNeeded();
    } else {
        stopAudioLevelMonitor();
        // The wave keeps moving on the fixed level instead of freezing.
        if (playing) visualizerModel_.useFallbackAudio(std::nullopt);
    }
}

void AppDelegate::setAvoidsCoveringWindows(bool enabled) {
    preferences_.setAvoidsCoveringWindows(enabled);
    if (overlayController_) {
        overlayController_->applyWindowLevel();
        overlayController_->reposition();
    }
}

void AppDelegate::setDisplayMode(OverlayDisplayMode mode) {
    preferences_.setDisplayMode(mode);
    if (overlayController_) {
        overlayController_->applyWindowLevel();
        overlayController_->reposition();
    }
}

void AppDelegate::setPosition(OverlayPosition position) {
    preferences_.setPosition(position);
    if (overlayController_) overlayController_->reposition();
}

void AppDelegate::setColor(WaveColor color) {
    preferences_.setColor(color);
}

void AppDelegate::setRenderer(RendererChoice choice) { preferences_.setRenderer(choice); }

void AppDelegate::setPlayer(MusicPlayer player, bool enabled) {
    preferences_.setPlayer(player, enabled);
    enabledPlayersDidChange();
}

void AppDelegate::setOtherPlayersEnabled(bool enabled) {
    preferences_.setOtherPlayersEnabled(enabled);
    enabledPlayersDidChange();
}

void AppDelegate::setOtherPlayerEnabled(const std::string& desktopEntry, bool enabled) {
    preferences_.setOtherPlayerEnabled(desktopEntry, enabled);
    enabledPlayersDidChange();
}

void AppDelegate::enabledPlayersDidChange() {
    const auto& current = playbackStatus_.player();
    if (current && !preferences_.enabledPlayerChoice().contains(*current)) {
        // Hide the overlay and stop capture now, before the monitor decides again.
        handlePlaybackSnapshot(MusicPlaybackSnapshot::noPlayer());
    }
    if (playbackMonitor_) playbackMonitor_->start();
}

void AppDelegate::handlePlayerSeen(const PlaybackPlayer& player) {
    if (player.isOther() && !player.desktopEntry.empty()) preferences_.noteSeenOtherPlayer(player.desktopEntry);
}

void AppDelegate::retryAudioCapture() {
    // The overlay switches are deliberately not consulted: retrying is about capture alone.
    if (!preferences_.audioResponsive() || currentPlaybackState() != MusicPlaybackState::playing) return;
    stopAudioLevelMonitor();
    audioCaptureRetryAfter_.reset();
    startAudioLevelMonitorIfNeeded();
}

bool AppDelegate::launchAtLoginEnabled() const {
    return environment_.loginItem && environment_.loginItem->isEnabled();
}

void AppDelegate::loginItemDidChange() {
    if (statusMenuBinding_) statusMenuBinding_->loginItemChanged();
}

bool AppDelegate::setLaunchAtLogin(bool enabled) {
    if (environment_.loginItem && enabled != environment_.loginItem->isEnabled()) {
        const auto error = enabled ? environment_.loginItem->registerItem() : environment_.loginItem->unregisterItem();
        if (error && environment_.alerts) environment_.alerts->showWarning(loginItemAlertMessage, *error);
    }
    // Read once now; otherwise the menu reads it when it opens.
    if (statusMenuBinding_) statusMenuBinding_->loginItemChanged();
    return launchAtLoginEnabled();
}

void AppDelegate::openSettingsWindow() {
    if (settingsWindowController_) settingsWindowController_->present();
}

void AppDelegate::openAudioCaptureSettings() {
    if (environment_.audioSettings) environment_.audioSettings->openAudioCaptureSettings();
}

MenuState AppDelegate::menuState() const {
    MenuInputs inputs;
    inputs.player = playbackStatus_.player();
    inputs.playbackState = playbackStatus_.state();
    inputs.captureStatus = visualizerModel_.captureStatus();
    inputs.audioLevel = visualizerModel_.audioLevel();
    inputs.launchAtLoginEnabled = launchAtLoginEnabled();
    return makeMenuState(inputs, preferences_);
}

// MARK: Menu actions

void AppDelegate::perform(MenuCommand command, const std::optional<std::string>& representedObject) {
    switch (command) {
        case MenuCommand::openAudioCaptureSettings:
            return openAudioCaptureSettings();
        case MenuCommand::openSettingsWindow:
            return openSettingsWindow();
        case MenuCommand::toggleOverlayEnabled:
            return toggleOverlayEnabled();
        case MenuCommand::toggleAutoShow:
            return toggleAutoShow();
        case MenuCommand::toggleAvoidCovering:
            return toggleAvoidCovering();
        case MenuCommand::toggleAudioResponsive:
            return toggleAudioResponsive();
        case MenuCommand::retryAudioCapture:
            return retryAudioCapture();
        case MenuCommand::selectCompactMode:
            return selectCompactMode();
        case MenuCommand::selectFullscreenMode:
            return selectFullscreenMode();
        case MenuCommand::selectTopPosition:
            return selectTopPosition();
        case MenuCommand::selectCenterPosition:
            return selectCenterPosition();
        case MenuCommand::selectBottomPosition:
            return selectBottomPosition();
        case MenuCommand::selectWaveColor:
            return selectWaveColor(representedObject);
        case MenuCommand::toggleLaunchAtLogin:
            return toggleLaunchAtLogin();
        case MenuCommand::quitApplication:
            return quitApplication();
    }
}

void AppDelegate::toggleOverlayEnabled() { setOverlayEnabled(!preferences_.overlayEnabled()); }
void AppDelegate::toggleAutoShow() { setAutoShow(!preferences_.autoShow()); }
void AppDelegate::toggleAvoidCovering() { setAvoidsCoveringWindows(!preferences_.avoidsCoveringWindows()); }
void AppDelegate::toggleAudioResponsive() { setAudioResponsive(!preferences_.audioResponsive()); }
void AppDelegate::selectCompactMode() { setDisplayMode(OverlayDisplayMode::compact); }
void AppDelegate::selectFullscreenMode() { setDisplayMode(OverlayDisplayMode::fullscreenFog); }
void AppDelegate::selectTopPosition() { setPosition(OverlayPosition::top); }
void AppDelegate::selectCenterPosition() { setPosition(OverlayPosition::center); }
void AppDelegate::selectBottomPosition() { setPosition(OverlayPosition::bottom); }

void AppDelegate::selectWaveColor(const std::optional<std::string>& representedObject) {
    if (!representedObject) return;
    if (const auto color = fromRawValue<WaveColor>(*representedObject)) setColor(*color);
}

void AppDelegate::toggleLaunchAtLogin() { setLaunchAtLogin(!launchAtLoginEnabled()); }

void AppDelegate::quitApplication() {
    if (environment_.application) environment_.application->terminate();
}

// MARK: Playback and capture

void AppDelegate::handlePlaybackSnapshot(const MusicPlaybackSnapshot& snapshot) {
    playbackStatus_.update(snapshot.player, snapshot.state);
    visualizerModel_.updateFallbackLevel(snapshot.volumeLevel);

    if (snapshot.state != MusicPlaybackState::playing) {
        // A stop of playback forgets any failure back-off.
        audioCaptureRetryAfter_.reset();
        return stopBranch();
    }
    if (preferences_.audioResponsive() && preferences_.overlayEnabled() && preferences_.autoShow()) {
        startAudioLevelMonitorIfNeeded();
        updateOverlayVisibility();
        return;
    }
    stopBranch();
}

void AppDelegate::stopBranch() {
    stopAudioLevelMonitor();
    visualizerModel_.pause();
    updateOverlayVisibility();
}

void AppDelegate::updateOverlayVisibility() {
    if (!overlayController_) return;
    if (preferences_.overlayEnabled() && preferences_.autoShow() &&
        currentPlaybackState() == MusicPlaybackState::playing) {
        overlayController_->applyWindowLevel();
        overlayController_->reposition();
        overlayController_->orderFrontRegardless();
    } else {
        overlayController_->orderOut();
    }
}

void AppDelegate::startAudioLevelMonitorIfNeeded() {
    if (audioLevelMonitor_) return;
    if (audioCaptureRetryAfter_ && *audioCaptureRetryAfter_ > now()) return;
    if (!environment_.factories.makeAudioLevelMonitor) return;

    const std::uint64_t run = ++audioCaptureRun_;
    const auto alive = lifetime_.weak();
    FrameCallback frameCallback = weakly(
        this, alive, [run](AppDelegate& self, const AudioVisualizationFrame& frame) { self.frameDidChange(run, frame); });
    FailureCallback failureCallback = weakly(
        this, alive, [run](AppDelegate& self, AudioCaptureFailureReport failure) { self.captureDidFail(run, failure); });
    audioLevelMonitor_ =
        environment_.factories.makeAudioLevelMonitor(std::move(frameCallback), std::move(failureCallback));
    if (!audioLevelMonitor_) return;
    // start() may report a failure at once, which drops the monitor again; it stays alive until the
    // current main-queue turn is over.
    audioLevelMonitor_->start();
}

void AppDelegate::stopAudioLevelMonitor() {
    if (!audioLevelMonitor_) return;
    audioLevelMonitor_->stop();
    dropAudioLevelMonitor();
}

void AppDelegate::dropAudioLevelMonitor() {
    if (!audioLevelMonitor_) return;
    ++audioCaptureRun_;
    std::shared_ptr<AudioLevelMonitoring> released(std::move(audioLevelMonitor_));
    // The monitor may be the caller of the callback that dropped it: release it on a later turn.
    if (environment_.mainQueue) environment_.mainQueue->post([released] {});
}

void AppDelegate::frameDidChange(std::uint64_t run, const AudioVisualizationFrame& frame) {
    if (run != audioCaptureRun_ || !audioLevelMonitor_) return;
    // A delivered frame proves capture works.
    audioCaptureRetryAfter_.reset();
    visualizerModel_.updateLiveFrame(frame);
}

void AppDelegate::captureDidFail(std::uint64_t run, AudioCaptureFailureReport failure) {
    if (run != audioCaptureRun_ || !audioLevelMonitor_) return;
    // Only the reference is dropped: the run has already ended itself.
    dropAudioLevelMonitor();
    const double delay =
        failure.failure == AudioCaptureFailure::permissionRequired ? permissionRetryDelay : failureRetryDelay;
    const std::string_view words = audioCaptureReasonText(failure.reason);
    const QString reason = QString::fromUtf8(words.data(), static_cast<qsizetype>(words.size()));
    if (failure.failure == AudioCaptureFailure::silentOrProtectedAudio) {
        // Quiet music is no fault; the status already says what happened.
        qCInfo(lcCapture).noquote() << "Audio capture paused:" << reason << "- trying again in" << delay << "s";
    } else {
        qCWarning(lcCapture).noquote() << "Audio capture failed:" << reason << "- trying again in" << delay
                                       << "s, or as soon as the sound server is back";
    }
    audioCaptureRetryAfter_ = now() + delay;
    scheduleBackOffEnd(delay);
    visualizerModel_.useFallbackAudio(failure);
}

bool AppDelegate::captureWanted() const {
    return currentPlaybackState() == MusicPlaybackState::playing && preferences_.audioResponsive() &&
           preferences_.overlayEnabled() && preferences_.autoShow();
}

void AppDelegate::scheduleBackOffEnd(double seconds) {
    const std::uint64_t backOff = ++audioCaptureBackOff_;
    if (!environment_.mainQueue) return;
    environment_.mainQueue->postAfter(
        seconds, weakly(this, lifetime_.weak(), [backOff](AppDelegate& self) { self.backOffDidEnd(backOff); }));
}

void AppDelegate::backOffDidEnd(std::uint64_t backOff) {
    // The timer is the authority: it runs on the queue's monotonic time, so whatever any clock reads
    // now, this back-off is over.
    if (backOff != audioCaptureBackOff_ || !audioCaptureRetryAfter_) return;
    audioCaptureRetryAfter_.reset();
    if (!captureWanted()) return;
    qCDebug(lcCapture) << "Capture back-off over: trying again";
    startAudioLevelMonitorIfNeeded();
}

void AppDelegate::soundServerDidAppear() {
    // Only a capture that is backing off waits for the server; a live or idle one has nothing to do.
    if (!audioCaptureRetryAfter_ || audioLevelMonitor_) return;
    audioCaptureRetryAfter_.reset();
    ++audioCaptureBackOff_;
    if (!captureWanted()) return;
    qCInfo(lcCapture) << "The sound server is back: trying audio capture again";
    startAudioLevelMonitorIfNeeded();
}

}  // namespace lorvane
