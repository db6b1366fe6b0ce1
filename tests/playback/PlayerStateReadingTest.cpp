#include <gtest/gtest.h>

#include <clocale>
#include <cmath>

#include "core/playback/PlayerStateReading.h"

using namespace lorvane;

namespace {
MusicPlaybackSnapshot read(const char* text, double system = 1.0) {
    return playerStateReading(MusicPlayer::spotify, PlayerStateAnswer{std::string(text)}, system);
}
}  // namespace

TEST(PlayerStateReading, StatesAreLowerCasedFirst) {
    EXPECT_EQ(read("playing|100").state, MusicPlaybackState::playing);
    EXPECT_EQ(read("Paused|100").state, MusicPlaybackState::paused);
    EXPECT_EQ(read("STOPPED|100").state, MusicPlaybackState::stopped);
    EXPECT_EQ(read(" playing|100").state, MusicPlaybackState::unknown);
    EXPECT_EQ(read("|100").state, MusicPlaybackState::unknown);
    EXPECT_EQ(read("playing|100").player, MusicPlayer::spotify);
}

TEST(PlayerStateReading, VolumePieceMustParseWhole) {
    EXPECT_EQ(read("playing|25").volumeLevel, 0.5);
    EXPECT_EQ(read("playing|25.0").volumeLevel, 0.5);
    EXPECT_EQ(read("playing|2.5e1").volumeLevel, 0.5);
    EXPECT_EQ(read("playing| 25").volumeLevel, 1.0);
    EXPECT_EQ(read("playing|25 ").volumeLevel, 1.0);
    EXPECT_EQ(read("playing|").volumeLevel, 1.0);
    EXPECT_EQ(read("playing|25|7").volumeLevel, 0.5);  // later pieces are ignored
    EXPECT_EQ(read("playing||25").volumeLevel, 1.0);   // empty pieces are kept
}

TEST(PlayerStateReading, DecimalPointIsADotWhateverTheLocale) {
    // A locale with a decimal comma must not change how "12.25" parses (only when the system has one).
    const char* previous = std::setlocale(LC_NUMERIC, nullptr);
    const std::string saved = previous ? previous : "C";
    const bool changed = std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr;
    EXPECT_EQ(read("playing|12.25").volumeLevel, std::sqrt(0.1225));
    EXPECT_EQ(read("playing|12,25").volumeLevel, 1.0);
    if (changed) std::setlocale(LC_NUMERIC, saved.c_str());
}

TEST(PlayerStateReading, SquareRootOfPlayerAndSystemVolume) {
    EXPECT_DOUBLE_EQ(read("paused|40", 0.5).volumeLevel, std::sqrt(0.2));
    EXPECT_EQ(read("paused|100", 0.0).volumeLevel, 0.0);
    EXPECT_EQ(read("paused|1000", 0.5).volumeLevel, 1.0);
    EXPECT_TRUE(std::isnan(read("paused|nan", 0.5).volumeLevel));
}

TEST(PlayerStateReading, ErrorNumbers) {
    auto state = [](std::optional<int> number) {
        return playerStateReading(MusicPlayer::appleMusic, PlayerStateError{number}, 0.3);
    };
    EXPECT_EQ(state(-1743), (MusicPlaybackSnapshot{MusicPlayer::appleMusic, MusicPlaybackState::permissionDenied, 0.3}));
    EXPECT_EQ(state(-10004).state, MusicPlaybackState::permissionDenied);
    EXPECT_EQ(state(-1712).state, MusicPlaybackState::unknown);
    EXPECT_EQ(state(std::nullopt), (MusicPlaybackSnapshot{MusicPlayer::appleMusic, MusicPlaybackState::unknown, 0.3}));
}
