// The tray menu's structure and what a refresh shows.

#include <gtest/gtest.h>

#include <cmath>

#include "app/AppFakes.h"
#include "core/app/MenuState.h"
#include "core/app/StatusMenuLayout.h"

using namespace lorvane;
using namespace lorvane::test;

namespace {

std::vector<std::string> titles(const std::vector<MenuEntry>& entries) {
    std::vector<std::string> result;
    for (const auto& entry : entries) result.push_back(entry.isSeparator() ? "---" : entry.title);
    return result;
}

const MenuEntry& find(const std::vector<MenuEntry>& entries, const std::string& title) {
    for (const auto& entry : entries) {
        if (entry.title == title) return entry;
    }
    throw std::runtime_error("no menu entry " + title);
}

MenuState stateFor(const MenuInputs& inputs, MemoryKeyValueStore store = {}) {
    OverlayPreferences preferences(std::make_shared<MemoryKeyValueStore>(std::move(store)));
    return makeMenuState(inputs, preferences);
}

}  // namespace

TEST(StatusMenuLayout, ItemsInOrderWithTheirSeparators) {
    const auto menu = statusMenuLayout();
    const std::vector<std::string> expected{"Music Player: Detecting",
                                            "Audio Response: Waiting for Playback",
                                            "Open System Audio Permissions...",
                                            "---",
                                            "Open Settings...",
                                            "---",
                                            "Show Waveform",
                                            "Show Automatically with Music Players",
                                            "Keep on Desktop Layer",
                                            "React to Volume and Rhythm",
                                            "Retry Audio Detection",
                                            "Display Mode",
                                            "Position",
                                            "Color",
                                            "---",
                                            "Launch at Login",
                                            "---",
                                            "Quit Lorvane"};
    EXPECT_EQ(titles(menu), expected);
}

TEST(StatusMenuLayout, CommandsKeysAndInitialFlags) {
    const auto menu = statusMenuLayout();
    EXPECT_FALSE(menu[0].enabled);
    EXPECT_FALSE(menu[0].command);
    EXPECT_EQ(menu[0].key, MenuItemKey::playbackStatus);
    EXPECT_FALSE(menu[1].enabled);
    EXPECT_EQ(menu[1].key, MenuItemKey::audioStatus);
    EXPECT_TRUE(menu[2].hidden);
    EXPECT_EQ(menu[2].command, MenuCommand::openAudioCaptureSettings);
    EXPECT_EQ(menu[2].key, MenuItemKey::audioPermission);

    const auto& settings = find(menu, "Open Settings...");
    EXPECT_EQ(settings.command, MenuCommand::openSettingsWindow);
    EXPECT_FALSE(settings.key);
    EXPECT_EQ(find(menu, "Show Waveform").command, MenuCommand::toggleOverlayEnabled);
    EXPECT_EQ(find(menu, "Quit Lorvane").command, MenuCommand::quitApplication);
    EXPECT_EQ(find(menu, "Show Automatically with Music Players").command, MenuCommand::toggleAutoShow);
    EXPECT_EQ(find(menu, "Keep on Desktop Layer").command, MenuCommand::toggleAvoidCovering);
    EXPECT_EQ(find(menu, "Keep on Desktop Layer").key, MenuItemKey::avoidCovering);
    EXPECT_EQ(find(menu, "React to Volume and Rhythm").command, MenuCommand::toggleAudioResponsive);
    EXPECT_EQ(find(menu, "Retry Audio Detection").command, MenuCommand::retryAudioCapture);
    EXPECT_EQ(find(menu, "Launch at Login").command, MenuCommand::toggleLaunchAtLogin);

    // Toggles carry check marks, commands none.
    EXPECT_EQ(find(menu, "Show Waveform").toggle, MenuEntry::Toggle::check);
    EXPECT_EQ(find(menu, "Launch at Login").toggle, MenuEntry::Toggle::check);
    EXPECT_EQ(find(menu, "Retry Audio Detection").toggle, MenuEntry::Toggle::none);
    EXPECT_EQ(find(menu, "Quit Lorvane").toggle, MenuEntry::Toggle::none);
    for (const auto& entry : menu) {
        if (entry.kind != MenuEntry::Kind::submenu) {
            EXPECT_TRUE(entry.submenu.empty());
        } else {
            EXPECT_FALSE(entry.command);
        }
    }
}

TEST(StatusMenuLayout, DisplayModeAndPositionSubmenus) {
    const auto menu = statusMenuLayout();
    const auto& mode = find(menu, "Display Mode");
    EXPECT_EQ(mode.kind, MenuEntry::Kind::submenu);
    EXPECT_FALSE(mode.key);
    EXPECT_EQ(titles(mode.submenu), (std::vector<std::string>{"Standard Waveform", "Fullscreen Fog"}));
    EXPECT_EQ(mode.submenu[0].command, MenuCommand::selectCompactMode);
    EXPECT_EQ(mode.submenu[1].command, MenuCommand::selectFullscreenMode);
    for (const auto& choice : mode.submenu) EXPECT_EQ(choice.toggle, MenuEntry::Toggle::radio);

    const auto& position = find(menu, "Position");
    EXPECT_EQ(position.key, MenuItemKey::position);
    EXPECT_EQ(titles(position.submenu),
              (std::vector<std::string>{"Top of Screen", "Center of Screen", "Bottom of Screen"}));
    EXPECT_EQ(position.submenu[0].command, MenuCommand::selectTopPosition);
    EXPECT_EQ(position.submenu[1].command, MenuCommand::selectCenterPosition);
    EXPECT_EQ(position.submenu[2].command, MenuCommand::selectBottomPosition);
    EXPECT_EQ(position.submenu[2].key, MenuItemKey::bottomPosition);
    for (const auto& choice : position.submenu) EXPECT_EQ(choice.toggle, MenuEntry::Toggle::radio);
}

