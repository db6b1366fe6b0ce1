#include <gtest/gtest.h>

#include <memory>

#include "core/OverlayPreferences.h"

using namespace lorvane;

namespace {

struct Fixture {
    std::shared_ptr<MemoryKeyValueStore> store = std::make_shared<MemoryKeyValueStore>();
    std::unique_ptr<OverlayPreferences> preferences() { return std::make_unique<OverlayPreferences>(store); }
};

const MusicPlayerSet allPlayers{MusicPlayer::appleMusic, MusicPlayer::qqMusic, MusicPlayer::netEaseMusic,
                                MusicPlayer::spotify};

}  // namespace

TEST(OverlayDisplayModeAndPosition, RawValuesAndTitles) {
    EXPECT_EQ(rawValue(OverlayDisplayMode::fullscreenFog), "fullscreenFog");
    EXPECT_EQ(title(OverlayDisplayMode::compact), "Standard Waveform");
    EXPECT_EQ(title(OverlayDisplayMode::fullscreenFog), "Fullscreen Fog");
    EXPECT_EQ(title(OverlayPosition::top), "Top of Screen");
    EXPECT_EQ(title(OverlayPosition::center), "Center of Screen");
    EXPECT_EQ(title(OverlayPosition::bottom), "Bottom of Screen");
    EXPECT_EQ(fromRawValue<OverlayPosition>("middle"), std::nullopt);
}

TEST(OverlayPreferences, EmptyStoreYieldsTheDocumentedDefaults) {
    Fixture f;
    auto p = f.preferences();
    EXPECT_TRUE(p->overlayEnabled());
    EXPECT_TRUE(p->autoShow());
    EXPECT_TRUE(p->avoidsCoveringWindows());
    EXPECT_TRUE(p->audioResponsive());
    EXPECT_EQ(p->displayMode(), OverlayDisplayMode::compact);
    EXPECT_EQ(p->position(), OverlayPosition::center);
    EXPECT_EQ(p->color(), WaveColor::cyan);
    EXPECT_EQ(p->enabledPlayers(), allPlayers);
    EXPECT_EQ(f.store->writeCount(), 0u) << "construction writes nothing";
}

TEST(OverlayPreferences, DisplayModeOnlyExactFullscreenFogGivesFog) {
    Fixture f;
    f.store->setString("overlayDisplayMode", "compact");
    EXPECT_EQ(f.preferences()->displayMode(), OverlayDisplayMode::compact);
    f.store->setString("overlayDisplayMode", "Fullscreenfog");
    EXPECT_EQ(f.preferences()->displayMode(), OverlayDisplayMode::compact);
    f.store->setString("overlayDisplayMode", "fullscreenFog");
    EXPECT_EQ(f.preferences()->displayMode(), OverlayDisplayMode::fullscreenFog);
}

TEST(OverlayPreferences, PositionMiddleReadsAsCenter) {
    Fixture f;
    f.store->setString("overlayPosition", "middle");
    EXPECT_EQ(f.preferences()->position(), OverlayPosition::center);
    f.store->setString("overlayPosition", "bottom");
    EXPECT_EQ(f.preferences()->position(), OverlayPosition::bottom);
    f.store->setString("overlayPosition", "top");
    EXPECT_EQ(f.preferences()->position(), OverlayPosition::top);
}

TEST(OverlayPreferences, UnknownColourRedReadsAsCyan) {
    Fixture f;
    f.store->setString("waveColor", "red");
    EXPECT_EQ(f.preferences()->color(), WaveColor::cyan);
    f.store->setString("waveColor", "neon");
    EXPECT_EQ(f.preferences()->color(), WaveColor::neon);
}

TEST(OverlayPreferences, PlayerListWithUnknownAndRepeatedNamesKeepsTheKnownOnes) {
    Fixture f;
    f.store->setStringArray("enabledMusicPlayers", {"spotify", "winamp", "spotify"});
    EXPECT_EQ(f.preferences()->enabledPlayers(), MusicPlayerSet{MusicPlayer::spotify});
}

