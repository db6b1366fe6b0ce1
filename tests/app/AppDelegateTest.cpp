// The controller's decisions, with the monitors, the overlay, the tray and the login item replaced.

#include <gtest/gtest.h>

#include <limits>

#include "app/AppFakes.h"

using namespace lorvane;
using namespace lorvane::test;

namespace {

class AppDelegateTest : public ::testing::Test {
protected:
    void SetUp() override { h.launch(); }
    AppHarness h;
    AppDelegate& app() { return *h.app; }
    bool monitorLive() const { return h.app->hasAudioLevelMonitor(); }
};

}  // namespace

// MARK: Start and end

TEST(AppDelegateLaunch, BuildsThePartsInOrderAndOpensSettingsAfterTheTrayExists) {
    AppHarness h;
    h.app->applicationDidFinishLaunching();
    const std::vector<std::string> expected{"make.overlay", "make.settings", "make.menu",
                                            "menu.apply",   "make.playback", "playback.start"};
    EXPECT_EQ(h.journal.calls, expected);
    // The settings window is opened from the main queue, not during launch itself.
    EXPECT_EQ(h.settings->presentCount, 0);
    h.queue.runPending();
    EXPECT_EQ(h.settings->presentCount, 1);
    h.queue.runPending();
    EXPECT_EQ(h.settings->presentCount, 1);
}

TEST(AppDelegateLaunch, SettingsWindowIsSeededWithTheLoginItemState) {
    AppHarness h;
    h.loginItem.enabled = true;
    h.launch();
    EXPECT_TRUE(h.settings->launchAtLoginEnabled);
}

TEST(AppDelegateLaunch, PlaybackMonitorReadsTheEnabledPlayersAfresh) {
    AppHarness h;
    h.launch();
    EXPECT_EQ(h.playback->enabledPlayers(), EnabledPlayers::all());
    h.app->setPlayer(MusicPlayer::qqMusic, false);
    EXPECT_EQ(h.playback->enabledPlayers().named, (MusicPlayerSet{MusicPlayer::appleMusic, MusicPlayer::netEaseMusic,
                                                                  MusicPlayer::spotify}));
    h.app->setOtherPlayersEnabled(false);
    h.app->setOtherPlayerEnabled("org.gnome.Music", false);
    EXPECT_FALSE(h.playback->enabledPlayers().otherPlayers);
    EXPECT_EQ(h.playback->enabledPlayers().disabledOtherPlayers, std::set<std::string>{"org.gnome.Music"});
}

TEST(AppDelegateLaunch, CallbacksDoNothingOnceTheControllerIsGone) {
    AppHarness h;
    h.launch();
    auto* playback = h.playback;
    SettingsActions actions = h.settings->actions;
    auto enabledPlayers = playback->enabledPlayers;
    auto snapshotDidChange = playback->snapshotDidChange;
    auto playerSeen = playback->playerSeen;
    MenuCommandHandler handler = h.menu->handler;
    h.play();
    auto run = h.lastRun();
    const auto writes = h.store->writeCount();
    h.app.reset();

    EXPECT_TRUE(enabledPlayers().empty());
    playerSeen(PlaybackPlayer::other("vlc", "VLC media player"));
    snapshotDidChange({MusicPlayer::spotify, MusicPlaybackState::paused, 0.1});
    run->frameDidChange({0.5, 1, 0, {}});
    run->captureDidFail(AudioCaptureFailure::unavailable);
    actions.setOverlayEnabled(false);
    actions.setColor(WaveColor::neon);
    actions.retryAudioCapture();
    EXPECT_FALSE(actions.setLaunchAtLogin(true));
    handler(MenuCommand::toggleAutoShow, std::nullopt);
    EXPECT_EQ(h.store->writeCount(), writes);
    EXPECT_EQ(h.loginItem.registerCalls, 0);
}

TEST_F(AppDelegateTest, TerminationStopsThePlaybackMonitorThenCaptureAndWritesNothing) {
    h.play();
    const auto writes = h.store->writeCount();
    h.journal.clear();
    app().applicationWillTerminate();
    EXPECT_EQ(h.journal.calls, (std::vector<std::string>{"playback.stop", "audio.stop"}));
    EXPECT_EQ(h.store->writeCount(), writes);
}

TEST_F(AppDelegateTest, TerminationWithoutCaptureStopsOnlyThePlaybackMonitor) {
    h.journal.clear();
    app().applicationWillTerminate();
    EXPECT_EQ(h.journal.calls, (std::vector<std::string>{"playback.stop"}));
}

TEST_F(AppDelegateTest, ReopenAlwaysBringsUpTheSettingsWindow) {
    const int before = h.settings->presentCount;
    EXPECT_TRUE(app().applicationShouldHandleReopen(false));
    EXPECT_TRUE(app().applicationShouldHandleReopen(true));
    EXPECT_EQ(h.settings->presentCount, before + 2);
}

TEST_F(AppDelegateTest, QuitAsksTheApplicationToTerminate) {
    h.menu->handler(MenuCommand::quitApplication, std::nullopt);
    EXPECT_EQ(h.application.terminations, 1);
}