TEST(StatusMenuLayout, ColorSubmenuHasThreeBlocksInCaseOrder) {
    const auto menu = statusMenuLayout();
    const auto& colors = find(menu, "Color").submenu;
    const std::vector<std::string> expected{"Black",  "White",  "Cyan",      "Pink",       "Blue",      "Purple",
                                            "Green",  "Orange", "Yellow",    "---",        "Aurora",    "Ocean",
                                            "Sunset", "Neon",   "---",       "Candy Pop",  "Lime Pulse", "Mint Grape",
                                            "Coral Sky"};
    EXPECT_EQ(titles(colors), expected);
    std::size_t colorIndex = 0;
    for (const auto& entry : colors) {
        if (entry.isSeparator()) continue;
        const WaveColor expectedColor = allCases<WaveColor>()[colorIndex++];
        EXPECT_EQ(entry.color, expectedColor);
        EXPECT_EQ(entry.command, MenuCommand::selectWaveColor);
        EXPECT_EQ(entry.toggle, MenuEntry::Toggle::radio);
    }
    EXPECT_EQ(colorIndex, 17u);
}

TEST(MenuState, BeforeTheFirstSnapshotTheRefreshReplacesDetecting) {
    AppHarness h;
    h.launch();
    EXPECT_EQ(h.menuState().playbackStatusTitle, "Music Player: Not Running");
    EXPECT_EQ(h.menuState().audioStatusTitle, "Audio Analysis: Waiting for Playback");
}

TEST(MenuState, PlaybackLineJoinsPlayerAndState) {
    EXPECT_EQ(playbackStatusTitle(MusicPlayer::appleMusic, MusicPlaybackState::paused), "Apple Music: Paused");
    EXPECT_EQ(playbackStatusTitle(MusicPlayer::qqMusic, MusicPlaybackState::stopped), "QQ Music: Stopped");
    EXPECT_EQ(playbackStatusTitle(MusicPlayer::netEaseMusic, MusicPlaybackState::unknown),
              "NetEase Cloud Music: Unknown");
    EXPECT_EQ(playbackStatusTitle(MusicPlayer::spotify, MusicPlaybackState::permissionDenied),
              "Spotify: Automation Permission Required");
    EXPECT_EQ(playbackStatusTitle(std::nullopt, MusicPlaybackState::playing), "Music Player: Playing");
}

TEST(MenuState, AudioLineByStatus) {
    EXPECT_EQ(audioStatusMenuTitle(AudioCaptureStatus::waiting, 0.4), "Audio Analysis: Waiting for Playback");
    EXPECT_EQ(audioStatusMenuTitle(AudioCaptureStatus::fallback, 0.4), "Audio Analysis: Fixed-Level Fallback");
    EXPECT_EQ(audioStatusMenuTitle(AudioCaptureStatus::permissionRequired, 0.4),
              "Audio Analysis: System Audio Permission Required");
    EXPECT_EQ(audioStatusMenuTitle(AudioCaptureStatus::protectedAudio, 0.4),
              "Audio Analysis: Protected or Muted Audio");
    EXPECT_EQ(audioStatusMenuTitle(AudioCaptureStatus::live, 0.4), "Audio Analysis: Live 40%");
}

TEST(MenuState, LivePercentageRoundsHalvesAwayFromZero) {
    EXPECT_EQ(audioStatusMenuTitle(AudioCaptureStatus::live, 0.125), "Audio Analysis: Live 13%");
    EXPECT_EQ(audioStatusMenuTitle(AudioCaptureStatus::live, 1.0), "Audio Analysis: Live 100%");
    EXPECT_EQ(audioStatusMenuTitle(AudioCaptureStatus::live, 0.0), "Audio Analysis: Live 0%");
    EXPECT_EQ(audioStatusMenuTitle(AudioCaptureStatus::live, 0.004), "Audio Analysis: Live 0%");
    EXPECT_EQ(audioStatusMenuTitle(AudioCaptureStatus::live, 0.075), "Audio Analysis: Live 8%");
    EXPECT_EQ(levelPercent(std::nan("")), 0);
}

TEST(MenuState, PermissionItemShowsOnlyForThePermissionFailure) {
    for (AudioCaptureStatus status : allCases<AudioCaptureStatus>()) {
        MenuInputs inputs;
        inputs.captureStatus = status;
        EXPECT_EQ(stateFor(inputs).audioPermissionHidden, status != AudioCaptureStatus::permissionRequired);
    }
}

