// The platform-free side of playback detection: recognising a player from what it says about itself,
// and choosing the snapshot from the players' readings.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "core/MusicPlayer.h"
#include "core/playback/DesktopEntryFields.h"
#include "core/playback/PlaybackChoice.h"

using namespace lorvane;

namespace {

using S = MusicPlaybackState;

PlayerReading reading(PlaybackPlayer player, S state, double changedAt, std::optional<double> volume = 1.0) {
    return {std::move(player), state, volume, changedAt};
}

const PlaybackPlayer vlc = PlaybackPlayer::other("vlc", "VLC media player");
const PlaybackPlayer elisa = PlaybackPlayer::other("org.kde.elisa", "Elisa");
const PlaybackPlayer firefox = PlaybackPlayer::other("firefox", "Mozilla Firefox");

}  // namespace

// MARK: Recognition

TEST(IdentifyPlayer, SpotifyNativeFlatpakAndSnapEntriesAreSpotify) {
    EXPECT_EQ(identifyPlayer("spotify", "Spotify", "", "spotify"), PlaybackPlayer(MusicPlayer::spotify));
    EXPECT_EQ(identifyPlayer("com.spotify.Client", "Spotify", "", "spotify"), PlaybackPlayer(MusicPlayer::spotify));
    EXPECT_EQ(identifyPlayer("spotify_spotify", "", "", "spotify"), PlaybackPlayer(MusicPlayer::spotify));
    EXPECT_EQ(identifyPlayer("com.spotify.Client.desktop", "", "", "x"), PlaybackPlayer(MusicPlayer::spotify));
}

TEST(IdentifyPlayer, GnomeMusicIsAnOtherPlayerCalledMusicNotAppleMusic) {
    const PlaybackPlayer player = identifyPlayer("org.gnome.Music", "Music", "", "Music");
    EXPECT_TRUE(player.isOther());
    EXPECT_EQ(playerName(player), "Music");
    EXPECT_EQ(player.desktopEntry, "org.gnome.Music");
}

TEST(IdentifyPlayer, BareNameRulesApplyOnlyWithoutADesktopEntry) {
    EXPECT_EQ(identifyPlayer("", "Music", "", "music"), PlaybackPlayer(MusicPlayer::appleMusic));
    EXPECT_EQ(identifyPlayer("", "Spotify", "", "spotify"), PlaybackPlayer(MusicPlayer::spotify));
    EXPECT_TRUE(identifyPlayer("some.player", "Spotify", "", "x").isOther());
    // The word rules of the Chinese players hold whatever the entry.
    EXPECT_EQ(identifyPlayer("some.player", "网易云音乐", "", "x"), PlaybackPlayer(MusicPlayer::netEaseMusic));
    EXPECT_EQ(identifyPlayer("", "QQ音乐", "", "x"), PlaybackPlayer(MusicPlayer::qqMusic));
}

TEST(IdentifyPlayer, OtherPlayersAreNamedByIdentityThenEntryNameThenBusName) {
    EXPECT_EQ(playerName(identifyPlayer("org.gnome.Rhythmbox3", "Rhythmbox", "Rhythmbox Music", "rhythmbox")),
              "Rhythmbox");
    EXPECT_EQ(playerName(identifyPlayer("org.kde.elisa", "", "Elisa", "elisa")), "Elisa");
    EXPECT_EQ(playerName(identifyPlayer("", "", "", "chromium.instance12345")), "chromium");
    EXPECT_EQ(playerName(identifyPlayer("vlc", "VLC media player", "", "vlc")), "VLC media player");
    EXPECT_EQ(playerName(identifyPlayer("", "", "", "")), "Music Player");
}

TEST(IdentifyPlayer, HugeNamesAreCutAtTheEdgeBetweenCharacters) {
    std::string identity;
    for (int i = 0; i < 400; ++i) identity += "é€";  // 5 bytes a pair: 2000 bytes
    const PlaybackPlayer player = identifyPlayer(std::string(5000, 'e'), identity, "", "x");
    EXPECT_LE(player.displayName.size(), maxForeignTextBytes);
    EXPECT_LE(player.desktopEntry.size(), maxForeignTextBytes);
    EXPECT_GT(player.displayName.size(), maxForeignTextBytes - 3);
    // Whole characters only: the text is still valid UTF-8 ending in a whole "é" or "€".
    EXPECT_TRUE(player.displayName.ends_with("é") || player.displayName.ends_with("€"));
}