TEST_F(AppDelegateTest, OpenSettingsAndPermissionsItemsReachTheirTargets) {
    const int before = h.settings->presentCount;
    h.menu->handler(MenuCommand::openSettingsWindow, std::nullopt);
    EXPECT_EQ(h.settings->presentCount, before + 1);
    h.menu->handler(MenuCommand::openAudioCaptureSettings, std::nullopt);
    h.settings->actions.openAudioCaptureSettings();
    EXPECT_EQ(h.audioSettings.opened, 2);
}

// MARK: Snapshots

TEST_F(AppDelegateTest, PlayingWithEverythingOnStartsCaptureAndShowsTheOverlay) {
    h.journal.clear();
    h.play(MusicPlayer::spotify, 0.3);
    // The menu follows the playback status as soon as it changed.
    EXPECT_EQ(h.journal.calls, (std::vector<std::string>{"menu.apply", "make.audio", "audio.start",
                                                         "overlay.applyWindowLevel", "overlay.reposition",
                                                         "overlay.orderFront"}));
    EXPECT_TRUE(h.overlay->visible);
    EXPECT_EQ(app().currentMusicPlayer(), MusicPlayer::spotify);
    EXPECT_EQ(app().currentPlaybackState(), MusicPlaybackState::playing);
    EXPECT_EQ(app().visualizerModel().fallbackLevel(), 0.3);
    EXPECT_EQ(h.menuState().playbackStatusTitle, "Spotify: Playing");
}

TEST_F(AppDelegateTest, APlayingSnapshotDuringCaptureStartsNoSecondRun) {
    h.play(MusicPlayer::spotify, 0.3);
    h.play(MusicPlayer::spotify, 0.4);
    EXPECT_EQ(h.runs.size(), 1u);
    EXPECT_EQ(h.lastRun()->stops, 0);
}

TEST_F(AppDelegateTest, TurningAutoShowOffHidesTheOverlayAlthoughItStaysEnabled) {
    h.play();
    ASSERT_TRUE(h.overlay->visible);
    app().setAutoShow(false);
    EXPECT_FALSE(h.overlay->visible);
    EXPECT_TRUE(app().preferences().overlayEnabled());
    EXPECT_FALSE(monitorLive());
    EXPECT_EQ(h.lastRun()->stops, 1);
    EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::waiting);
    // And a later playing snapshot does not bring it back: there is no other path to show it.
    h.play(MusicPlayer::spotify, 0.9);
    EXPECT_FALSE(h.overlay->visible);
    EXPECT_EQ(h.runs.size(), 1u);
}

TEST_F(AppDelegateTest, WithOverlayDisabledPlayingShowsNothingAndCapturesNothing) {
    app().setOverlayEnabled(false);
    h.play();
    EXPECT_FALSE(h.overlay->visible);
    EXPECT_TRUE(h.runs.empty());
}

TEST_F(AppDelegateTest, NonPlayingStatesHideTheOverlayStopCaptureAndPauseTheModel) {
    for (MusicPlaybackState state : {MusicPlaybackState::paused, MusicPlaybackState::stopped,
                                     MusicPlaybackState::notRunning, MusicPlaybackState::permissionDenied,
                                     MusicPlaybackState::unknown}) {
        h.play(MusicPlayer::spotify, 0.7);
        h.lastRun()->frameDidChange({0.6, 1.2, 0.5, std::vector<double>(96, 0.4)});
        ASSERT_TRUE(h.overlay->visible);
        h.snapshot(MusicPlayer::spotify, state, 0.7);
        EXPECT_FALSE(h.overlay->visible) << rawValue(state);
        EXPECT_FALSE(monitorLive());
        EXPECT_EQ(h.lastRun()->stops, 1);
        EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::waiting);
        EXPECT_EQ(app().visualizerModel().motionRate(), 0.7);
    }
}

TEST_F(AppDelegateTest, AudioResponseOffTakesTheStopBranchAndPausesTheModel) {
    app().setAudioResponsive(false);
    h.journal.clear();
    h.play(MusicPlayer::appleMusic, 0.6);
    EXPECT_TRUE(h.runs.empty());
    EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::waiting);
    EXPECT_EQ(app().visualizerModel().audioLevel(), 0.0);
    EXPECT_EQ(app().visualizerModel().motionRate(), 0.7);
    // The overlay follows overlayEnabled and autoShow only, so the paused wave is still shown.
    EXPECT_TRUE(h.overlay->visible);
}

TEST_F(AppDelegateTest, TurningAudioResponseOffSwitchesToTheFallbackWithoutPausing) {
    h.play(MusicPlayer::spotify, 0.5);
    h.lastRun()->frameDidChange({0.9, 2.0, 1.0, std::vector<double>(96, 0.5)});
    h.journal.clear();
    app().setAudioResponsive(false);
    EXPECT_EQ(h.lastRun()->stops, 1);
    EXPECT_FALSE(monitorLive());
    const auto& model = app().visualizerModel();
    EXPECT_EQ(model.captureStatus(), AudioCaptureStatus::fallback);
    EXPECT_EQ(model.audioLevel(), 0.5);
    EXPECT_DOUBLE_EQ(model.motionRate(), 0.82 + 0.72 * 0.5);
    // Visibility is not touched by the audio-only step.
    EXPECT_EQ(h.journal.count("overlay.orderOut") + h.journal.count("overlay.orderFront"), 0);
    EXPECT_TRUE(h.overlay->visible);
    EXPECT_FALSE(h.menuState().audioResponsiveChecked);
}

