#pragma once
// Every user setting of the overlay, read from and written through to a key-value store.

#include <memory>
#include <optional>
#include <utility>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/KeyValueStore.h"
#include "core/MusicPlayer.h"
#include "core/Signal.h"
#include "core/StringEnum.h"
#include "core/WaveColor.h"

namespace lorvane {

enum class OverlayDisplayMode { compact, fullscreenFog };
template <>
struct EnumTraits<OverlayDisplayMode> {
    static constexpr std::array<std::string_view, 2> rawValues{"compact", "fullscreenFog"};
};
std::string_view title(OverlayDisplayMode mode);  // "Standard Waveform", "Fullscreen Fog"

enum class OverlayPosition { top, center, bottom };
template <>
struct EnumTraits<OverlayPosition> {
    static constexpr std::array<std::string_view, 3> rawValues{"top", "center", "bottom"};
};
std::string_view title(OverlayPosition position);  // "Top of Screen", "Center of Screen", "Bottom of Screen"

// How the wave is drawn: `automatic` uses OpenGL unless it is missing or runs in software, where the
// CPU drawing path is cheaper; `cpu` and `gl` force one path.
enum class RendererChoice { automatic, cpu, gl };
template <>
struct EnumTraits<RendererChoice> {
    static constexpr std::array<std::string_view, 3> rawValues{"automatic", "cpu", "gl"};
};

// Names what changed; the raw value is the member's store key.
enum class PreferenceKey {
    overlayEnabled,
    autoShow,
    avoidsCoveringWindows,
    audioResponsive,
    displayMode,
    position,
    color,
    enabledPlayers,
    renderer
};
template <>
struct EnumTraits<PreferenceKey> {
    static constexpr std::array<std::string_view, 9> rawValues{
        "overlayEnabled",     "autoShow",        "avoidsCoveringWindows", "audioResponsive", "overlayDisplayMode",
        "overlayPosition",    "waveColor",       "enabledMusicPlayers",   "renderer"};
};

class OverlayPreferences {
public:
    // Store keys.
    static constexpr const char* overlayEnabledKey = rawValue(PreferenceKey::overlayEnabled).data();
    static constexpr const char* autoShowKey = rawValue(PreferenceKey::autoShow).data();
    static constexpr const char* avoidsCoveringWindowsKey = rawValue(PreferenceKey::avoidsCoveringWindows).data();
    static constexpr const char* audioResponsiveKey = rawValue(PreferenceKey::audioResponsive).data();
    static constexpr const char* displayModeKey = rawValue(PreferenceKey::displayMode).data();
    static constexpr const char* positionKey = rawValue(PreferenceKey::position).data();
    static constexpr const char* colorKey = rawValue(PreferenceKey::color).data();
    static constexpr const char* enabledPlayersKey = rawValue(PreferenceKey::enabledPlayers).data();
    // Other players: one switch for all, the desktop entries the user turned off, and those seen here.
    // A change of any of them is announced as a change of the enabled players.
    static constexpr const char* otherPlayersEnabledKey = "otherPlayersEnabled";
    static constexpr const char* disabledOtherPlayersKey = "disabledOtherPlayers";
    static constexpr const char* seenOtherPlayersKey = "seenOtherPlayers";
    // Remembered players beyond this many push out the oldest.
    static constexpr std::size_t maxSeenOtherPlayers = 64;
    static constexpr const char* rendererKey = rawValue(PreferenceKey::renderer).data();

    // Reads every member from the store; writes nothing.
    explicit OverlayPreferences(std::shared_ptr<KeyValueStore> defaults);

    bool overlayEnabled() const { return overlayEnabled_; }
    bool autoShow() const { return autoShow_; }
    bool avoidsCoveringWindows() const { return avoidsCoveringWindows_; }
    bool audioResponsive() const { return audioResponsive_; }
    OverlayDisplayMode displayMode() const { return displayMode_; }
    OverlayPosition position() const { return position_; }
    WaveColor color() const { return color_; }
    const MusicPlayerSet& enabledPlayers() const { return enabledPlayers_; }
    bool otherPlayersEnabled() const { return otherPlayersEnabled_; }
    const std::set<std::string>& disabledOtherPlayers() const { return disabledOtherPlayers_; }
    // Desktop entries of the other players seen on this machine, oldest first.
    const std::vector<std::string>& seenOtherPlayers() const { return seenOtherPlayers_; }
    bool otherPlayerEnabled(const std::string& desktopEntry) const {
        return !disabledOtherPlayers_.contains(desktopEntry);
    }
    // Everything the playback monitor needs to know about which players count.
    EnabledPlayers enabledPlayerChoice() const { return {enabledPlayers_, otherPlayersEnabled_, disabledOtherPlayers_}; }
    RendererChoice renderer() const { return renderer_; }

    // Every assignment writes through, even when the value equals the old one; `changed` is
    // announced afterwards, and only when the value differs.
    void setOverlayEnabled(bool value);
    void setAutoShow(bool value);
    void setAvoidsCoveringWindows(bool value);
    void setAudioResponsive(bool value);
    void setDisplayMode(OverlayDisplayMode value);
    void setPosition(OverlayPosition value);
    void setColor(WaveColor value);
    void setRenderer(RendererChoice value);
    void setEnabledPlayers(MusicPlayerSet value);
    // Inserts or removes one player; writes the sorted array even when the set did not change.
    void setPlayer(MusicPlayer player, bool enabled);
    void setOtherPlayersEnabled(bool value);
    void setOtherPlayerEnabled(const std::string& desktopEntry, bool enabled);
    // Remembers an other player's desktop entry; writes only when it is new.
    void noteSeenOtherPlayer(const std::string& desktopEntry);

    // The default when the store holds nothing under the key, else the store's boolean reading.
    static bool boolValue(const KeyValueStore& store, const std::string& key, bool defaultValue);

    const KeyValueStore& defaults() const { return *defaults_; }

    // The settings window's last size as "WIDTHxHEIGHT" in the same store. Not a wave setting: it is
    // written without telling observers. A missing or malformed entry reads as nothing.
    static constexpr const char* settingsWindowSizeKey = "settingsWindowSize";
    std::optional<std::pair<int, int>> settingsWindowSize() const;
    void setSettingsWindowSize(int width, int height);

    // Announced after a member took a new value, keyed by that member.
    Signal<PreferenceKey> changed;
    // Fired before any assignment (older observers; prefer `changed`).
    Signal<> objectWillChange;

private:
    void writeBool(PreferenceKey key, bool& member, bool value);
    void writeEnabledPlayers();
    void readOtherPlayers(const KeyValueStore& store);
    // Enumerations are stored by their raw value string.
    template <typename E>
    void writeRawValue(PreferenceKey key, E& member, E value) {
        objectWillChange();
        const bool differs = member != value;
        member = value;
        defaults_->setString(std::string(rawValue(key)), std::string(rawValue(member)));
        if (differs) changed(key);
    }

    bool overlayEnabled_ = true;
    bool autoShow_ = true;
    bool avoidsCoveringWindows_ = true;
    bool audioResponsive_ = true;
    OverlayDisplayMode displayMode_ = OverlayDisplayMode::compact;
    OverlayPosition position_ = OverlayPosition::center;
    WaveColor color_ = WaveColor::cyan;
    MusicPlayerSet enabledPlayers_;
    bool otherPlayersEnabled_ = true;
    std::set<std::string> disabledOtherPlayers_;
    std::vector<std::string> seenOtherPlayers_;
    RendererChoice renderer_ = RendererChoice::automatic;
    std::shared_ptr<KeyValueStore> defaults_;
};

}  // namespace lorvane
