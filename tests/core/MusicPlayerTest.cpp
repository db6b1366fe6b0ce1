#include <gtest/gtest.h>

#include <cmath>

#include "core/MusicPlayer.h"

using namespace lorvane;

namespace {
std::optional<MusicPlayer> resolve(std::optional<std::string> id, std::optional<std::string> name) {
    return resolveMusicPlayer(id, name);
}
}  // namespace

TEST(MusicPlayer, RawValuesTitlesAndCaseOrder) {
    const auto cases = allCases<MusicPlayer>();
    ASSERT_EQ(cases.size(), 4u);
    EXPECT_EQ(cases[0], MusicPlayer::appleMusic);
    EXPECT_EQ(cases[1], MusicPlayer::qqMusic);
    EXPECT_EQ(cases[2], MusicPlayer::netEaseMusic);
    EXPECT_EQ(cases[3], MusicPlayer::spotify);
    EXPECT_EQ(rawValue(MusicPlayer::netEaseMusic), "netEaseMusic");
    EXPECT_EQ(title(MusicPlayer::appleMusic), "Apple Music");
    EXPECT_EQ(title(MusicPlayer::qqMusic), "QQ Music");
    EXPECT_EQ(title(MusicPlayer::netEaseMusic), "NetEase Cloud Music");
    EXPECT_EQ(title(MusicPlayer::spotify), "Spotify");
    EXPECT_EQ(playerName(std::nullopt), "Music Player");
}

TEST(MusicPlayer, RawValueConstructionIsExactAndCaseSensitive) {
    EXPECT_EQ(fromRawValue<MusicPlayer>("spotify"), MusicPlayer::spotify);
    EXPECT_EQ(fromRawValue<MusicPlayer>("Spotify"), std::nullopt);
    EXPECT_EQ(fromRawValue<MusicPlayer>(""), std::nullopt);
    EXPECT_EQ(fromRawValue<MusicPlayer>("spotify "), std::nullopt);
}

TEST(MusicPlayerResolve, UpperCaseSpotifyIdentifierIsLowerCasedFirst) {
    EXPECT_EQ(resolve("COM.SPOTIFY.CLIENT", std::nullopt), MusicPlayer::spotify);
}

TEST(MusicPlayerResolve, AppleMusicIdentifierInScriptCaseResolves) {
    EXPECT_EQ(resolve("com.apple.Music", std::nullopt), MusicPlayer::appleMusic);
}

TEST(MusicPlayerResolve, LongerIdentifierFallsThroughToTheNameTests) {
    EXPECT_EQ(resolve("com.apple.musicx", std::nullopt), std::nullopt);
    EXPECT_EQ(resolve("com.apple.musicx", "QQ音乐"), MusicPlayer::qqMusic);
}

TEST(MusicPlayerResolve, NameMusicAloneIsAppleMusicButAppleMusicIsNot) {
    EXPECT_EQ(resolve(std::nullopt, "Music"), MusicPlayer::appleMusic);
    EXPECT_EQ(resolve(std::nullopt, "音乐"), MusicPlayer::appleMusic);
    EXPECT_EQ(resolve(std::nullopt, "Apple Music"), std::nullopt);
}

TEST(MusicPlayerResolve, ChineseAndPartialNamesResolve) {
    EXPECT_EQ(resolve(std::nullopt, "网易云音乐"), MusicPlayer::netEaseMusic);
    EXPECT_EQ(resolve(std::nullopt, "QQ音乐"), MusicPlayer::qqMusic);
    EXPECT_EQ(resolve(std::nullopt, "NeteaseMusic Agent"), MusicPlayer::netEaseMusic);
    EXPECT_EQ(resolve(std::nullopt, "My CloudMusic"), MusicPlayer::netEaseMusic);
    EXPECT_EQ(resolve(std::nullopt, "QQMusic Helper"), MusicPlayer::qqMusic);
}

TEST(MusicPlayerResolve, SpotifyByExactNameOnly) {
    EXPECT_EQ(resolve(std::nullopt, "SPOTIFY"), MusicPlayer::spotify);
    EXPECT_EQ(resolve(std::nullopt, "Spotify Premium"), std::nullopt);
}

