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

std::string playerName(const std::optional<PlaybackPlayer>& player) {
    if (!player) return "Music Player";
    if (player->named) return std::string(title(*player->named));
    return player->displayName;
}

bool EnabledPlayers::contains(const PlaybackPlayer& player) const {
    if (player.named) return named.contains(*player.named);
    if (!otherPlayers) return false;
    return player.desktopEntry.empty() || !disabledOtherPlayers.contains(player.desktopEntry);
}

EnabledPlayers EnabledPlayers::all() {
    const auto cases = allCases<MusicPlayer>();
    return {MusicPlayerSet(cases.begin(), cases.end()), true, {}};
}

std::string boundedUtf8(std::string_view text, std::size_t maxBytes) {
    if (text.size() <= maxBytes) return std::string(text);
    std::size_t end = maxBytes;
    // Step back over continuation bytes so the cut falls between two characters.
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return std::string(text.substr(0, end));
}

namespace {

// Unicode-aware, locale-independent lower-casing; invalid UTF-8 bytes become U+FFFD and so match nothing.
std::string lowerCased(const std::optional<std::string>& text) {
    if (!text || text->empty()) return {};
    return QString::fromUtf8(text->data(), static_cast<qsizetype>(text->size())).toLower().toStdString();
}

// Names that contain one of these belong to that player, whatever else they say.
std::optional<MusicPlayer> namedByNameParts(const std::string& name) {
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
    return std::nullopt;
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

    if (const auto player = namedByNameParts(name)) return player;

    if (name == "spotify") return MusicPlayer::spotify;
    if (name == "音乐" || name == "music") return MusicPlayer::appleMusic;
    return std::nullopt;
}

std::string normalizedDesktopEntry(std::string_view desktopEntry) {
    std::string entry(desktopEntry);
    if (const auto slash = entry.rfind('/'); slash != std::string::npos) entry.erase(0, slash + 1);
    constexpr std::string_view suffix = ".desktop";
    if (entry.size() > suffix.size() && lowerCased(entry.substr(entry.size() - suffix.size())) == suffix) entry.resize(entry.size() - suffix.size());
    return entry;
}

namespace {

// Linux desktop entries, Flatpak ids and snap entries (<snap>_<app>) of the named players, lower-cased.
std::optional<MusicPlayer> namedByDesktopEntry(const std::string& entry) {
    static const std::array<std::pair<std::string_view, MusicPlayer>, 14> entries{{
        {"com.apple.music", MusicPlayer::appleMusic},
        {"spotify", MusicPlayer::spotify},
        {"com.spotify.client", MusicPlayer::spotify},
        {"spotify_spotify", MusicPlayer::spotify},
        {"qqmusic", MusicPlayer::qqMusic},
        {"com.qq.qqmusic", MusicPlayer::qqMusic},
        {"com.tencent.qqmusic", MusicPlayer::qqMusic},
        {"qqmusic_qqmusic", MusicPlayer::qqMusic},
        {"netease-cloud-music", MusicPlayer::netEaseMusic},
        {"com.netease.cloudmusic", MusicPlayer::netEaseMusic},
        {"netease-cloud-music_netease-cloud-music", MusicPlayer::netEaseMusic},
        {"com.netease.163music", MusicPlayer::netEaseMusic},
        {"com.netease.music.163", MusicPlayer::netEaseMusic},
        {"com.tencent.qqmusicmac", MusicPlayer::qqMusic},
    }};
    for (const auto& [candidate, player] : entries) {
        if (entry == candidate) return player;
    }
    return std::nullopt;
}

}  // namespace

PlaybackPlayer identifyPlayer(std::string_view desktopEntry, std::string_view identity,
                              std::string_view desktopEntryName, std::string_view busNameSuffix) {
    const std::string entry = normalizedDesktopEntry(boundedUtf8(desktopEntry));
    const std::string name = lowerCased(boundedUtf8(identity));
    if (const auto player = namedByDesktopEntry(lowerCased(entry))) return *player;
    if (const auto player = namedByNameParts(name)) return *player;
    if (entry.empty()) {
        // A bare name such as "Music" says little; only a player without a desktop entry is taken by it.
        if (name == "spotify") return MusicPlayer::spotify;
        if (name == "音乐" || name == "music") return MusicPlayer::appleMusic;
    }

    std::string shown = boundedUtf8(identity);
    if (shown.empty()) shown = boundedUtf8(desktopEntryName);
    if (shown.empty()) {
        // Browsers add ".instance<pid>" (or "_<n>") to tell their instances apart; the name is what comes first.
        std::string suffix = boundedUtf8(busNameSuffix);
        if (const auto instance = suffix.find(".instance"); instance != std::string::npos && instance > 0) {
            suffix.resize(instance);
        }
        shown = suffix;
    }
    if (shown.empty()) shown = "Music Player";
    return PlaybackPlayer::other(entry, std::move(shown));
}

std::string_view displayText(MusicPlaybackState state) {
    static constexpr std::array<std::string_view, 6> texts{
        "Not Running", "Playing", "Paused", "Stopped", "Automation Permission Required", "Unknown"};
    return texts[caseIndex(state)];
}

}  // namespace lorvane