TEST_F(AppDelegateTest, TurningAudioResponseOffWhileNothingPlaysLeavesTheModelWaiting) {
    app().setAudioResponsive(false);
    EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::waiting);
}

TEST_F(AppDelegateTest, TurningAudioResponseBackOnStartsCaptureWithoutChangingVisibility) {
    h.play();
    app().setAudioResponsive(false);
    h.journal.clear();
    app().setAudioResponsive(true);
    EXPECT_TRUE(monitorLive());
    EXPECT_EQ(h.runs.size(), 2u);
    EXPECT_EQ(h.journal.count("overlay.orderFront"), 0);
}

// MARK: Frames and failures

TEST_F(AppDelegateTest, FramesGoLiveAndOnlyAnOpenMenuFollowsTheLevel) {
    h.play();
    h.lastRun()->frameDidChange({0.125, 1.0, 0.0, std::vector<double>(96, 0.1)});
    EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::live);
    EXPECT_EQ(h.menuState().audioStatusTitle, "Audio Analysis: Live 13%");

    // With the menu closed, further frames reach the menu not at all.
    const int applied = h.menu->applyCount;
    h.lastRun()->frameDidChange({1.0, 1.0, 0.0, std::vector<double>(96, 0.1)});
    h.lastRun()->frameDidChange({0.5, 1.1, 0.2, std::vector<double>(96, 0.3)});
    EXPECT_EQ(h.menu->applyCount, applied);

    // Opening shows the current level, and an open menu follows every change of it.
    h.menu->open();
    EXPECT_EQ(h.menuState().audioStatusTitle, "Audio Analysis: Live 50%");
    h.lastRun()->frameDidChange({1.0, 1.0, 0.0, std::vector<double>(96, 0.1)});
    EXPECT_EQ(h.menuState().audioStatusTitle, "Audio Analysis: Live 100%");
    // A frame whose level rounds to the same percentage changes nothing the menu shows.
    const int openApplied = h.menu->applyCount;
    h.lastRun()->frameDidChange({0.999, 1.2, 0.0, std::vector<double>(96, 0.4)});
    EXPECT_EQ(h.menu->applyCount, openApplied);

    h.menu->close();
    h.lastRun()->frameDidChange({0.2, 1.0, 0.0, std::vector<double>(96, 0.1)});
    EXPECT_EQ(h.menuState().audioStatusTitle, "Audio Analysis: Live 100%");
    EXPECT_EQ(h.menu->applyCount, openApplied);
}

TEST_F(AppDelegateTest, AFailureDropsTheRunWithoutStoppingItAndKeepsTheWaveShowing) {
    h.play(MusicPlayer::spotify, 0.4);
    auto run = h.lastRun();
    h.journal.clear();
    run->captureDidFail(AudioCaptureFailure::silentOrProtectedAudio);
    EXPECT_FALSE(monitorLive());
    EXPECT_EQ(run->stops, 0);
    EXPECT_EQ(h.journal.count("overlay.orderOut"), 0);
    EXPECT_TRUE(h.overlay->visible);
    EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::protectedAudio);
    EXPECT_EQ(app().visualizerModel().audioLevel(), 0.4);
    EXPECT_EQ(h.menuState().audioStatusTitle, "Audio Analysis: Protected or Muted Audio");
    // The dropped run is released once the current main-queue turn is over.
    h.queue.runPending();
    EXPECT_TRUE(run->destroyed);
}

TEST_F(AppDelegateTest, PermissionFailureBlocksCaptureFromSnapshotsFor300Seconds) {
    h.play();
    h.lastRun()->captureDidFail(AudioCaptureFailure::permissionRequired);
    EXPECT_EQ(app().audioCaptureRetryAfter(), h.clock.now() + 300.0);
    EXPECT_FALSE(h.menuState().audioPermissionHidden);

    h.advance(299.0);
    h.play(MusicPlayer::spotify, 0.51);
    EXPECT_EQ(h.runs.size(), 1u);
    EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::permissionRequired);
    // A retry time that has been reached no longer blocks.
    h.advance(1.0);
    h.play(MusicPlayer::spotify, 0.52);
    EXPECT_EQ(h.runs.size(), 2u);
    EXPECT_TRUE(monitorLive());
}