TEST(MusicPlayerResolve, BothInputsAbsentResolveToNothing) {
    EXPECT_EQ(resolve(std::nullopt, std::nullopt), std::nullopt);
    EXPECT_EQ(resolve("", ""), std::nullopt);
}

TEST(MusicPlayerResolve, IdentifierWinsOverName) {
    EXPECT_EQ(resolve("com.spotify.client", "QQ Music"), MusicPlayer::spotify);
}

TEST(MusicPlayerResolve, EveryTabledIdentifier) {
    EXPECT_EQ(resolve("com.tencent.qqmusicmac", std::nullopt), MusicPlayer::qqMusic);
    EXPECT_EQ(resolve("com.tencent.qqmusic", std::nullopt), MusicPlayer::qqMusic);
    EXPECT_EQ(resolve("com.netease.163music", std::nullopt), MusicPlayer::netEaseMusic);
    EXPECT_EQ(resolve("com.netease.music.163", std::nullopt), MusicPlayer::netEaseMusic);
    EXPECT_EQ(resolve("com.netease.163music.osx", std::nullopt), MusicPlayer::netEaseMusic);
}

TEST(MusicPlayerResolve, LowerCasingIsUnicodeAwareAndLocaleIndependent) {
    // A capital I must become i (not the Turkish dotless ı) whatever the locale.
    EXPECT_EQ(resolve("COM.TENCENT.QQMUSIC", std::nullopt), MusicPlayer::qqMusic);
    // Non-ASCII capitals are lowered too: "NETEASE" inside a name with accented capitals.
    EXPECT_EQ(resolve(std::nullopt, "ÉCOUTE NETEASE"), MusicPlayer::netEaseMusic);
    EXPECT_EQ(resolve(std::nullopt, "MÚSIC"), std::nullopt);
}

TEST(MusicPlaybackState, CaseOrderAndTexts) {
    const auto cases = allCases<MusicPlaybackState>();
    ASSERT_EQ(cases.size(), 6u);
    EXPECT_EQ(cases[0], MusicPlaybackState::notRunning);
    EXPECT_EQ(cases[5], MusicPlaybackState::unknown);
    EXPECT_EQ(displayText(MusicPlaybackState::notRunning), "Not Running");
    EXPECT_EQ(displayText(MusicPlaybackState::playing), "Playing");
    EXPECT_EQ(displayText(MusicPlaybackState::paused), "Paused");
    EXPECT_EQ(displayText(MusicPlaybackState::stopped), "Stopped");
    EXPECT_EQ(displayText(MusicPlaybackState::permissionDenied), "Automation Permission Required");
    EXPECT_EQ(displayText(MusicPlaybackState::unknown), "Unknown");
}

TEST(MusicPlaybackSnapshot, SnapshotsDifferingOnlyInVolumeAreNotEqual) {
    const MusicPlaybackSnapshot a{MusicPlayer::spotify, MusicPlaybackState::playing, 0.5};
    const MusicPlaybackSnapshot b{MusicPlayer::spotify, MusicPlaybackState::playing, 0.5000001};
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a == a);
}

TEST(MusicPlaybackSnapshot, NaNLevelNeverEqualsAnything) {
    const MusicPlaybackSnapshot a{MusicPlayer::spotify, MusicPlaybackState::playing, std::nan("")};
    EXPECT_FALSE(a == a);
}

TEST(MusicPlaybackSnapshot, PlayerAndStateTakePartInEquality) {
    const MusicPlaybackSnapshot a{MusicPlayer::spotify, MusicPlaybackState::playing, 1};
    EXPECT_FALSE(a == (MusicPlaybackSnapshot{MusicPlayer::appleMusic, MusicPlaybackState::playing, 1}));
    EXPECT_FALSE(a == (MusicPlaybackSnapshot{std::nullopt, MusicPlaybackState::playing, 1}));
    EXPECT_FALSE(a == (MusicPlaybackSnapshot{MusicPlayer::spotify, MusicPlaybackState::paused, 1}));
}

TEST(MusicPlaybackSnapshot, NoPlayerSnapshotIsNoPlayerNotRunningZero) {
    const auto none = MusicPlaybackSnapshot::noPlayer();
    EXPECT_EQ(none.player, std::nullopt);
    EXPECT_EQ(none.state, MusicPlaybackState::notRunning);
    EXPECT_EQ(none.volumeLevel, 0.0);
}