TEST(OverlayPreferences, EmptyPlayerListIsEmptyButMissingKeyIsAllFour) {
    Fixture f;
    f.store->setStringArray("enabledMusicPlayers", {});
    EXPECT_TRUE(f.preferences()->enabledPlayers().empty());
    f.store->remove("enabledMusicPlayers");
    EXPECT_EQ(f.preferences()->enabledPlayers(), allPlayers);
}

TEST(OverlayPreferences, PlayerListOfAnotherKindReadsAsAllFour) {
    Fixture f;
    f.store->setBool("enabledMusicPlayers", true);
    EXPECT_EQ(f.preferences()->enabledPlayers(), allPlayers);
}

TEST(OverlayPreferences, AutoShowStringNOReadsAsFalseNotTheDefault) {
    Fixture f;
    f.store->setString("autoShow", "NO");
    EXPECT_FALSE(f.preferences()->autoShow());
}

TEST(OverlayPreferences, BoolValueUsesTheStoresBooleanReading) {
    MemoryKeyValueStore store;
    EXPECT_TRUE(OverlayPreferences::boolValue(store, "k", true));
    EXPECT_FALSE(OverlayPreferences::boolValue(store, "k", false));
    for (const char* yes : {"YES", "yes", "true", "T", "1", "42", "  +007", "y"}) {
        store.setString("k", yes);
        EXPECT_TRUE(OverlayPreferences::boolValue(store, "k", false)) << yes;
    }
    for (const char* no : {"NO", "false", "0", "", "000", "maybe", "-0", " "}) {
        store.setString("k", no);
        EXPECT_FALSE(OverlayPreferences::boolValue(store, "k", true)) << no;
    }
    store.setNumber("k", 0.0);
    EXPECT_FALSE(OverlayPreferences::boolValue(store, "k", true));
    store.setNumber("k", -2.5);
    EXPECT_TRUE(OverlayPreferences::boolValue(store, "k", false));
    store.setStringArray("k", {"YES"});
    EXPECT_FALSE(OverlayPreferences::boolValue(store, "k", true));
}

TEST(OverlayPreferences, DisablingSpotifyThenAppleMusicStoresTheSortedRest) {
    Fixture f;
    auto p = f.preferences();
    p->setPlayer(MusicPlayer::spotify, false);
    p->setPlayer(MusicPlayer::appleMusic, false);
    EXPECT_EQ(f.store->stringArray("enabledMusicPlayers"), (KeyValueStore::StringArray{"netEaseMusic", "qqMusic"}));
}

TEST(OverlayPreferences, AllFourPlayersAreStoredInSortedOrder) {
    Fixture f;
    auto p = f.preferences();
    p->setPlayer(MusicPlayer::spotify, true);  // already present: the set stays, the write happens
    EXPECT_EQ(f.store->writeCount(), 1u);
    EXPECT_EQ(f.store->stringArray("enabledMusicPlayers"),
              (KeyValueStore::StringArray{"appleMusic", "netEaseMusic", "qqMusic", "spotify"}));
}

TEST(OverlayPreferences, AssigningTheCurrentPositionStillWrites) {
    Fixture f;
    auto p = f.preferences();
    ASSERT_FALSE(f.store->object("overlayPosition"));
    p->setPosition(OverlayPosition::center);
    EXPECT_EQ(f.store->string("overlayPosition"), "center");
    EXPECT_EQ(f.store->writeCount(), 1u);
}

TEST(OverlayPreferences, ObserversAreNotifiedBeforeTheValueIsStored) {
    Fixture f;
    auto p = f.preferences();
    std::vector<std::string> seen;
    p->objectWillChange.connect([&] {
        seen.push_back(std::string(rawValue(p->color())) + "/" + f.store->string("waveColor").value_or("-"));
    });
    p->setColor(WaveColor::neon);
    p->setColor(WaveColor::ocean);
    EXPECT_EQ(seen, (std::vector<std::string>{"cyan/-", "neon/neon"}));
    EXPECT_EQ(p->color(), WaveColor::ocean);
}