TEST_F(AppDelegateTest, OtherFailuresBlockCaptureFor30Seconds) {
    for (AudioCaptureFailure failure : {AudioCaptureFailure::silentOrProtectedAudio, AudioCaptureFailure::unavailable}) {
        const std::size_t runsBefore = h.runs.size();
        h.play(MusicPlayer::spotify, 0.3);
        ASSERT_EQ(h.runs.size(), runsBefore + 1);
        h.lastRun()->captureDidFail(failure);
        EXPECT_EQ(app().audioCaptureRetryAfter(), h.clock.now() + 30.0);
        h.advance(29.5);
        h.play(MusicPlayer::spotify, 0.31);
        EXPECT_EQ(h.runs.size(), runsBefore + 1) << rawValue(failure);
        h.advance(0.5);
        h.play(MusicPlayer::spotify, 0.32);
        EXPECT_EQ(h.runs.size(), runsBefore + 2) << rawValue(failure);
        // Leave the capture idle for the next round.
        h.snapshot(MusicPlayer::spotify, MusicPlaybackState::paused);
    }
}

TEST_F(AppDelegateTest, ANonPlayingSnapshotLiftsTheBackOffAtOnce) {
    h.play();
    h.lastRun()->captureDidFail(AudioCaptureFailure::permissionRequired);
    h.snapshot(MusicPlayer::spotify, MusicPlaybackState::paused);
    EXPECT_FALSE(app().audioCaptureRetryAfter());
    h.play();
    EXPECT_EQ(h.runs.size(), 2u);
}

TEST_F(AppDelegateTest, TurningTheOverlayOnFromTheMenuLiftsTheBackOff) {
    h.play();
    h.lastRun()->captureDidFail(AudioCaptureFailure::permissionRequired);
    h.menu->handler(MenuCommand::toggleOverlayEnabled, std::nullopt);
    EXPECT_FALSE(h.overlay->visible);
    EXPECT_EQ(h.runs.size(), 1u);
    h.menu->handler(MenuCommand::toggleOverlayEnabled, std::nullopt);
    EXPECT_FALSE(app().audioCaptureRetryAfter());
    EXPECT_EQ(h.runs.size(), 2u);
    EXPECT_TRUE(monitorLive());
    EXPECT_TRUE(h.overlay->visible);
}

TEST_F(AppDelegateTest, TurningAutoShowOnLiftsTheBackOff) {
    h.play();
    app().setAutoShow(false);
    h.play(MusicPlayer::spotify, 0.2);
    app().setAutoShow(true);
    ASSERT_EQ(h.runs.size(), 2u);
    h.lastRun()->captureDidFail(AudioCaptureFailure::unavailable);
    app().setAutoShow(true);
    EXPECT_EQ(h.runs.size(), 3u);
}

TEST_F(AppDelegateTest, TurningAudioResponseOnLiftsTheBackOff) {
    h.play();
    h.lastRun()->captureDidFail(AudioCaptureFailure::permissionRequired);
    app().setAudioResponsive(true);
    EXPECT_FALSE(app().audioCaptureRetryAfter());
    EXPECT_EQ(h.runs.size(), 2u);
}

TEST_F(AppDelegateTest, ADeliveredFrameClearsTheBackOff) {
    h.play();
    h.lastRun()->captureDidFail(AudioCaptureFailure::unavailable);
    h.advance(31.0);
    // The expired retry time stays recorded until capture proves to work.
    h.play(MusicPlayer::spotify, 0.45);
    ASSERT_TRUE(monitorLive());
    ASSERT_TRUE(app().audioCaptureRetryAfter());
    h.lastRun()->frameDidChange({0.3, 1, 0, {}});
    EXPECT_FALSE(app().audioCaptureRetryAfter());
    EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::live);
}

TEST_F(AppDelegateTest, AFailureReportedFromInsideStartIsSafe) {
    h.nextFailOnStart = AudioCaptureFailure::permissionRequired;
    h.play();
    EXPECT_FALSE(monitorLive());
    EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::permissionRequired);
    EXPECT_TRUE(h.overlay->visible);
    EXPECT_TRUE(h.lastRun()->destroyed);
}

TEST_F(AppDelegateTest, ADroppedRunCanNoLongerReachTheController) {
    h.play();
    auto first = h.lastRun();
    h.snapshot(MusicPlayer::spotify, MusicPlaybackState::paused);
    h.play();
    auto second = h.lastRun();
    ASSERT_NE(first, second);
    first->frameDidChange({0.9, 1, 0, {}});
    first->captureDidFail(AudioCaptureFailure::permissionRequired);
    EXPECT_TRUE(monitorLive());
    EXPECT_FALSE(app().audioCaptureRetryAfter());
    EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::waiting);
    // A run reports at most one failure; anything after it is ignored too.
    second->captureDidFail(AudioCaptureFailure::unavailable);
    const auto retry = app().audioCaptureRetryAfter();
    second->captureDidFail(AudioCaptureFailure::permissionRequired);
    second->frameDidChange({0.9, 1, 0, {}});
    EXPECT_EQ(app().audioCaptureRetryAfter(), retry);
    EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::fallback);
}

// MARK: Retry

TEST_F(AppDelegateTest, RetryWorksWhileTheOverlayIsDisabled) {
    app().setOverlayEnabled(false);
    h.play();
    ASSERT_TRUE(h.runs.empty());
    app().retryAudioCapture();
    EXPECT_EQ(h.runs.size(), 1u);
    EXPECT_TRUE(monitorLive());
    EXPECT_FALSE(h.overlay->visible);
}