TEST(BoundedUtf8, CutsOnlyBetweenCharacters) {
    EXPECT_EQ(boundedUtf8("abc", 3), "abc");
    EXPECT_EQ(boundedUtf8("abcd", 3), "abc");
    EXPECT_EQ(boundedUtf8("a€", 3), "a");  // "€" is three bytes
    EXPECT_EQ(boundedUtf8("a€", 4), "a€");
    EXPECT_EQ(boundedUtf8("€", 0), "");
}

TEST(DesktopEntryFieldsParse, NameAndIconOfTheMainGroupOnly) {
    const auto fields = parseDesktopEntry(
        "# comment\n[Desktop Action Play]\nName=Play\n[Desktop Entry]\nType=Application\nName[de]=Musik\n"
        "Name = GNOME\\sMusic\nIcon=org.gnome.Music\nName=Second\n");
    EXPECT_EQ(fields.name, "GNOME Music");
    EXPECT_EQ(fields.icon, "org.gnome.Music");
    EXPECT_EQ(parseDesktopEntry(std::string_view("garbage\0\xff\n=", 12)), DesktopEntryFields{});
    EXPECT_EQ(parseDesktopEntry("[Desktop Entry]\nName=" + std::string(5000, 'n')).name.size(), maxForeignTextBytes);
}

// MARK: Choice

TEST(PlaybackChoice, NoEnabledReadingGivesTheNoPlayerSnapshot) {
    EXPECT_EQ(playbackSnapshot({}, EnabledPlayers::all(), 1.0), MusicPlaybackSnapshot::noPlayer());
    EnabledPlayers none{{}, false, {}};
    EXPECT_EQ(playbackSnapshot({reading(MusicPlayer::spotify, S::playing, 1), reading(vlc, S::playing, 2)}, none, 1),
              MusicPlaybackSnapshot::noPlayer());
}

TEST(PlaybackChoice, PlayingNamedPlayerBeatsAPlayingOtherPlayer) {
    const auto snapshot = playbackSnapshot(
        {reading(vlc, S::playing, 9), reading(MusicPlayer::spotify, S::playing, 1)}, EnabledPlayers::all(), 1.0);
    EXPECT_EQ(snapshot.player, PlaybackPlayer(MusicPlayer::spotify));
}

TEST(PlaybackChoice, PlayingOtherPlayerBeatsAPausedNamedPlayer) {
    const auto snapshot = playbackSnapshot(
        {reading(MusicPlayer::appleMusic, S::paused, 9), reading(firefox, S::playing, 1)}, EnabledPlayers::all(), 1.0);
    EXPECT_EQ(snapshot.player, firefox);
    EXPECT_EQ(snapshot.state, S::playing);
}

TEST(PlaybackChoice, NamedPlayersInPriorityOrder) {
    const auto snapshot = playbackSnapshot(
        {reading(MusicPlayer::spotify, S::playing, 9), reading(MusicPlayer::qqMusic, S::playing, 1)},
        EnabledPlayers::all(), 1.0);
    EXPECT_EQ(snapshot.player, PlaybackPlayer(MusicPlayer::qqMusic));
}

TEST(PlaybackChoice, PlayingSpotifyWinsOverPausedAppleMusicFirstInPriority) {
    const auto snapshot = playbackSnapshot(
        {reading(MusicPlayer::appleMusic, S::paused, 5, 0.5), reading(MusicPlayer::spotify, S::playing, 1)},
        EnabledPlayers::all(), 1.0);
    EXPECT_EQ(snapshot, (MusicPlaybackSnapshot{MusicPlayer::spotify, S::playing, 1.0}));
}

TEST(PlaybackChoice, OtherPlayersMostRecentlyStartedFirst) {
    const std::vector<PlayerReading> readings{reading(vlc, S::playing, 10), reading(elisa, S::playing, 12),
                                              reading(firefox, S::playing, 11)};
    EXPECT_EQ(playbackSnapshot(readings, EnabledPlayers::all(), 1.0).player, elisa);
}