TEST(OverlayPreferences, EveryMemberIsWrittenUnderItsKeyInItsStoredForm) {
    Fixture f;
    auto p = f.preferences();
    p->setOverlayEnabled(false);
    p->setAutoShow(false);
    p->setAvoidsCoveringWindows(false);
    p->setAudioResponsive(false);
    p->setDisplayMode(OverlayDisplayMode::fullscreenFog);
    p->setPosition(OverlayPosition::bottom);
    p->setColor(WaveColor::coralSky);
    p->setEnabledPlayers({});
    EXPECT_EQ(f.store->object("overlayEnabled"), KeyValueStore::Value(false));
    EXPECT_EQ(f.store->object("autoShow"), KeyValueStore::Value(false));
    EXPECT_EQ(f.store->object("avoidsCoveringWindows"), KeyValueStore::Value(false));
    EXPECT_EQ(f.store->object("audioResponsive"), KeyValueStore::Value(false));
    EXPECT_EQ(f.store->string("overlayDisplayMode"), "fullscreenFog");
    EXPECT_EQ(f.store->string("overlayPosition"), "bottom");
    EXPECT_EQ(f.store->string("waveColor"), "coralSky");
    EXPECT_EQ(f.store->stringArray("enabledMusicPlayers"), KeyValueStore::StringArray{});

    auto again = f.preferences();
    EXPECT_FALSE(again->overlayEnabled());
    EXPECT_FALSE(again->autoShow());
    EXPECT_FALSE(again->avoidsCoveringWindows());
    EXPECT_FALSE(again->audioResponsive());
    EXPECT_EQ(again->displayMode(), OverlayDisplayMode::fullscreenFog);
    EXPECT_EQ(again->position(), OverlayPosition::bottom);
    EXPECT_EQ(again->color(), WaveColor::coralSky);
    EXPECT_TRUE(again->enabledPlayers().empty());
}

TEST(OverlayPreferences, NumberWhereAStringBelongsFallsBack) {
    Fixture f;
    f.store->setNumber("overlayDisplayMode", 1);
    f.store->setNumber("overlayPosition", 0);
    f.store->setNumber("waveColor", 3);
    auto p = f.preferences();
    EXPECT_EQ(p->displayMode(), OverlayDisplayMode::compact);
    EXPECT_EQ(p->position(), OverlayPosition::center);
    EXPECT_EQ(p->color(), WaveColor::cyan);
}

// MARK: Keyed change announcements

namespace {
struct ChangeLog {
    explicit ChangeLog(OverlayPreferences& preferences) : preferences_(preferences) {
        preferences.changed.connect([this](PreferenceKey key) {
            keys.push_back(key);
            // Announced after the change: the new value is already readable and stored.
            storedWhenAnnounced.push_back(preferences_.defaults().object(std::string(rawValue(key))).has_value());
        });
    }
    std::vector<PreferenceKey> keys;
    std::vector<bool> storedWhenAnnounced;

private:
    OverlayPreferences& preferences_;
};
}  // namespace

