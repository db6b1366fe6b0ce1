#pragma once
// The supported music players, the playback states, and one playback reading.

#include <cstddef>
#include <optional>
#include <set>
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

// How a running application is recognised: the bundle identifier always wins over the name.
std::optional<MusicPlayer> resolveMusicPlayer(const std::optional<std::string>& bundleIdentifier,
                                              const std::optional<std::string>& localizedName);

using MusicPlayerSet = std::set<MusicPlayer>;

// A player as the user sees it: one of the four named players, or any other player, named by what
// it calls itself. Named players carry only their case (their title is fixed), so two readings of
// one named player compare equal whatever their desktop entries say.
struct PlaybackPlayer {
    std::optional<MusicPlayer> named;
    std::string desktopEntry;  // other players: the desktop entry id, empty when the player gives none
    std::string displayName;   // other players: Identity, else the desktop entry's Name, else the bus name

    PlaybackPlayer() = default;
    // Implicit: a named player is a player.
    PlaybackPlayer(MusicPlayer player) : named(player) {}  // NOLINT(google-explicit-constructor)
    static PlaybackPlayer other(std::string desktopEntry, std::string displayName) {
        PlaybackPlayer player;
        player.desktopEntry = std::move(desktopEntry);
        player.displayName = std::move(displayName);
        return player;
    }

    bool isOther() const { return !named; }
    friend bool operator==(const PlaybackPlayer&, const PlaybackPlayer&) = default;
};

// The name shown to the user: the named player's title, else the other player's own name; "Music Player"
// when there is no player.
std::string playerName(const std::optional<PlaybackPlayer>& player);

// Which players the user lets start the wave: the named four by case; other players all at once,
// and one by one by desktop entry.
struct EnabledPlayers {
    MusicPlayerSet named;
    bool otherPlayers = true;
    std::set<std::string> disabledOtherPlayers;  // desktop entries

    bool contains(const PlaybackPlayer& player) const;
    bool empty() const { return named.empty() && !otherPlayers; }
    static EnabledPlayers all();
    friend bool operator==(const EnabledPlayers&, const EnabledPlayers&) = default;
};

// Strings from other processes are cut to this many bytes where they enter.
inline constexpr std::size_t maxForeignTextBytes = 1024;
// `text` cut to at most `maxBytes` bytes, never inside a UTF-8 sequence.
std::string boundedUtf8(std::string_view text, std::size_t maxBytes = maxForeignTextBytes);

// Desktop entry id as players give it, without a ".desktop" suffix or a path (case is kept: it names a file).
std::string normalizedDesktopEntry(std::string_view desktopEntry);

// How an MPRIS player is recognised. A named player by its desktop entry (native, Flatpak or snap
// id) and the name rules; the bare-name rules (exactly "music", "spotify") only when the player gives
// no desktop entry. Anything else is an other player named by `identity`, else `desktopEntryName`
// (the Name of its desktop entry file), else `busNameSuffix`.
PlaybackPlayer identifyPlayer(std::string_view desktopEntry, std::string_view identity,
                              std::string_view desktopEntryName, std::string_view busNameSuffix);

enum class MusicPlaybackState { notRunning, playing, paused, stopped, permissionDenied, unknown };

template <>
struct EnumTraits<MusicPlaybackState> {
    static constexpr std::array<std::string_view, 6> rawValues{"notRunning", "playing",          "paused",
                                                               "stopped",    "permissionDenied", "unknown"};
};

// The text the status menu shows for a state ("Not Running", "Playing", ...).
std::string_view displayText(MusicPlaybackState state);

struct MusicPlaybackSnapshot {
    std::optional<PlaybackPlayer> player;
    MusicPlaybackState state = MusicPlaybackState::notRunning;
    double volumeLevel = 0.0;  // 0...1

    // Field by field, exact on the level: a NaN level never equals anything.
    friend bool operator==(const MusicPlaybackSnapshot&, const MusicPlaybackSnapshot&) = default;

    static MusicPlaybackSnapshot noPlayer() { return {std::nullopt, MusicPlaybackState::notRunning, 0.0}; }
};

}  // namespace lorvane
