#pragma once
// One typed table of every setting and command the user can reach: its key, where it is stored and
// its default, its titles in the tray menu and in the settings window, how it is shown, and when it is
// available. The menu layout, the settings window and the preferences store all read it, so the two
// views cannot drift apart.

#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "core/MusicPlayer.h"
#include "core/OverlayPreferences.h"
#include "core/StringEnum.h"
#include "core/VisualizerModel.h"
#include "core/app/StatusMenuLayout.h"

namespace lorvane {

enum class SettingKey {
    overlayEnabled,
    autoShow,
    avoidsCoveringWindows,
    audioResponsive,
    displayMode,
    position,
    color,
    enabledPlayers,
    launchAtLogin,
    renderer,
    openSettings,
    retryAudioCapture,
    openAudioCaptureSettings,
    quit,
};

template <>
struct EnumTraits<SettingKey> {
    static constexpr std::array<std::string_view, 14> rawValues{
        "overlayEnabled",    "autoShow",       "avoidsCoveringWindows", "audioResponsive", "displayMode",
        "position",          "color",          "enabledPlayers",        "launchAtLogin",   "renderer",
        "openSettings",      "retryAudioCapture", "openAudioCaptureSettings", "quit"};
};

// How a surface shows the entry.
enum class SettingPresentation {
    toggle,           // a check item / check box
    exclusiveChoice,  // exactly one of the options (radio items, radio buttons, swatches)
    playerList,       // one switch per player
    command,          // an action without a value
};

template <>
struct EnumTraits<SettingPresentation> {
    static constexpr std::array<std::string_view, 4> rawValues{"toggle", "exclusiveChoice", "playerList", "command"};
};

// When an entry is available. One rule per entry, read by every surface.
enum class SettingRule {
    always,
    compactModeOnly,           // position means nothing for the full-screen fog
    playingWithAudioResponse,  // retrying capture needs a playing player and audio response on
    permissionRequired,        // only while capture lacks the permission
};

template <>
struct EnumTraits<SettingRule> {
    static constexpr std::array<std::string_view, 4> rawValues{"always", "compactModeOnly",
                                                               "playingWithAudioResponse", "permissionRequired"};
};

// What the rules look at.
struct SettingContext {
    bool audioResponsive = true;
    OverlayDisplayMode displayMode = OverlayDisplayMode::compact;
    MusicPlaybackState playbackState = MusicPlaybackState::notRunning;
    AudioCaptureStatus captureStatus = AudioCaptureStatus::waiting;

    static SettingContext of(const OverlayPreferences& preferences, MusicPlaybackState playbackState,
                             AudioCaptureStatus captureStatus);
};

bool holds(SettingRule rule, const SettingContext& context);

// One value of an exclusive choice.
struct SettingOption {
    std::string_view rawValue;
    std::string_view menuTitle;
    std::string_view windowTitle;
    std::optional<MenuCommand> menuCommand;
    std::optional<MenuItemKey> menuItem;
};

struct SettingDefinition {
    SettingKey key;
    SettingPresentation presentation;
    // Where the value is kept; none for the login item (the system keeps it) and for commands.
    std::optional<PreferenceKey> preference;
    // The default in raw form: "true"/"false", an option's raw value, or empty.
    std::string_view defaultValue;
    // Empty: the surface does not show the entry.
    std::string_view menuTitle;
    std::string_view windowTitle;
    std::optional<MenuCommand> menuCommand;
    std::optional<MenuItemKey> menuItem;
    // Enabled on every surface exactly while this holds.
    SettingRule enabledWhen = SettingRule::always;
    // The tray menu hides the item unless this holds (the window always shows it).
    SettingRule menuShownWhen = SettingRule::always;
    std::vector<SettingOption> options;
};

// Every entry, in the order of the settings and the menu.
const std::vector<SettingDefinition>& settingsTable();
const SettingDefinition& setting(SettingKey key);
// The entry stored under a preference.
const SettingDefinition& setting(PreferenceKey key);

bool isEnabled(SettingKey key, const SettingContext& context);
bool isShownInMenu(SettingKey key, const SettingContext& context);

// Typed defaults.
bool defaultToggle(PreferenceKey key);
template <typename E>
E defaultChoice(PreferenceKey key) {
    return *fromRawValue<E>(setting(key).defaultValue);
}

}  // namespace lorvane