TEST(OverlayPreferencesChanges, EachMemberAnnouncesItsOwnKeyAfterTheChange) {
    Fixture f;
    auto p = f.preferences();
    ChangeLog log(*p);
    std::vector<bool> seenValues;
    p->changed.connect([&](PreferenceKey key) {
        if (key == PreferenceKey::overlayEnabled) seenValues.push_back(p->overlayEnabled());
    });
    p->setOverlayEnabled(false);
    p->setAutoShow(false);
    p->setAvoidsCoveringWindows(false);
    p->setAudioResponsive(false);
    p->setDisplayMode(OverlayDisplayMode::fullscreenFog);
    p->setPosition(OverlayPosition::bottom);
    p->setColor(WaveColor::neon);
    p->setPlayer(MusicPlayer::spotify, false);
    p->setRenderer(RendererChoice::cpu);
    const std::vector<PreferenceKey> expected{PreferenceKey::overlayEnabled,  PreferenceKey::autoShow,
                                              PreferenceKey::avoidsCoveringWindows, PreferenceKey::audioResponsive,
                                              PreferenceKey::displayMode,     PreferenceKey::position,
                                              PreferenceKey::color,           PreferenceKey::enabledPlayers,
                                              PreferenceKey::renderer};
    EXPECT_EQ(log.keys, expected);
    EXPECT_EQ(log.storedWhenAnnounced, std::vector<bool>(expected.size(), true));
    EXPECT_EQ(seenValues, std::vector<bool>{false});
}

TEST(OverlayPreferencesChanges, AnUnchangedValueIsWrittenButNotAnnounced) {
    Fixture f;
    auto p = f.preferences();
    ChangeLog log(*p);
    p->setPosition(OverlayPosition::center);
    p->setOverlayEnabled(true);
    p->setColor(WaveColor::cyan);
    p->setPlayer(MusicPlayer::spotify, true);
    p->setRenderer(RendererChoice::automatic);
    EXPECT_TRUE(log.keys.empty());
    EXPECT_EQ(f.store->string(OverlayPreferences::rendererKey), "automatic");
    EXPECT_EQ(f.store->string(OverlayPreferences::positionKey), "center");
    EXPECT_TRUE(f.store->object(OverlayPreferences::overlayEnabledKey));
    EXPECT_TRUE(f.store->stringArray(OverlayPreferences::enabledPlayersKey));
}

TEST(OverlayPreferencesChanges, KeysRawValuesAreTheStoreKeys) {
    EXPECT_EQ(rawValue(PreferenceKey::displayMode), "overlayDisplayMode");
    EXPECT_EQ(rawValue(PreferenceKey::position), "overlayPosition");
    EXPECT_EQ(rawValue(PreferenceKey::color), "waveColor");
    EXPECT_EQ(rawValue(PreferenceKey::enabledPlayers), "enabledMusicPlayers");
    EXPECT_STREQ(OverlayPreferences::autoShowKey, "autoShow");
    EXPECT_STREQ(OverlayPreferences::rendererKey, "renderer");
}

// MARK: Other players and hand-edited player lists

TEST(OverlayPreferencesPlayers, AListOfNothingButUnknownWordsReadsAsAllPlayersNotNone) {
    Fixture f;
    f.store->setStringArray(OverlayPreferences::enabledPlayersKey, {"true"});
    EXPECT_EQ(f.preferences()->enabledPlayers(), allPlayers);
    f.store->setStringArray(OverlayPreferences::enabledPlayersKey, {"Spotify", "winamp"});
    EXPECT_EQ(f.preferences()->enabledPlayers(), allPlayers);
    f.store->setStringArray(OverlayPreferences::enabledPlayersKey, {});
    EXPECT_TRUE(f.preferences()->enabledPlayers().empty()) << "an empty list is the user's choice";
    f.store->setBool(OverlayPreferences::enabledPlayersKey, true);
    EXPECT_EQ(f.preferences()->enabledPlayers(), allPlayers);
}

TEST(OverlayPreferencesPlayers, OtherPlayersAreEnabledByDefaultAndOddValuesKeepTheDefault) {
    Fixture f;
    auto p = f.preferences();
    EXPECT_TRUE(p->otherPlayersEnabled());
    EXPECT_TRUE(p->disabledOtherPlayers().empty());
    EXPECT_TRUE(p->seenOtherPlayers().empty());
    EXPECT_EQ(p->enabledPlayerChoice(), EnabledPlayers::all());
    for (const char* odd : {"maybe", "", "yes", "1"}) {
        f.store->setString(OverlayPreferences::otherPlayersEnabledKey, odd);
        EXPECT_TRUE(f.preferences()->otherPlayersEnabled()) << odd;
    }
    for (const char* off : {"false", "FALSE", "no", "0", "off"}) {
        f.store->setString(OverlayPreferences::otherPlayersEnabledKey, off);
        EXPECT_FALSE(f.preferences()->otherPlayersEnabled()) << off;
    }
    f.store->setStringArray(OverlayPreferences::otherPlayersEnabledKey, {"x"});
    EXPECT_TRUE(f.preferences()->otherPlayersEnabled());
}

