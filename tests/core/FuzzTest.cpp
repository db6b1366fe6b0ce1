// Random strings (empty, very long, invalid UTF-8) must never crash the readers, and every result
// must be one of the allowed values.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "core/OverlayPreferences.h"

using namespace lorvane;

namespace {

std::string randomString(std::mt19937& rng) {
    static const std::vector<std::string> seeds{"spotify", "Spotify", "com.spotify.client", "qq音乐", "网易云音乐",
                                                "music", "YES", "fullscreenFog", "top", "cyan", "\xff\xfe", "\xc3"};
    std::uniform_int_distribution<int> kind(0, 5);
    std::string s;
    switch (kind(rng)) {
        case 0: return {};
        case 1: {  // arbitrary bytes, often invalid UTF-8
            std::uniform_int_distribution<int> len(1, 40), byte(0, 255);
            for (int i = len(rng); i > 0; --i) s.push_back(static_cast<char>(byte(rng)));
            return s;
        }
        case 2: return std::string(100000, static_cast<char>('a' + rng() % 26));
        case 3: {  // mutated known words
            s = seeds[rng() % seeds.size()];
            if (!s.empty()) s[rng() % s.size()] = static_cast<char>(rng() % 256);
            return s;
        }
        case 4: return seeds[rng() % seeds.size()] + seeds[rng() % seeds.size()];
        default: return seeds[rng() % seeds.size()];
    }
}

}  // namespace

TEST(RandomInput, ResolveAndRawValueConstructorsGiveAllowedValues) {
    std::mt19937 rng(20261122);
    for (int i = 0; i < 3000; ++i) {
        const std::string a = randomString(rng), b = randomString(rng);
        const auto player = resolveMusicPlayer(a, b);
        if (player) { EXPECT_LT(caseIndex(*player), 4u); }
        if (auto p = fromRawValue<MusicPlayer>(a)) { EXPECT_EQ(rawValue(*p), a); }
        if (auto c = fromRawValue<WaveColor>(a)) { EXPECT_EQ(rawValue(*c), a); }
        if (auto m = fromRawValue<OverlayDisplayMode>(a)) { EXPECT_EQ(rawValue(*m), a); }
        if (auto p = fromRawValue<OverlayPosition>(a)) { EXPECT_EQ(rawValue(*p), a); }
    }
}

TEST(RandomInput, PreferenceReadersFallBackToAllowedValues) {
    std::mt19937 rng(7);
    const char* keys[] = {"overlayEnabled", "autoShow",  "avoidsCoveringWindows", "audioResponsive",
                          "overlayDisplayMode", "overlayPosition", "waveColor", "enabledMusicPlayers"};
    for (int i = 0; i < 1500; ++i) {
        auto store = std::make_shared<MemoryKeyValueStore>();
        for (const char* key : keys) {
            switch (rng() % 4) {
                case 0: break;
                case 1: store->setString(key, randomString(rng)); break;
                case 2: store->setStringArray(key, {randomString(rng), randomString(rng)}); break;
                default: store->setNumber(key, static_cast<double>(static_cast<int>(rng())) / 7.0); break;
            }
        }
        OverlayPreferences p(store);
        EXPECT_LT(caseIndex(p.displayMode()), 2u);
        EXPECT_LT(caseIndex(p.position()), 3u);
        EXPECT_LT(caseIndex(p.color()), 17u);
        EXPECT_LE(p.enabledPlayers().size(), 4u);
        for (MusicPlayer player : p.enabledPlayers()) {
            EXPECT_LT(caseIndex(player), 4u);
        }
    }
}
