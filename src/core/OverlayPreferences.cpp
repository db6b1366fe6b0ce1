#include "core/OverlayPreferences.h"

#include <algorithm>
#include <array>
#include <vector>

namespace lorvane {

std::string_view title(OverlayDisplayMode mode) {
    return mode == OverlayDisplayMode::fullscreenFog ? "Fullscreen Fog" : "Standard Waveform";
}

std::string_view title(OverlayPosition position) {
    static constexpr std::array<std::string_view, 3> titles{"Top of Screen", "Center of Screen", "Bottom of Screen"};
    return titles[caseIndex(position)];
}

OverlayPreferences::OverlayPreferences(std::shared_ptr<KeyValueStore> defaults) : defaults_(std::move(defaults)) {
    const KeyValueStore& store = *defaults_;
    overlayEnabled_ = boolValue(store, overlayEnabledKey, true);
    autoShow_ = boolValue(store, autoShowKey, true);
    avoidsCoveringWindows_ = boolValue(store, avoidsCoveringWindowsKey, true);
    audioResponsive_ = boolValue(store, audioResponsiveKey, true);

    const std::string mode = store.string(displayModeKey).value_or("");
    displayMode_ = fromRawValue<OverlayDisplayMode>(mode) == OverlayDisplayMode::fullscreenFog
                       ? OverlayDisplayMode::fullscreenFog
                       : OverlayDisplayMode::compact;

    const std::string position = store.string(positionKey).value_or("");
    const auto storedPosition = fromRawValue<OverlayPosition>(position);
    position_ = storedPosition.value_or(OverlayPosition::center);

    color_ = fromRawValue<WaveColor>(store.string(colorKey).value_or("")).value_or(WaveColor::cyan);
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

void OverlayPreferences::writeBool(const char* key, bool& member, bool value) {
    objectWillChange();
    member = value;
    defaults_->setBool(key, member);
}

void OverlayPreferences::setOverlayEnabled(bool value) { writeBool(overlayEnabledKey, overlayEnabled_, value); }
void OverlayPreferences::setAutoShow(bool value) { writeBool(autoShowKey, autoShow_, value); }
void OverlayPreferences::setAvoidsCoveringWindows(bool value) {
    writeBool(avoidsCoveringWindowsKey, avoidsCoveringWindows_, value);
}
void OverlayPreferences::setAudioResponsive(bool value) { writeBool(audioResponsiveKey, audioResponsive_, value); }

void OverlayPreferences::setDisplayMode(OverlayDisplayMode value) { writeRawValue(displayModeKey, displayMode_, value); }
void OverlayPreferences::setPosition(OverlayPosition value) { writeRawValue(positionKey, position_, value); }
void OverlayPreferences::setColor(WaveColor value) { writeRawValue(colorKey, color_, value); }
void OverlayPreferences::setRenderer(RendererChoice value) { writeRawValue(rendererKey, renderer_, value); }

void OverlayPreferences::setEnabledPlayers(MusicPlayerSet value) {
    objectWillChange();
    enabledPlayers_ = std::move(value);
    writeEnabledPlayers();
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
