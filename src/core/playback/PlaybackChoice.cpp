#include "core/playback/PlaybackChoice.h"

#include <cmath>
#include <tuple>

#include "core/StringEnum.h"

namespace lorvane {

MusicPlaybackState playbackStateFromStatus(std::string_view status) {
    if (status == "Playing") return MusicPlaybackState::playing;
    if (status == "Paused") return MusicPlaybackState::paused;
    if (status == "Stopped") return MusicPlaybackState::stopped;
    return MusicPlaybackState::unknown;
}

namespace {

double unitClamped(double value, double fallback) {
    if (std::isnan(value)) return fallback;
    if (value <= 0) return 0;
    if (value > 1) return 1;
    return value;
}

int stateRank(MusicPlaybackState state) {
    switch (state) {
        case MusicPlaybackState::playing:
            return 0;
        case MusicPlaybackState::paused:
            return 1;
        case MusicPlaybackState::permissionDenied:
            return 2;
        default:
            return 3;
    }
}

// Smaller is better: state, then named players in priority order before other players, then recency.
auto rank(const PlayerReading& reading) {
    const std::size_t playerRank = reading.player.named ? caseIndex(*reading.player.named) : caseCount<MusicPlayer>();
    return std::make_tuple(stateRank(reading.state), playerRank, -reading.changedAt);
}

}  // namespace

double playbackVolumeLevel(std::optional<double> playerVolume, double systemVolume) {
    const double player = playerVolume ? unitClamped(*playerVolume, 1.0) : 1.0;
    return unitClamped(std::sqrt(player * unitClamped(systemVolume, 1.0)), 1.0);
}

MusicPlaybackSnapshot playbackSnapshot(const std::vector<PlayerReading>& readings, const EnabledPlayers& enabled,
                                       double systemVolume) {
    const PlayerReading* best = nullptr;
    for (const PlayerReading& reading : readings) {
        if (!enabled.contains(reading.player)) continue;
        // Ties keep the earlier reading, so the answer does not depend on anything but the readings' order.
        if (!best || rank(reading) < rank(*best)) best = &reading;
    }
    if (!best) return MusicPlaybackSnapshot::noPlayer();
    return {best->player, best->state, playbackVolumeLevel(best->volume, systemVolume)};
}

}  // namespace lorvane
