#pragma once
// Which player the controller last saw and what it was doing, announced to the views keyed by what
// changed, after it changed.

#include <optional>

#include "core/MusicPlayer.h"
#include "core/Signal.h"
#include "core/StringEnum.h"

namespace lorvane {

enum class PlaybackStatusKey { player, state };

template <>
struct EnumTraits<PlaybackStatusKey> {
    static constexpr std::array<std::string_view, 2> rawValues{"player", "state"};
};

class PlaybackStatus {
public:
    std::optional<MusicPlayer> player() const { return player_; }
    MusicPlaybackState state() const { return state_; }

    // Announces each part that differs, player first.
    void update(std::optional<MusicPlayer> player, MusicPlaybackState state) {
        const bool playerChanged = player != player_;
        const bool stateChanged = state != state_;
        player_ = player;
        state_ = state;
        if (playerChanged) changed(PlaybackStatusKey::player);
        if (stateChanged) changed(PlaybackStatusKey::state);
    }

    Signal<PlaybackStatusKey> changed;

private:
    std::optional<MusicPlayer> player_;
    MusicPlaybackState state_ = MusicPlaybackState::notRunning;
};

}  // namespace lorvane