TEST_F(AppDelegateTest, RetryRestartsALiveRun) {
    h.play();
    auto first = h.lastRun();
    h.menu->handler(MenuCommand::retryAudioCapture, std::nullopt);
    EXPECT_EQ(first->stops, 1);
    EXPECT_EQ(h.runs.size(), 2u);
    EXPECT_TRUE(monitorLive());
}

TEST_F(AppDelegateTest, RetryDoesNothingWithoutAudioResponseOrPlayback) {
    app().retryAudioCapture();
    EXPECT_TRUE(h.runs.empty());
    h.play();
    h.lastRun()->captureDidFail(AudioCaptureFailure::permissionRequired);
    app().setAudioResponsive(false);
    const auto writes = h.store->writeCount();
    app().retryAudioCapture();
    EXPECT_EQ(h.runs.size(), 1u);
    EXPECT_EQ(h.store->writeCount(), writes);
}

// MARK: Players

TEST_F(AppDelegateTest, DisablingThePlayingPlayerHidesTheOverlayAtOnce) {
    h.play(MusicPlayer::spotify, 0.5);
    h.journal.clear();
    h.settings->actions.setPlayerEnabled(MusicPlayer::spotify, false);
    EXPECT_FALSE(h.overlay->visible);
    EXPECT_FALSE(monitorLive());
    EXPECT_EQ(app().currentMusicPlayer(), std::nullopt);
    EXPECT_EQ(app().currentPlaybackState(), MusicPlaybackState::notRunning);
    EXPECT_EQ(app().visualizerModel().fallbackLevel(), 0.0);
    EXPECT_EQ(h.menuState().playbackStatusTitle, "Music Player: Not Running");
    // The monitor decides again at once, with the new set.
    EXPECT_EQ(h.journal.calls.back(), "playback.start");
    EXPECT_FALSE(app().preferences().enabledPlayers().contains(MusicPlayer::spotify));
}

TEST_F(AppDelegateTest, DisablingAnotherPlayerOnlyAsksTheMonitorToDecideAgain) {
    h.play(MusicPlayer::spotify, 0.5);
    h.journal.clear();
    app().setPlayer(MusicPlayer::appleMusic, false);
    EXPECT_TRUE(h.overlay->visible);
    EXPECT_TRUE(monitorLive());
    EXPECT_EQ(h.journal.calls, std::vector<std::string>{"playback.start"});
    app().setPlayer(MusicPlayer::appleMusic, true);
    EXPECT_EQ(app().preferences().enabledPlayers().size(), 4u);
}

TEST_F(AppDelegateTest, OtherPlayerIsNamedInTheMenuAndDisablingItHidesTheOverlay) {
    const auto vlc = PlaybackPlayer::other("vlc", "VLC media player");
    h.playback->snapshotDidChange({vlc, MusicPlaybackState::playing, 0.5});
    EXPECT_TRUE(h.overlay->visible);
    EXPECT_EQ(h.menuState().playbackStatusTitle, "VLC media player: Playing");
    app().setOtherPlayerEnabled("elisa", false);  // another player: nothing changes
    EXPECT_TRUE(h.overlay->visible);
    app().setOtherPlayerEnabled("vlc", false);
    EXPECT_FALSE(h.overlay->visible);
    EXPECT_EQ(h.menuState().playbackStatusTitle, "Music Player: Not Running");
    app().setOtherPlayerEnabled("vlc", true);
    h.playback->snapshotDidChange({vlc, MusicPlaybackState::paused, 0.5});
    EXPECT_EQ(h.menuState().playbackStatusTitle, "VLC media player: Paused");
    app().setOtherPlayersEnabled(false);
    EXPECT_EQ(app().currentMusicPlayer(), std::nullopt);
}

TEST_F(AppDelegateTest, SeenOtherPlayersAreRememberedByDesktopEntryOnly) {
    h.playback->playerSeen(PlaybackPlayer::other("org.gnome.Music", "Music"));
    h.playback->playerSeen(PlaybackPlayer::other("org.gnome.Music", "Music"));
    h.playback->playerSeen(PlaybackPlayer::other("", "Some Player"));  // nothing to remember it by
    h.playback->playerSeen(MusicPlayer::spotify);                      // listed anyway
    EXPECT_EQ(app().preferences().seenOtherPlayers(), std::vector<std::string>{"org.gnome.Music"});
    EXPECT_EQ(h.store->stringArray(OverlayPreferences::seenOtherPlayersKey),
              std::vector<std::string>{"org.gnome.Music"});
}

TEST_F(AppDelegateTest, EnablingThePlayingPlayerSendsNoSyntheticSnapshot) {
    h.play(MusicPlayer::spotify, 0.5);
    app().setPlayer(MusicPlayer::spotify, true);
    EXPECT_TRUE(h.overlay->visible);
    EXPECT_EQ(app().currentPlaybackState(), MusicPlaybackState::playing);
}

// MARK: Display setters