TEST(OverlayPreferencesPlayers, OtherPlayerSwitchesAreStoredByDesktopEntryAndReadBack) {
    Fixture f;
    {
        auto p = f.preferences();
        p->setOtherPlayerEnabled("vlc", false);
        p->setOtherPlayerEnabled("org.gnome.Music", false);
        p->setOtherPlayerEnabled("vlc", true);
        p->setOtherPlayersEnabled(false);
        EXPECT_FALSE(p->enabledPlayerChoice().contains(PlaybackPlayer::other("vlc", "VLC")));
    }
    EXPECT_EQ(f.store->stringArray(OverlayPreferences::disabledOtherPlayersKey),
              std::vector<std::string>{"org.gnome.Music"});
    auto p = f.preferences();
    EXPECT_FALSE(p->otherPlayersEnabled());
    EXPECT_FALSE(p->otherPlayerEnabled("org.gnome.Music"));
    EXPECT_TRUE(p->otherPlayerEnabled("vlc"));
    EXPECT_EQ(p->enabledPlayers(), allPlayers) << "the named players' key is untouched";
    EXPECT_FALSE(f.store->object(OverlayPreferences::enabledPlayersKey));
}

TEST(OverlayPreferencesPlayers, SeenPlayersAreRememberedOnceBoundedAndInOrder) {
    Fixture f;
    auto p = f.preferences();
    int changes = 0;
    p->objectWillChange.connect([&] { ++changes; });
    p->noteSeenOtherPlayer("org.gnome.Music");
    const auto writes = f.store->writeCount();
    p->noteSeenOtherPlayer("org.gnome.Music");
    EXPECT_EQ(f.store->writeCount(), writes) << "a known player writes nothing";
    EXPECT_EQ(changes, 1);
    p->noteSeenOtherPlayer("");
    p->noteSeenOtherPlayer(std::string(5000, 'x'));
    EXPECT_EQ(p->seenOtherPlayers().back().size(), maxForeignTextBytes);
    for (int i = 0; i < 100; ++i) p->noteSeenOtherPlayer("player" + std::to_string(i));
    EXPECT_EQ(p->seenOtherPlayers().size(), OverlayPreferences::maxSeenOtherPlayers);
    EXPECT_EQ(p->seenOtherPlayers().back(), "player99");
    EXPECT_EQ(f.preferences()->seenOtherPlayers(), p->seenOtherPlayers());
}

TEST(OverlayPreferencesPlayers, HandEditedSeenListsDropEmptiesDuplicatesAndExcess) {
    Fixture f;
    std::vector<std::string> stored{"vlc", "", "vlc", "org.kde.elisa"};
    for (int i = 0; i < 200; ++i) stored.push_back("p" + std::to_string(i));
    f.store->setStringArray(OverlayPreferences::seenOtherPlayersKey, stored);
    const auto seen = f.preferences()->seenOtherPlayers();
    EXPECT_EQ(seen.size(), OverlayPreferences::maxSeenOtherPlayers);
    EXPECT_EQ(seen.back(), "p199");
    f.store->setBool(OverlayPreferences::seenOtherPlayersKey, true);
    EXPECT_TRUE(f.preferences()->seenOtherPlayers().empty());
    f.store->setString(OverlayPreferences::seenOtherPlayersKey, "oops");
    EXPECT_TRUE(f.preferences()->seenOtherPlayers().empty());
}
