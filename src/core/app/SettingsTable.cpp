#include "core/app/SettingsTable.h"

#include <cstdlib>

namespace lorvane {

namespace {

std::vector<SettingOption> colorOptions() {
    std::vector<SettingOption> options;
    for (WaveColor color : allCases<WaveColor>()) {
        options.push_back({rawValue(color), displayName(color), displayName(color), MenuCommand::selectWaveColor,
                           std::nullopt});
    }
    return options;
}

std::vector<SettingDefinition> makeTable() {
    using K = SettingKey;
    using P = SettingPresentation;
    using C = MenuCommand;
    using I = MenuItemKey;
    using R = SettingRule;
    using Pref = PreferenceKey;
    std::vector<SettingDefinition> table;

    table.push_back({K::overlayEnabled, P::toggle, Pref::overlayEnabled, "true", "Show Waveform", "Show Waveform",
                     C::toggleOverlayEnabled, I::overlayEnabled, R::always, R::always, {}});
    table.push_back({K::autoShow, P::toggle, Pref::autoShow, "true", "Show Automatically with Music Players",
                     "Show Automatically with Music Players", C::toggleAutoShow, I::autoShow, R::always, R::always, {}});
    table.push_back({K::avoidsCoveringWindows, P::toggle, Pref::avoidsCoveringWindows, "true", "Keep on Desktop Layer",
                     "Keep on Desktop Layer (Behind Apps and Widgets)", C::toggleAvoidCovering, I::avoidCovering,
                     R::always, R::always, {}});
    table.push_back({K::audioResponsive, P::toggle, Pref::audioResponsive, "true", "React to Volume and Rhythm",
                     "React to Volume and Rhythm", C::toggleAudioResponsive, I::audioResponsive, R::always, R::always,
                     {}});
    table.push_back({K::displayMode, P::exclusiveChoice, Pref::displayMode, rawValue(OverlayDisplayMode::compact),
                     "Display Mode", "Display Mode", std::nullopt, std::nullopt, R::always, R::always,
                     {{rawValue(OverlayDisplayMode::compact), title(OverlayDisplayMode::compact),
                       title(OverlayDisplayMode::compact), C::selectCompactMode, I::compactMode},
                      {rawValue(OverlayDisplayMode::fullscreenFog), title(OverlayDisplayMode::fullscreenFog),
                       title(OverlayDisplayMode::fullscreenFog), C::selectFullscreenMode, I::fullscreenMode}}});
    table.push_back({K::position, P::exclusiveChoice, Pref::position, rawValue(OverlayPosition::center), "Position",
                     "Position", std::nullopt, I::position, R::compactModeOnly, R::always,
                     {{rawValue(OverlayPosition::top), title(OverlayPosition::top), "Top", C::selectTopPosition,
                       I::topPosition},
                      {rawValue(OverlayPosition::center), title(OverlayPosition::center), "Center",
                       C::selectCenterPosition, I::centerPosition},
                      {rawValue(OverlayPosition::bottom), title(OverlayPosition::bottom), "Bottom",
                       C::selectBottomPosition, I::bottomPosition}}});
    table.push_back({K::color, P::exclusiveChoice, Pref::color, rawValue(WaveColor::cyan), "Color", "Color",
                     std::nullopt, std::nullopt, R::always, R::always, colorOptions()});
    // Every player is watched until the user says otherwise; only the settings window lists them.
    table.push_back({K::enabledPlayers, P::playerList, Pref::enabledPlayers, "", "", "Monitored Players",
                     std::nullopt, std::nullopt, R::always, R::always, {}});
    table.push_back({K::launchAtLogin, P::toggle, std::nullopt, "false", "Launch at Login", "Launch Lorvane at Login",
                     C::toggleLaunchAtLogin, I::launchAtLogin, R::always, R::always, {}});
    // Only the settings window offers the drawing path; it matters to few and rarely.
    table.push_back({K::renderer, P::exclusiveChoice, Pref::renderer, rawValue(RendererChoice::automatic), "",
                     "Drawing", std::nullopt, std::nullopt, R::always, R::always,
                     {{rawValue(RendererChoice::automatic), "", "Automatic", std::nullopt, std::nullopt},
                      {rawValue(RendererChoice::cpu), "", "Processor", std::nullopt, std::nullopt},
                      {rawValue(RendererChoice::gl), "", "OpenGL", std::nullopt, std::nullopt}}});
    table.push_back({K::openSettings, P::command, std::nullopt, "", "Open Settings...", "", C::openSettingsWindow,
                     std::nullopt, R::always, R::always, {}});
    table.push_back({K::retryAudioCapture, P::command, std::nullopt, "", "Retry Audio Detection", "Retry",
                     C::retryAudioCapture, I::retryAudio, R::playingWithAudioResponse, R::always, {}});
    table.push_back({K::openAudioCaptureSettings, P::command, std::nullopt, "", "Open System Audio Permissions...",
                     "System Permissions", C::openAudioCaptureSettings, I::audioPermission, R::always,
                     R::permissionRequired, {}});
    table.push_back({K::quit, P::command, std::nullopt, "", "Quit Lorvane", "", C::quitApplication, std::nullopt,
                     R::always, R::always, {}});
    return table;
}

}  // namespace

SettingContext SettingContext::of(const OverlayPreferences& preferences, MusicPlaybackState playbackState,
                                  AudioCaptureStatus captureStatus) {
    return {preferences.audioResponsive(), preferences.displayMode(), playbackState, captureStatus};
}

bool holds(SettingRule rule, const SettingContext& context) {
    switch (rule) {
        case SettingRule::always:
            return true;
        case SettingRule::compactModeOnly:
            return context.displayMode == OverlayDisplayMode::compact;
        case SettingRule::playingWithAudioResponse:
            return context.audioResponsive && context.playbackState == MusicPlaybackState::playing;
        case SettingRule::permissionRequired:
            return context.captureStatus == AudioCaptureStatus::permissionRequired;
    }
    return true;
}

const std::vector<SettingDefinition>& settingsTable() {
    static const std::vector<SettingDefinition> table = makeTable();
    return table;
}

const SettingDefinition& setting(SettingKey key) {
    const auto& table = settingsTable();
    for (const SettingDefinition& entry : table) {
        if (entry.key == key) return entry;
    }
    std::abort();  // every key has a row; the table tests check it
}

const SettingDefinition& setting(PreferenceKey key) {
    for (const SettingDefinition& entry : settingsTable()) {
        if (entry.preference == key) return entry;
    }
    std::abort();  // every preference has a row; the table tests check it
}

bool isEnabled(SettingKey key, const SettingContext& context) { return holds(setting(key).enabledWhen, context); }

bool isShownInMenu(SettingKey key, const SettingContext& context) {
    return holds(setting(key).menuShownWhen, context);
}

bool defaultToggle(PreferenceKey key) { return setting(key).defaultValue == "true"; }

}  // namespace lorvane
