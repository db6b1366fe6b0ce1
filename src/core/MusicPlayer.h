#pragma once
// The supported music players, the playback states, and one playback reading.

#include <optional>
#include <string>
#include <string_view>

#include "core/StringEnum.h"

namespace lorvane {

// Case order is also the priority order when several players run.
enum class MusicPlayer { appleMusic, qqMusic, netEaseMusic, spotify };

template <>
struct EnumTraits<MusicPlayer> {
    static constexpr std::array<std::string_view, 4> rawValues{"appleMusic", "qqMusic", "netEaseMusic",
                                                               "spotify"};
};

// "Apple Music", "QQ Music", "NetEase Cloud Music", "Spotify".
std::string_view title(MusicPlayer player);
// Title of an optional player; "Music Player" when there is none.
std::string_view playerName(std::optional<MusicPlayer> player);

// How a running application is recognised: the bundle identifier always wins over the name.
std::optional<MusicPlayer> resolveMusicPlayer(const std::optional<std::string>& bundleIdentifier,
                                              const std::optional<std::string>& localizedName);

enum class MusicPlaybackState { notRunning, playing, paused, stopped, permissionDenied, unknown };

template <>
struct EnumTraits<MusicPlaybackState> {
    static constexpr std::array<std::string_view, 6> rawValues{"notRunning", "playing",          "paused",
                                                               "stopped",    "permissionDenied", "unknown"};
};

// The text the status menu shows for a state ("Not Running", "Playing", ...).
std::string_view displayText(MusicPlaybackState state);

struct MusicPlaybackSnapshot {
    std::optional<MusicPlayer> player;
    MusicPlaybackState state = MusicPlaybackState::notRunning;
    double volumeLevel = 0.0;  // 0...1

    // Field by field, exact on the level: a NaN level never equals anything.
    friend bool operator==(const MusicPlaybackSnapshot&, const MusicPlaybackSnapshot&) = default;

    static MusicPlaybackSnapshot noPlayer() { return {std::nullopt, MusicPlaybackState::notRunning, 0.0}; }
};

}  // namespace lorvane