TEST(PlaybackChoice, PausedBeatsRefusedBeatsStoppedOrUnknown) {
    EXPECT_EQ(playbackSnapshot({reading(MusicPlayer::appleMusic, S::permissionDenied, 1),
                                reading(MusicPlayer::qqMusic, S::paused, 1)},
                               EnabledPlayers::all(), 1.0)
                  .player,
              PlaybackPlayer(MusicPlayer::qqMusic));
    EXPECT_EQ(playbackSnapshot({reading(MusicPlayer::appleMusic, S::stopped, 1), reading(vlc, S::paused, 1)},
                               EnabledPlayers::all(), 1.0)
                  .player,
              vlc);
    const auto stopped = playbackSnapshot({reading(elisa, S::unknown, 3), reading(MusicPlayer::spotify, S::stopped, 1)},
                                          EnabledPlayers::all(), 1.0);
    EXPECT_EQ(stopped.player, PlaybackPlayer(MusicPlayer::spotify));
    EXPECT_EQ(stopped.state, S::stopped);
}

TEST(PlaybackChoice, DisabledPlayersAreIgnored) {
    EnabledPlayers enabled = EnabledPlayers::all();
    enabled.named.erase(MusicPlayer::spotify);
    enabled.disabledOtherPlayers.insert("vlc");
    const std::vector<PlayerReading> readings{reading(MusicPlayer::spotify, S::playing, 1),
                                              reading(vlc, S::playing, 2), reading(elisa, S::paused, 3)};
    EXPECT_EQ(playbackSnapshot(readings, enabled, 1.0).player, elisa);
    enabled.otherPlayers = false;
    EXPECT_EQ(playbackSnapshot(readings, enabled, 1.0), MusicPlaybackSnapshot::noPlayer());
    // An other player without a desktop entry cannot be turned off alone; the switch for all covers it.
    const PlaybackPlayer anonymous = PlaybackPlayer::other("", "chromium");
    enabled.otherPlayers = true;
    EXPECT_EQ(playbackSnapshot({reading(anonymous, S::playing, 1)}, enabled, 1.0).player, anonymous);
}

TEST(PlaybackChoice, VolumeLevelIsTheRootOfPlayerAndSystemVolume) {
    EXPECT_DOUBLE_EQ(playbackSnapshot({reading(vlc, S::stopped, 1, 0.4)}, EnabledPlayers::all(), 1.0).volumeLevel,
                     std::sqrt(0.4));
    EXPECT_DOUBLE_EQ(playbackSnapshot({reading(vlc, S::playing, 1, 0.25)}, EnabledPlayers::all(), 1.0).volumeLevel,
                     0.5);
    EXPECT_DOUBLE_EQ(
        playbackSnapshot({reading(vlc, S::playing, 1, std::nullopt)}, EnabledPlayers::all(), 0.64).volumeLevel, 0.8);
    // Out of range and not-a-number player volumes: clamped, or taken as full.
    EXPECT_DOUBLE_EQ(playbackVolumeLevel(7.0, 1.0), 1.0);
    EXPECT_DOUBLE_EQ(playbackVolumeLevel(-1.0, 1.0), 0.0);
    EXPECT_DOUBLE_EQ(playbackVolumeLevel(std::nan(""), 0.25), 0.5);
    EXPECT_DOUBLE_EQ(playbackVolumeLevel(1.0, std::nan("")), 1.0);
}

TEST(PlaybackChoice, StatusWordsAreExact) {
    EXPECT_EQ(playbackStateFromStatus("Playing"), S::playing);
    EXPECT_EQ(playbackStateFromStatus("Paused"), S::paused);
    EXPECT_EQ(playbackStateFromStatus("Stopped"), S::stopped);
    EXPECT_EQ(playbackStateFromStatus("playing"), S::unknown);
    EXPECT_EQ(playbackStateFromStatus(""), S::unknown);
}

TEST(PlaybackChoice, NamedPlayerSnapshotsCompareByCaseAlone) {
    EXPECT_EQ((MusicPlaybackSnapshot{MusicPlayer::spotify, S::playing, 0.5}),
              (MusicPlaybackSnapshot{PlaybackPlayer(MusicPlayer::spotify), S::playing, 0.5}));
    EXPECT_NE((MusicPlaybackSnapshot{vlc, S::playing, 0.5}), (MusicPlaybackSnapshot{elisa, S::playing, 0.5}));
    EXPECT_NE((MusicPlaybackSnapshot{vlc, S::playing, 0.5}), (MusicPlaybackSnapshot{vlc, S::playing, 0.5000001}));
}