TEST_F(AppDelegateTest, AvoidCoveringReappliesLevelAndPlace) {
    h.journal.clear();
    h.menu->handler(MenuCommand::toggleAvoidCovering, std::nullopt);
    EXPECT_FALSE(app().preferences().avoidsCoveringWindows());
    // The menu observes the preference and follows it as soon as it changed.
    EXPECT_EQ(h.journal.calls, (std::vector<std::string>{"menu.apply", "overlay.applyWindowLevel",
                                                         "overlay.reposition"}));
    EXPECT_FALSE(h.menuState().avoidCoveringChecked);
}

TEST_F(AppDelegateTest, DisplayModeReappliesLevelAndPlace) {
    h.journal.clear();
    h.menu->handler(MenuCommand::selectFullscreenMode, std::nullopt);
    EXPECT_EQ(app().preferences().displayMode(), OverlayDisplayMode::fullscreenFog);
    EXPECT_EQ(h.journal.calls, (std::vector<std::string>{"menu.apply", "overlay.applyWindowLevel",
                                                         "overlay.reposition"}));
    EXPECT_EQ(h.store->string("overlayDisplayMode"), "fullscreenFog");
    h.menu->handler(MenuCommand::selectCompactMode, std::nullopt);
    EXPECT_EQ(app().preferences().displayMode(), OverlayDisplayMode::compact);
}

TEST_F(AppDelegateTest, PositionOnlyRepositions) {
    h.journal.clear();
    h.menu->handler(MenuCommand::selectTopPosition, std::nullopt);
    EXPECT_EQ(h.journal.calls, (std::vector<std::string>{"menu.apply", "overlay.reposition"}));
    EXPECT_EQ(app().preferences().position(), OverlayPosition::top);
    h.menu->handler(MenuCommand::selectBottomPosition, std::nullopt);
    EXPECT_EQ(app().preferences().position(), OverlayPosition::bottom);
    h.menu->handler(MenuCommand::selectCenterPosition, std::nullopt);
    EXPECT_EQ(app().preferences().position(), OverlayPosition::center);
    EXPECT_EQ(h.store->string("overlayPosition"), "center");
}

TEST_F(AppDelegateTest, ColorOnlyRefreshesTheMenu) {
    h.journal.clear();
    h.menu->handler(MenuCommand::selectWaveColor, std::string("neon"));
    EXPECT_EQ(h.journal.calls, (std::vector<std::string>{"menu.apply"}));
    EXPECT_EQ(app().preferences().color(), WaveColor::neon);
    EXPECT_TRUE(h.menuState().colorChecked[caseIndex(WaveColor::neon)]);
}

TEST_F(AppDelegateTest, AColorItemThatNamesNoColorIsIgnored) {
    const auto writes = h.store->writeCount();
    h.journal.clear();
    h.menu->handler(MenuCommand::selectWaveColor, std::nullopt);
    h.menu->handler(MenuCommand::selectWaveColor, std::string("Neon"));
    h.menu->handler(MenuCommand::selectWaveColor, std::string(""));
    EXPECT_EQ(app().preferences().color(), WaveColor::cyan);
    EXPECT_EQ(h.store->writeCount(), writes);
    EXPECT_TRUE(h.journal.calls.empty());
}

TEST_F(AppDelegateTest, MenuTogglesNegateTheCurrentPreference) {
    h.menu->handler(MenuCommand::toggleAutoShow, std::nullopt);
    EXPECT_FALSE(app().preferences().autoShow());
    EXPECT_FALSE(h.menuState().autoShowChecked);
    h.menu->handler(MenuCommand::toggleAudioResponsive, std::nullopt);
    EXPECT_FALSE(app().preferences().audioResponsive());
    h.menu->handler(MenuCommand::toggleOverlayEnabled, std::nullopt);
    EXPECT_FALSE(app().preferences().overlayEnabled());
    EXPECT_FALSE(h.menuState().overlayEnabledChecked);
    EXPECT_EQ(h.store->object("overlayEnabled"), KeyValueStore::Value(false));
}

// MARK: The settings window's actions have the menu's effects

TEST_F(AppDelegateTest, ShowWaveformOffInSettingsActsLikeTheMenu) {
    h.play();
    h.lastRun()->frameDidChange({0.5, 1, 0, {}});
    h.settings->actions.setOverlayEnabled(false);
    EXPECT_EQ(h.lastRun()->stops, 1);
    EXPECT_FALSE(monitorLive());
    EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::waiting);
    EXPECT_FALSE(h.menuState().overlayEnabledChecked);
    EXPECT_FALSE(h.overlay->visible);
}

TEST_F(AppDelegateTest, EverySettingsActionReachesItsSetter) {
    auto& actions = h.settings->actions;
    actions.setAutoShow(false);
    EXPECT_FALSE(app().preferences().autoShow());
    actions.setAvoidsCoveringWindows(false);
    EXPECT_FALSE(app().preferences().avoidsCoveringWindows());
    actions.setAudioResponsive(false);
    EXPECT_FALSE(app().preferences().audioResponsive());
    actions.setDisplayMode(OverlayDisplayMode::fullscreenFog);
    EXPECT_EQ(app().preferences().displayMode(), OverlayDisplayMode::fullscreenFog);
    actions.setPosition(OverlayPosition::bottom);
    EXPECT_EQ(app().preferences().position(), OverlayPosition::bottom);
    actions.setColor(WaveColor::coralSky);
    EXPECT_EQ(app().preferences().color(), WaveColor::coralSky);
    EXPECT_TRUE(actions.setLaunchAtLogin(true));
    EXPECT_TRUE(h.menuState().launchAtLoginChecked);
}

