#pragma once
// Turns a player's answer to the state query into a playback reading.

#include "core/MusicPlayer.h"
#include "core/playback/PlaybackServices.h"

namespace lorvane {

// The reading for `player` from `reply`, at a system output volume of `systemVolume` (0...1).
MusicPlaybackSnapshot playerStateReading(MusicPlayer player, const PlayerStateReply& reply, double systemVolume);

}  // namespace lorvane
