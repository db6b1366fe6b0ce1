#include "core/MusicPlayer.h"

#include <QString>
#include <array>
#include <utility>

namespace lorvane {

std::string_view title(MusicPlayer player) {
    static constexpr std::array<std::string_view, 4> titles{"Apple Music", "QQ Music", "NetEase Cloud Music",
                                                            "Spotify"};
    return titles[caseIndex(player)];
}

std::string_view playerName(std::optional<MusicPlayer> player) {
    return player ? title(*player) : std::string_view("Music Player");
}

namespace {

// Unicode-aware, locale-independent lower-casing; invalid UTF-8 bytes become U+FFFD and so match nothing.
std::string lowerCased(const std::optional<std::string>& text) {
    if (!text || text->empty()) return {};
    return QString::fromUtf8(text->data(), static_cast<qsizetype>(text->size())).toLower().toStdString();
}

}  // namespace

std::optional<MusicPlayer> resolveMusicPlayer(const std::optional<std::string>& bundleIdentifier,
                                              const std::optional<std::string>& localizedName) {
    const std::string identifier = lowerCased(bundleIdentifier);
    const std::string name = lowerCased(localizedName);

    static const std::array<std::pair<std::string_view, MusicPlayer>, 7> identifiers{{
        {"com.apple.music", MusicPlayer::appleMusic},
        {"com.spotify.client", MusicPlayer::spotify},
        {"com.tencent.qqmusicmac", MusicPlayer::qqMusic},
        {"com.tencent.qqmusic", MusicPlayer::qqMusic},
        {"com.netease.163music", MusicPlayer::netEaseMusic},
        {"com.netease.music.163", MusicPlayer::netEaseMusic},
        {"com.netease.163music.osx", MusicPlayer::netEaseMusic},
    }};
    for (const auto& [candidate, player] : identifiers) {
        if (identifier == candidate) return player;
    }

    static const std::array<std::pair<std::string_view, MusicPlayer>, 5> nameParts{{
        {"qq音乐", MusicPlayer::qqMusic},
        {"qqmusic", MusicPlayer::qqMusic},
        {"网易云音乐", MusicPlayer::netEaseMusic},
        {"netease", MusicPlayer::netEaseMusic},
        {"cloudmusic", MusicPlayer::netEaseMusic},
    }};
    for (const auto& [part, player] : nameParts) {
        if (name.find(part) != std::string::npos) return player;
    }

    if (name == "spotify") return MusicPlayer::spotify;
    if (name == "音乐" || name == "music") return MusicPlayer::appleMusic;
    return std::nullopt;
}

std::string_view displayText(MusicPlaybackState state) {
    static constexpr std::array<std::string_view, 6> texts{
        "Not Running", "Playing", "Paused", "Stopped", "Automation Permission Required", "Unknown"};
    return texts[caseIndex(state)];
}

}  // namespace lorvane