// MARK: Launch at login

TEST_F(AppDelegateTest, EnablingWhenAlreadyEnabledCallsNothingAndAnswersTrue) {
    h.loginItem.enabled = true;
    EXPECT_TRUE(app().setLaunchAtLogin(true));
    EXPECT_EQ(h.loginItem.registerCalls, 0);
    EXPECT_EQ(h.loginItem.unregisterCalls, 0);
    EXPECT_TRUE(h.alerts.shown.empty());
    EXPECT_TRUE(h.menuState().launchAtLoginChecked);
}

TEST_F(AppDelegateTest, DisablingWhenNotEnabledCallsNothing) {
    EXPECT_FALSE(app().setLaunchAtLogin(false));
    EXPECT_EQ(h.loginItem.unregisterCalls, 0);
    EXPECT_TRUE(h.alerts.shown.empty());
}

TEST_F(AppDelegateTest, EnablingAndDisablingChangeTheRegistration) {
    EXPECT_TRUE(app().setLaunchAtLogin(true));
    EXPECT_EQ(h.loginItem.registerCalls, 1);
    EXPECT_TRUE(h.menuState().launchAtLoginChecked);
    EXPECT_FALSE(app().setLaunchAtLogin(false));
    EXPECT_EQ(h.loginItem.unregisterCalls, 1);
    EXPECT_FALSE(h.menuState().launchAtLoginChecked);
}

TEST_F(AppDelegateTest, ARegistrationWaitingForApprovalAnswersFalse) {
    h.loginItem.needsApproval = true;
    EXPECT_FALSE(app().setLaunchAtLogin(true));
    EXPECT_EQ(h.loginItem.registerCalls, 1);
    EXPECT_TRUE(h.alerts.shown.empty());
    EXPECT_FALSE(h.menuState().launchAtLoginChecked);
}

TEST_F(AppDelegateTest, ARefusedChangeShowsTheWarningAndKeepsTheState) {
    h.loginItem.error = "Permission denied";
    EXPECT_FALSE(app().setLaunchAtLogin(true));
    ASSERT_EQ(h.alerts.shown.size(), 1u);
    EXPECT_EQ(h.alerts.shown[0].first, "Unable to Change Login Item Settings");
    EXPECT_EQ(h.alerts.shown[0].second, "Permission denied");
    h.loginItem.enabled = true;
    EXPECT_TRUE(app().setLaunchAtLogin(false));
    EXPECT_EQ(h.alerts.shown.size(), 2u);
}

TEST_F(AppDelegateTest, TheMenuToggleNegatesTheRegistration) {
    h.menu->handler(MenuCommand::toggleLaunchAtLogin, std::nullopt);
    EXPECT_TRUE(h.loginItem.enabled);
    h.menu->handler(MenuCommand::toggleLaunchAtLogin, std::nullopt);
    EXPECT_FALSE(h.loginItem.enabled);
    EXPECT_EQ(h.loginItem.registerCalls, 1);
    EXPECT_EQ(h.loginItem.unregisterCalls, 1);
}

TEST_F(AppDelegateTest, TheLoginItemIsReadWhenTheMenuOpensNotPerFrame) {
    h.play();
    h.lastRun()->frameDidChange({0.3, 1.0, 0.0, std::vector<double>(96, 0.1)});
    h.loginItem.enabled = true;  // changed behind the program's back
    const int reads = h.loginItem.reads;
    for (int i = 0; i < 30; ++i) h.lastRun()->frameDidChange({0.01 * i, 1.0, 0.0, std::vector<double>(96, 0.1)});
    h.snapshot(MusicPlayer::spotify, MusicPlaybackState::playing, 0.7);
    EXPECT_EQ(h.loginItem.reads, reads);
    EXPECT_FALSE(h.menuState().launchAtLoginChecked);

    h.menu->open();
    EXPECT_GT(h.loginItem.reads, reads);
    EXPECT_TRUE(h.menuState().launchAtLoginChecked);
}

TEST_F(AppDelegateTest, TheTraysWordOnATrayHostIsKeptForTheViews) {
    EXPECT_TRUE(app().trayHost().available());
    int announced = 0;
    app().trayHost().changed.connect([&] { ++announced; });
    ASSERT_TRUE(h.menu->events.trayHostChanged);
    h.menu->events.trayHostChanged(false);
    EXPECT_FALSE(app().trayHost().available());
    h.menu->events.trayHostChanged(false);
    EXPECT_EQ(announced, 1);
    h.menu->events.trayHostChanged(true);
    EXPECT_TRUE(app().trayHost().available());
    EXPECT_EQ(announced, 2);
}

// MARK: The back-off's timer and the sound server's return