TEST(MenuState, RetryIsEnabledOnlyWhilePlayingWithAudioResponse) {
    for (MusicPlaybackState state : allCases<MusicPlaybackState>()) {
        MenuInputs inputs;
        inputs.player = MusicPlayer::spotify;
        inputs.playbackState = state;
        // Even during a permission failure retry needs a playing player.
        inputs.captureStatus = AudioCaptureStatus::permissionRequired;
        EXPECT_EQ(stateFor(inputs).retryAudioEnabled, state == MusicPlaybackState::playing) << rawValue(state);
    }
    MemoryKeyValueStore store;
    store.setBool("audioResponsive", false);
    MenuInputs playing;
    playing.playbackState = MusicPlaybackState::playing;
    EXPECT_FALSE(stateFor(playing, store).retryAudioEnabled);
}

TEST(MenuState, ChecksFollowThePreferences) {
    MenuState defaults = stateFor({});
    EXPECT_TRUE(defaults.overlayEnabledChecked);
    EXPECT_TRUE(defaults.autoShowChecked);
    EXPECT_TRUE(defaults.avoidCoveringChecked);
    EXPECT_TRUE(defaults.audioResponsiveChecked);
    EXPECT_TRUE(defaults.compactModeChecked);
    EXPECT_FALSE(defaults.fullscreenModeChecked);
    EXPECT_TRUE(defaults.positionEnabled);
    EXPECT_TRUE(defaults.centerPositionChecked);
    EXPECT_FALSE(defaults.topPositionChecked);
    EXPECT_FALSE(defaults.bottomPositionChecked);
    EXPECT_FALSE(defaults.launchAtLoginChecked);
    for (WaveColor color : allCases<WaveColor>()) {
        EXPECT_EQ(defaults.colorChecked[caseIndex(color)], color == WaveColor::cyan);
    }

    MemoryKeyValueStore store;
    store.setBool("overlayEnabled", false);
    store.setBool("autoShow", false);
    store.setBool("avoidsCoveringWindows", false);
    store.setBool("audioResponsive", false);
    store.setString("overlayPosition", "bottom");
    store.setString("waveColor", "mintGrape");
    MenuInputs inputs;
    inputs.launchAtLoginEnabled = true;
    MenuState changed = stateFor(inputs, store);
    EXPECT_FALSE(changed.overlayEnabledChecked);
    EXPECT_FALSE(changed.autoShowChecked);
    EXPECT_FALSE(changed.avoidCoveringChecked);
    EXPECT_FALSE(changed.audioResponsiveChecked);
    EXPECT_TRUE(changed.bottomPositionChecked);
    EXPECT_FALSE(changed.centerPositionChecked);
    EXPECT_TRUE(changed.colorChecked[caseIndex(WaveColor::mintGrape)]);
    EXPECT_FALSE(changed.colorChecked[caseIndex(WaveColor::cyan)]);
    EXPECT_TRUE(changed.launchAtLoginChecked);
}

TEST(MenuState, FullscreenFogDisablesPositionButKeepsItsChecks) {
    MemoryKeyValueStore store;
    store.setString("overlayDisplayMode", "fullscreenFog");
    store.setString("overlayPosition", "top");
    MenuState state = stateFor({}, store);
    EXPECT_FALSE(state.positionEnabled);
    EXPECT_TRUE(state.topPositionChecked);
    EXPECT_FALSE(state.compactModeChecked);
    EXPECT_TRUE(state.fullscreenModeChecked);
}

TEST(MenuState, AFrameWhileTheMenuIsOpenChangesOnlyTheAudioLine) {
    AppHarness h;
    h.launch();
    h.play();
    h.menu->open();
    h.lastRun()->frameDidChange({0.20, 1, 0, {}});
    const MenuState first = h.menuState();
    h.lastRun()->frameDidChange({0.21, 1, 0, {}});
    MenuState second = h.menuState();
    EXPECT_NE(first.audioStatusTitle, second.audioStatusTitle);
    second.audioStatusTitle = first.audioStatusTitle;
    EXPECT_EQ(first, second);
}

TEST(MenuState, TheToolTipGivesTheCaptureFailureReasonOnlyAwayFromLive) {
    EXPECT_EQ(trayToolTip(std::nullopt, MusicPlaybackState::notRunning, AudioCaptureStatus::fallback,
                          AudioCaptureReason::noSoundServer),
              "Music Player: Not Running \u2014 Audio Analysis: Fixed-Level Fallback (No sound server is running)");
    EXPECT_EQ(trayToolTip(PlaybackPlayer(MusicPlayer::spotify), MusicPlaybackState::playing, AudioCaptureStatus::live,
                          AudioCaptureReason::serverStopped),
              "Spotify: Playing \u2014 Audio Analysis: Live");
    EXPECT_EQ(trayToolTip(PlaybackPlayer(MusicPlayer::spotify), MusicPlaybackState::playing,
                          AudioCaptureStatus::fallback),
              "Spotify: Playing \u2014 Audio Analysis: Fixed-Level Fallback");
}
