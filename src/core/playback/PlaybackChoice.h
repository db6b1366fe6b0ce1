#pragma once
// The one decision of playback detection, free of any platform: which of the players' readings the
// wave follows, given the players the user enabled.

#include <optional>
#include <vector>

#include "core/MusicPlayer.h"

namespace lorvane {

// What is known about one player right now.
struct PlayerReading {
    PlaybackPlayer player;
    MusicPlaybackState state = MusicPlaybackState::unknown;
    std::optional<double> volume;  // the player's own volume, 0...1; absent when it has none
    double changedAt = 0;          // steady seconds of its last change of state

    friend bool operator==(const PlayerReading&, const PlayerReading&) = default;
};

// The status a player reports as a state: "Playing", "Paused", "Stopped"; anything else is unknown.
MusicPlaybackState playbackStateFromStatus(std::string_view status);

// The loudness factor from the player's own volume (absent: full) and the system output volume, both
// 0...1: the square root of their product, so it falls off gently when either is turned down.
double playbackVolumeLevel(std::optional<double> playerVolume, double systemVolume);

// The snapshot for a set of readings. Among enabled players a playing one beats a paused one, which
// beats one that refused to answer, which beats any other state. Within a state the named players come
// first in priority order, then the other players, the one that changed most recently first (for
// playing players: the one that started playing last). No enabled reading gives the no-player snapshot.
MusicPlaybackSnapshot playbackSnapshot(const std::vector<PlayerReading>& readings, const EnabledPlayers& enabled,
                                       double systemVolume);

}  // namespace lorvane
