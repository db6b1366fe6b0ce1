// The preferences over the real QSettings INI file, in a temporary directory.
#include <gtest/gtest.h>

#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include "core/OverlayPreferences.h"
#include "platform/linux/QSettingsStore.h"

using namespace lorvane;

namespace {

class SettingsFile : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path() const { return dir.filePath("Lorvane.conf"); }
    std::unique_ptr<OverlayPreferences> open() {
        store = std::make_shared<QSettingsStore>(path());
        return std::make_unique<OverlayPreferences>(store);
    }
    void writeFile(const QByteArray& bytes) {
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    QByteArray readFile() const {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    std::shared_ptr<QSettingsStore> store;
};

const MusicPlayerSet allPlayers{MusicPlayer::appleMusic, MusicPlayer::qqMusic, MusicPlayer::netEaseMusic,
                                MusicPlayer::spotify};

}  // namespace

TEST_F(SettingsFile, FreshStoreGivesDefaultsAndWritesNothing) {
    auto p = open();
    EXPECT_TRUE(p->overlayEnabled());
    EXPECT_TRUE(p->autoShow());
    EXPECT_TRUE(p->avoidsCoveringWindows());
    EXPECT_TRUE(p->audioResponsive());
    EXPECT_EQ(p->displayMode(), OverlayDisplayMode::compact);
    EXPECT_EQ(p->position(), OverlayPosition::center);
    EXPECT_EQ(p->color(), WaveColor::cyan);
    EXPECT_EQ(p->enabledPlayers(), allPlayers);
    EXPECT_FALSE(QFile::exists(path()));
}

TEST_F(SettingsFile, ValuesSurviveANewPreferencesObjectOverTheSameFile) {
    {
        auto p = open();
        p->setAutoShow(false);
        p->setDisplayMode(OverlayDisplayMode::fullscreenFog);
        p->setPosition(OverlayPosition::top);
        p->setColor(WaveColor::limePulse);
        p->setPlayer(MusicPlayer::qqMusic, false);
    }
    auto again = open();
    EXPECT_TRUE(again->overlayEnabled());
    EXPECT_FALSE(again->autoShow());
    EXPECT_EQ(again->displayMode(), OverlayDisplayMode::fullscreenFog);
    EXPECT_EQ(again->position(), OverlayPosition::top);
    EXPECT_EQ(again->color(), WaveColor::limePulse);
    EXPECT_EQ(again->enabledPlayers(),
              (MusicPlayerSet{MusicPlayer::appleMusic, MusicPlayer::netEaseMusic, MusicPlayer::spotify}));
}

TEST_F(SettingsFile, EveryAssignmentIsOnDiskAtOnce) {
    auto p = open();
    p->setColor(WaveColor::ocean);
    // Another reader sees it while our objects are still alive: nothing waits for a later flush.
    QSettings reader(path(), QSettings::IniFormat);
    EXPECT_EQ(reader.value("waveColor").toString(), "ocean");
    p->setOverlayEnabled(false);
    reader.sync();
    EXPECT_EQ(reader.value("overlayEnabled").toString(), "false");
}

TEST_F(SettingsFile, EmptyAndOneItemPlayerListsRoundTrip) {
    {
        auto p = open();
        p->setEnabledPlayers({});
    }
    EXPECT_TRUE(open()->enabledPlayers().empty());
    {
        auto p = open();
        p->setPlayer(MusicPlayer::spotify, true);
    }
    EXPECT_EQ(open()->enabledPlayers(), MusicPlayerSet{MusicPlayer::spotify});
}

TEST_F(SettingsFile, HandWrittenWrongKindsReadAsTheirFallbacks) {
    writeFile(
        "[General]\n"
        "overlayPosition=3\n"
        "overlayDisplayMode=Fullscreenfog\n"
        "autoShow=NO\n"
        "overlayEnabled=1\n"
        "audioResponsive=maybe\n"
        "waveColor=red\n"
        "enabledMusicPlayers=spotify, winamp, spotify\n");
    const QByteArray before = readFile();
    auto p = open();
    EXPECT_EQ(p->position(), OverlayPosition::center);
    EXPECT_EQ(p->displayMode(), OverlayDisplayMode::compact);
    EXPECT_FALSE(p->autoShow());
    EXPECT_TRUE(p->overlayEnabled());
    EXPECT_FALSE(p->audioResponsive());
    EXPECT_TRUE(p->avoidsCoveringWindows());
    EXPECT_EQ(p->color(), WaveColor::cyan);
    EXPECT_EQ(p->enabledPlayers(), MusicPlayerSet{MusicPlayer::spotify});
    EXPECT_EQ(readFile(), before) << "reading repairs nothing";
}

TEST_F(SettingsFile, HandWrittenPlayerValuesReadAsDefaultsNotAsNoPlayerAtAll) {
    writeFile(
        "[General]\n"
        "enabledMusicPlayers=true\n"
        "otherPlayersEnabled=perhaps\n"
        "disabledOtherPlayers=\n"
        "seenOtherPlayers=org.gnome.Music, vlc, , vlc\n");
    auto p = open();
    EXPECT_EQ(p->enabledPlayers(), allPlayers);
    EXPECT_TRUE(p->otherPlayersEnabled());
    EXPECT_TRUE(p->disabledOtherPlayers().empty());
    EXPECT_EQ(p->seenOtherPlayers(), (std::vector<std::string>{"org.gnome.Music", "vlc"}));
}

TEST_F(SettingsFile, OtherPlayerChoicesSurviveARestart) {
    {
        auto p = open();
        p->noteSeenOtherPlayer("org.gnome.Music");
        p->noteSeenOtherPlayer("vlc");
        p->setOtherPlayerEnabled("vlc", false);
        p->setOtherPlayersEnabled(false);
    }
    auto p = open();
    EXPECT_EQ(p->seenOtherPlayers(), (std::vector<std::string>{"org.gnome.Music", "vlc"}));
    EXPECT_FALSE(p->otherPlayerEnabled("vlc"));
    EXPECT_TRUE(p->otherPlayerEnabled("org.gnome.Music"));
    EXPECT_FALSE(p->otherPlayersEnabled());
    EXPECT_EQ(p->enabledPlayers(), allPlayers);
}

TEST_F(SettingsFile, GarbageFileGivesDefaultsAndIsReplacedOnlyOnTheNextAssignment) {
    QByteArray garbage;
    for (int i = 0; i < 4096; ++i) garbage.append(static_cast<char>((i * 7919 + 13) % 256));
    garbage.append("\n[General\nautoShow=false\n\xff\xfe=\x01\n");
    writeFile(garbage);
    auto p = open();
    EXPECT_TRUE(p->autoShow());
    EXPECT_EQ(p->color(), WaveColor::cyan);
    EXPECT_EQ(p->enabledPlayers(), allPlayers);
    EXPECT_EQ(readFile(), garbage) << "not rewritten before an assignment";

    p->setColor(WaveColor::neon);
    EXPECT_TRUE(store->lastWriteSucceeded());
    auto again = open();
    EXPECT_EQ(again->color(), WaveColor::neon);
    EXPECT_TRUE(again->autoShow());
}

// QSettings would decode "@Variant(...)" through QDataStream: this one claims a list of four billion
// items, spelled directly and through escapes. Those lines read as the defaults; the rest is read.
TEST_F(SettingsFile, TypedValuesThatClaimGigabytesReadAsTheDefaults) {
    writeFile("[General]\n"
              "overlayEnabled=@Variant(\\0\\0\\0\\t\\0\\xff\\xff\\xff\\xff)\n"
              "autoShow=\\x40Variant(\\0\\0\\0\\t\\0\\xff\\xff\\xff\\xff)\n"
              "enabledMusicPlayers=Spotify, @Variant(\\0\\0\\0\\t\\0\\xff\\xff\\xff\\xff)\n"
              "overlayPosition=\\\n"
              "@DateTime(\\0\\0\\0\\t\\0\\xff\\xff\\xff\\xff)\n"
              "waveColor=neon\n"
              "disabledOtherPlayers=@Invalid()\n");
    auto p = open();
    EXPECT_TRUE(p->overlayEnabled());
    EXPECT_TRUE(p->autoShow());
    EXPECT_EQ(p->enabledPlayers(), allPlayers);
    EXPECT_EQ(p->position(), OverlayPosition::center);
    EXPECT_EQ(p->color(), WaveColor::neon) << "the plain line beside them is read";
    EXPECT_TRUE(p->disabledOtherPlayers().empty());
    // A string of our own that starts with '@' round-trips (QSettings writes it as "@@").
    store->setString("seenOtherPlayers", "@home");
    EXPECT_EQ(QSettingsStore(path()).object("seenOtherPlayers"), KeyValueStore::Value(std::string("@home")));
}

TEST_F(SettingsFile, UnwritableFileKeepsTheProgramOnItsInMemoryValues) {
    // A regular file where the settings directory should be: nothing can be created below it.
    QFile blocker(dir.filePath("blocked"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    store = std::make_shared<QSettingsStore>(dir.filePath("blocked/Lorvane.conf"));
    OverlayPreferences p(store);
    p.setPosition(OverlayPosition::bottom);
    p.setAudioResponsive(false);
    EXPECT_FALSE(store->lastWriteSucceeded());
    EXPECT_EQ(p.position(), OverlayPosition::bottom);
    EXPECT_FALSE(p.audioResponsive());
}

TEST(SettingsLocation, StandardStoreLivesUnderTheXdgConfigDirectory) {
    QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", home.path().toUtf8());
    QSettingsStore store;
    EXPECT_EQ(store.fileName().toStdString(), home.filePath("Tarnhollow/Lorvane.conf").toStdString());
}
