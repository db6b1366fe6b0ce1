#include "core/OverlayPreferences.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <array>
#include <string>
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

    const auto stored = store.stringArray(enabledPlayersKey);
    if (stored) {
        for (const std::string& raw : *stored) {
            if (const auto player = fromRawValue<MusicPlayer>(raw)) enabledPlayers_.insert(*player);
        }
    }
    // Only an empty list means "no named player"; a list of nothing but unknown words (a hand-edited
    // "true", say) is not a choice the program could have written, so it reads as the default.
    if (!stored || (!stored->empty() && enabledPlayers_.empty())) {
        const auto all = allCases<MusicPlayer>();
        enabledPlayers_ = MusicPlayerSet(all.begin(), all.end());
    }
    readOtherPlayers(store);
}

namespace {

// Desktop entries as stored: non-empty, bounded, at most `limit` of them, duplicates dropped.
std::vector<std::string> storedEntries(const KeyValueStore& store, const char* key, std::size_t limit) {
    std::vector<std::string> entries;
    const auto stored = store.stringArray(key);
    if (!stored) return entries;
    for (const std::string& raw : *stored) {
        std::string entry = boundedUtf8(raw);
        if (entry.empty() || std::find(entries.begin(), entries.end(), entry) != entries.end()) continue;
        entries.push_back(std::move(entry));
    }
    if (entries.size() > limit) entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(limit));
    return entries;
}

}  // namespace

void OverlayPreferences::readOtherPlayers(const KeyValueStore& store) {
    otherPlayersEnabled_ = true;
    // Only a real boolean (or the INI file's spelling of one) turns them off; anything else is the default.
    if (const auto value = store.object(otherPlayersEnabledKey)) {
        if (const auto* flag = std::get_if<bool>(&*value)) {
            otherPlayersEnabled_ = *flag;
        } else if (const auto* number = std::get_if<double>(&*value)) {
            otherPlayersEnabled_ = *number != 0;
        } else if (const auto* text = std::get_if<std::string>(&*value)) {
            std::string word = *text;
            std::transform(word.begin(), word.end(), word.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            otherPlayersEnabled_ = !(word == "false" || word == "no" || word == "off" || word == "0");
        }
    }
    const auto disabled = storedEntries(store, disabledOtherPlayersKey, maxSeenOtherPlayers * 4);
    disabledOtherPlayers_ = std::set<std::string>(disabled.begin(), disabled.end());
    seenOtherPlayers_ = storedEntries(store, seenOtherPlayersKey, maxSeenOtherPlayers);
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
void OverlayPreferences::setRenderer(RendererChoice value) { writeRawValue(PreferenceKey::renderer, renderer_, value); }

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

void OverlayPreferences::setOtherPlayersEnabled(bool value) {
    objectWillChange();
    const bool differs = otherPlayersEnabled_ != value;
    otherPlayersEnabled_ = value;
    defaults_->setBool(otherPlayersEnabledKey, value);
    if (differs) changed(PreferenceKey::enabledPlayers);
}

void OverlayPreferences::setOtherPlayerEnabled(const std::string& desktopEntry, bool enabled) {
    const std::string entry = boundedUtf8(desktopEntry);
    if (entry.empty()) return;
    objectWillChange();
    const bool differs = enabled ? disabledOtherPlayers_.erase(entry) > 0 : disabledOtherPlayers_.insert(entry).second;
    // std::set iterates in ascending order, so the stored list does not depend on the order of changes.
    defaults_->setStringArray(disabledOtherPlayersKey,
                              std::vector<std::string>(disabledOtherPlayers_.begin(), disabledOtherPlayers_.end()));
    if (differs) changed(PreferenceKey::enabledPlayers);
}

void OverlayPreferences::noteSeenOtherPlayer(const std::string& desktopEntry) {
    const std::string entry = boundedUtf8(desktopEntry);
    if (entry.empty() ||
        std::find(seenOtherPlayers_.begin(), seenOtherPlayers_.end(), entry) != seenOtherPlayers_.end()) {
        return;
    }
    objectWillChange();
    seenOtherPlayers_.push_back(entry);
    if (seenOtherPlayers_.size() > maxSeenOtherPlayers) seenOtherPlayers_.erase(seenOtherPlayers_.begin());
    defaults_->setStringArray(seenOtherPlayersKey, seenOtherPlayers_);
    changed(PreferenceKey::enabledPlayers);
}

void OverlayPreferences::writeEnabledPlayers() {
    std::vector<std::string> raw;
    for (MusicPlayer player : enabledPlayers_) raw.emplace_back(rawValue(player));
    std::sort(raw.begin(), raw.end());
    defaults_->setStringArray(enabledPlayersKey, raw);
}

std::optional<std::pair<int, int>> OverlayPreferences::settingsWindowSize() const {
    const std::string text = defaults_->string(settingsWindowSizeKey).value_or("");
    const auto x = text.find('x');
    if (x == std::string::npos || x == 0 || x + 1 >= text.size() || text.size() > 11) return std::nullopt;
    int parts[2] = {0, 0};
    const std::string_view fields[2] = {std::string_view(text).substr(0, x), std::string_view(text).substr(x + 1)};
    for (int i = 0; i < 2; ++i) {
        for (char c : fields[i]) {
            if (c < '0' || c > '9') return std::nullopt;
            parts[i] = parts[i] * 10 + (c - '0');
        }
        // Anything outside what a window can be is not a remembered size.
        if (parts[i] < 1 || parts[i] > 16384) return std::nullopt;
    }
    return std::pair{parts[0], parts[1]};
}

void OverlayPreferences::setSettingsWindowSize(int width, int height) {
    defaults_->setString(settingsWindowSizeKey, std::to_string(width) + "x" + std::to_string(height));
}

}  // namespace lorvane
