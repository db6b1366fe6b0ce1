#include "core/OverlayPreferences.h"

#include <algorithm>
#include <array>
#include <vector>

#include "core/app/SettingsTable.h"

namespace lorvane {

std::string_view title(OverlayDisplayMode mode) {
    return mode == OverlayDisplayMode::fullscreenFog ? "Fullscreen Fog" : "Standard Waveform";
}

std::string_view title(OverlayPosition position) {
    static constexpr std::array<std::string_view, 3> titles{"Top of Screen", "Center of Screen", "Bottom of Screen"};
    return titles[caseIndex(position)];
}

OverlayPreferences::OverlayPreferences(std::shared_ptr<KeyValueStore> defaults) : defaults_(std::move(defaults)) {
    // Defaults come from the settings table, which the menu and the settings window read too.
    const KeyValueStore& store = *defaults_;
    overlayEnabled_ = boolValue(store, overlayEnabledKey, defaultToggle(PreferenceKey::overlayEnabled));
    autoShow_ = boolValue(store, autoShowKey, defaultToggle(PreferenceKey::autoShow));
    avoidsCoveringWindows_ =
        boolValue(store, avoidsCoveringWindowsKey, defaultToggle(PreferenceKey::avoidsCoveringWindows));
    audioResponsive_ = boolValue(store, audioResponsiveKey, defaultToggle(PreferenceKey::audioResponsive));

    const std::string mode = store.string(displayModeKey).value_or("");
    displayMode_ = fromRawValue<OverlayDisplayMode>(mode) == OverlayDisplayMode::fullscreenFog
                       ? OverlayDisplayMode::fullscreenFog
                       : defaultChoice<OverlayDisplayMode>(PreferenceKey::displayMode);

    const std::string position = store.string(positionKey).value_or("");
    const auto storedPosition = fromRawValue<OverlayPosition>(position);
    position_ = storedPosition.value_or(defaultChoice<OverlayPosition>(PreferenceKey::position));

    color_ = fromRawValue<WaveColor>(store.string(colorKey).value_or(""))
                 .value_or(defaultChoice<WaveColor>(PreferenceKey::color));
    renderer_ = fromRawValue<RendererChoice>(store.string(rendererKey).value_or("")).value_or(RendererChoice::automatic);

    if (const auto stored = store.stringArray(enabledPlayersKey)) {
        for (const std::string& raw : *stored) {
            if (const auto player = fromRawValue<MusicPlayer>(raw)) enabledPlayers_.insert(*player);
        }
    } else {
        const auto all = allCases<MusicPlayer>();
        enabledPlayers_ = MusicPlayerSet(all.begin(), all.end());
    }
}

bool OverlayPreferences::boolValue(const KeyValueStore& store, const std::string& key, bool defaultValue) {
    if (!store.object(key)) return defaultValue;
    return store.boolean(key);
}

void OverlayPreferences::writeBool(PreferenceKey key, bool& member, bool value) {
    objectWillChange();
    const bool differs = member != value;
    member = value;
    defaults_->setBool(std::string(rawValue(key)), member);
    if (differs) changed(key);
}

void OverlayPreferences::setOverlayEnabled(bool value) { writeBool(PreferenceKey::overlayEnabled, overlayEnabled_, value); }
void OverlayPreferences::setAutoShow(bool value) { writeBool(PreferenceKey::autoShow, autoShow_, value); }
void OverlayPreferences::setAvoidsCoveringWindows(bool value) {
    writeBool(PreferenceKey::avoidsCoveringWindows, avoidsCoveringWindows_, value);
}
void OverlayPreferences::setAudioResponsive(bool value) {
    writeBool(PreferenceKey::audioResponsive, audioResponsive_, value);
}

void OverlayPreferences::setDisplayMode(OverlayDisplayMode value) {
    writeRawValue(PreferenceKey::displayMode, displayMode_, value);
}
void OverlayPreferences::setPosition(OverlayPosition value) { writeRawValue(PreferenceKey::position, position_, value); }
void OverlayPreferences::setColor(WaveColor value) { writeRawValue(PreferenceKey::color, color_, value); }
void OverlayPreferences::setRenderer(RendererChoice value) {
    objectWillChange();
    renderer_ = value;
    defaults_->setString(rendererKey, std::string(rawValue(renderer_)));
}

void OverlayPreferences::setEnabledPlayers(MusicPlayerSet value) {
    objectWillChange();
    const bool differs = enabledPlayers_ != value;
    enabledPlayers_ = std::move(value);
    writeEnabledPlayers();
    if (differs) changed(PreferenceKey::enabledPlayers);
}

void OverlayPreferences::setPlayer(MusicPlayer player, bool enabled) {
    MusicPlayerSet players = enabledPlayers_;
    if (enabled) {
        players.insert(player);
    } else {
        players.erase(player);
    }
    setEnabledPlayers(std::move(players));
}

void OverlayPreferences::writeEnabledPlayers() {
    std::vector<std::string> raw;
    for (MusicPlayer player : enabledPlayers_) raw.emplace_back(rawValue(player));
    std::sort(raw.begin(), raw.end());
    defaults_->setStringArray(enabledPlayersKey, raw);
}

}  // namespace lorvane