TEST_F(AppDelegateTest, WhenTheBackOffEndsCaptureIsRetriedWithoutANewSnapshot) {
    h.play();
    h.lastRun()->captureDidFail(AudioCaptureFailure::unavailable);
    ASSERT_EQ(h.runs.size(), 1u);
    // The same song goes on playing: the monitor reports nothing new.
    h.queue.advance(29.9);
    EXPECT_EQ(h.runs.size(), 1u);
    EXPECT_FALSE(monitorLive());
    h.queue.advance(0.1);
    ASSERT_EQ(h.runs.size(), 2u);
    EXPECT_TRUE(monitorLive());
    EXPECT_EQ(h.lastRun()->starts, 1);
    EXPECT_FALSE(app().audioCaptureRetryAfter());
}

TEST_F(AppDelegateTest, APermissionBackOffEndsAfter300SecondsOfQueueTime) {
    h.play();
    h.lastRun()->captureDidFail(AudioCaptureFailure::permissionRequired);
    h.queue.advance(299.0);
    EXPECT_EQ(h.runs.size(), 1u);
    h.queue.advance(1.0);
    EXPECT_EQ(h.runs.size(), 2u);
}

TEST_F(AppDelegateTest, TheBackOffTimerRetriesOnlyWhileCaptureIsStillWanted) {
    h.play();
    h.lastRun()->captureDidFail(AudioCaptureFailure::unavailable);
    app().setAutoShow(false);
    h.queue.advance(31.0);
    EXPECT_EQ(h.runs.size(), 1u);
    EXPECT_FALSE(monitorLive());

    // Paused while backing off: nothing is retried when the timer would have fired.
    app().setAutoShow(true);
    ASSERT_EQ(h.runs.size(), 2u);
    h.lastRun()->captureDidFail(AudioCaptureFailure::unavailable);
    h.snapshot(MusicPlayer::spotify, MusicPlaybackState::paused);
    h.queue.advance(31.0);
    EXPECT_EQ(h.runs.size(), 2u);
}

TEST_F(AppDelegateTest, TheTimerOfAnEarlierBackOffDoesNotCutALaterOneShort) {
    h.play();
    h.lastRun()->captureDidFail(AudioCaptureFailure::unavailable);
    h.queue.advance(20.0);
    app().retryAudioCapture();
    ASSERT_EQ(h.runs.size(), 2u);
    h.lastRun()->captureDidFail(AudioCaptureFailure::unavailable);
    // The first timer falls due now; the second back-off has 20 s left.
    h.queue.advance(10.0);
    EXPECT_EQ(h.runs.size(), 2u);
    h.queue.advance(20.0);
    EXPECT_EQ(h.runs.size(), 3u);
}

TEST_F(AppDelegateTest, AWallClockJumpDoesNotBreakTheRetry) {
    h.play();
    h.lastRun()->captureDidFail(AudioCaptureFailure::unavailable);
    // Even a clock that jumps back by a day (as a wall clock may) cannot hold the retry: the timer
    // runs on the queue's own monotonic time, and the desktop program reads a steady clock.
    h.clock.set(h.clock.now() - 86'400.0);
    h.queue.advance(30.0);
    EXPECT_EQ(h.runs.size(), 2u);
    EXPECT_TRUE(monitorLive());
}

TEST_F(AppDelegateTest, TheSoundServerReturningRetriesABackingOffCaptureAtOnce) {
    h.play();
    h.lastRun()->captureDidFail({AudioCaptureFailure::unavailable, AudioCaptureReason::serverStopped});
    EXPECT_EQ(app().visualizerModel().captureFailureReason(), AudioCaptureReason::serverStopped);
    app().soundServerDidAppear();
    ASSERT_EQ(h.runs.size(), 2u);
    EXPECT_TRUE(monitorLive());
    EXPECT_FALSE(app().audioCaptureRetryAfter());
    // The old back-off's timer no longer does anything.
    h.queue.advance(31.0);
    EXPECT_EQ(h.runs.size(), 2u);
}

TEST_F(AppDelegateTest, TheSoundServerAppearingLeavesLiveAndIdleCaptureAlone) {
    app().soundServerDidAppear();
    EXPECT_TRUE(h.runs.empty());
    h.play();
    app().soundServerDidAppear();
    EXPECT_EQ(h.runs.size(), 1u);
    EXPECT_EQ(h.lastRun()->stops, 0);
}

TEST_F(AppDelegateTest, TheFailureReasonReachesTheModelAndLeavesWithTheNextFrame) {
    h.play();
    h.lastRun()->captureDidFail({AudioCaptureFailure::permissionRequired, AudioCaptureReason::refused});
    EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::permissionRequired);
    EXPECT_EQ(app().visualizerModel().captureFailureReason(), AudioCaptureReason::refused);
    app().retryAudioCapture();
    h.lastRun()->frameDidChange(AudioVisualizationFrame{0.5, 1.0, 0.0, {}});
    EXPECT_EQ(app().visualizerModel().captureStatus(), AudioCaptureStatus::live);
    EXPECT_FALSE(app().visualizerModel().captureFailureReason());
}
