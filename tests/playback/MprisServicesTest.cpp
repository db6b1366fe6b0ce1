// The MPRIS services against test players on a private session bus: what the registry learns,
// the now-playing answers, and the synchronous state query.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>

#include "QtTestSupport.h"
#include "TemporaryDirectory.h"
#include "TestPlayerProcess.h"
#include "core/playback/SystemNowPlayingProvider.h"
#include "platform/linux/LinuxRunningApplications.h"
#include "platform/linux/MprisNowPlayingSource.h"
#include "platform/linux/MprisPlayerRegistry.h"
#include "platform/linux/MprisPlayerStateQuery.h"
#include "platform/linux/ProcessTable.h"
#include "platform/qt/QtMainQueue.h"
#include "support/SessionBus.h"

using namespace lorvane;
using namespace lorvane::test;
using namespace std::chrono_literals;

namespace {

struct ApplicationFirst {
    ApplicationFirst() { ensureApplication(); }
};

struct MprisServices : ::testing::Test {
    ApplicationFirst application;
    SessionBus bus;
    std::unique_ptr<BusConnection> connection;
    QtMainQueue queue;
    TemporaryDirectory emptyProc;  // the machine's own processes stay out of these tests
    std::shared_ptr<MprisPlayerRegistry> registry;
    std::shared_ptr<ProcessTable> processes;

    void SetUp() override {
        ASSERT_TRUE(bus.isRunning()) << bus.error();
        connection = std::make_unique<BusConnection>(bus.address());
        ASSERT_TRUE(connection->connection().isConnected());
        processes = std::make_shared<ProcessTable>(emptyProc.path());
    }
    void TearDown() override {
        registry.reset();
        connection.reset();
    }
    void makeRegistry() {
        registry = MprisPlayerRegistry::make(connection->connection());
        ASSERT_TRUE(registry);
    }
    std::unique_ptr<TestPlayerProcess> player(const std::vector<std::string>& arguments) {
        auto process = std::make_unique<TestPlayerProcess>(bus.address(), arguments);
        EXPECT_TRUE(process->isReady()) << process->error();
        return process;
    }
    // Waits until the registry knows the player's status and process.
    bool known(const QString& busName, const QString& status) {
        return waitUntil(
            [&] {
                const auto* player = registry->find(busName);
                return player && player->playbackStatus == status && player->processIdentifier && player->identity;
            },
            10s);
    }
};

const QString spotifyName = QStringLiteral("org.mpris.MediaPlayer2.spotify");
const QString musicName = QStringLiteral("org.mpris.MediaPlayer2.music");

}  // namespace

TEST_F(MprisServices, RegistryLearnsPlayersThatWereThereBeforeIt) {
    auto spotify = player({"--name", "spotify", "--identity", "Spotify", "--desktop-entry", "com.spotify.Client",
                           "--status", "Playing"});
    makeRegistry();
    ASSERT_TRUE(known(spotifyName, QStringLiteral("Playing")));
    const auto* known = registry->find(spotifyName);
    EXPECT_EQ(known->processIdentifier, spotify->processIdentifier());
    EXPECT_EQ(known->identity, QStringLiteral("Spotify"));
    EXPECT_EQ(known->desktopEntry, QStringLiteral("com.spotify.Client"));
    EXPECT_FALSE(known->owner.isEmpty());
    ASSERT_NE(registry->nowPlaying(), nullptr);
    EXPECT_EQ(registry->nowPlaying()->busName, spotifyName);
}

TEST_F(MprisServices, RegistryFollowsSignalsOfPlayersThatComeAndGo) {
    makeRegistry();
    auto spotify = player({"--name", "spotify", "--identity", "Spotify", "--status", "Paused"});
    ASSERT_TRUE(known(spotifyName, QStringLiteral("Paused")));
    EXPECT_FALSE(registry->find(spotifyName)->desktopEntry);

    ASSERT_TRUE(spotify->command("identity Spotify Premium"));
    ASSERT_TRUE(spotify->command("play"));
    ASSERT_TRUE(waitUntil([&] { return registry->find(spotifyName)->playbackStatus == QStringLiteral("Playing"); }, 10s));
    EXPECT_EQ(registry->find(spotifyName)->identity, QStringLiteral("Spotify Premium"));

    spotify->kill();
    ASSERT_TRUE(waitUntil([&] { return registry->find(spotifyName) == nullptr; }, 10s));
    EXPECT_EQ(registry->nowPlaying(), nullptr);
}

TEST_F(MprisServices, NowPlayingIsTheLatestToStartPlayingElseTheLatestActivePaused) {
    makeRegistry();
    auto spotify = player({"--name", "spotify", "--identity", "Spotify", "--status", "Playing"});
    ASSERT_TRUE(known(spotifyName, QStringLiteral("Playing")));
    auto music = player({"--name", "music", "--identity", "Music", "--status", "Paused"});
    ASSERT_TRUE(known(musicName, QStringLiteral("Paused")));
    EXPECT_EQ(registry->nowPlaying()->busName, spotifyName);  // the only one playing

    ASSERT_TRUE(music->command("play"));
    ASSERT_TRUE(waitUntil([&] { return registry->nowPlaying()->busName == musicName; }, 10s));

    ASSERT_TRUE(music->command("pause"));  // Spotify still plays
    ASSERT_TRUE(waitUntil([&] { return registry->nowPlaying()->busName == spotifyName; }, 10s));

    ASSERT_TRUE(spotify->command("pause"));  // both paused: Spotify changed last
    ASSERT_TRUE(waitUntil([&] { return registry->find(spotifyName)->playbackStatus == QStringLiteral("Paused"); }, 10s));
    EXPECT_EQ(registry->nowPlaying()->busName, spotifyName);

    ASSERT_TRUE(music->command("stop"));
    ASSERT_TRUE(spotify->command("stop"));
    ASSERT_TRUE(waitUntil([&] { return registry->nowPlaying() == nullptr; }, 10s));
}

TEST_F(MprisServices, NowPlayingAnswerCarriesTheOwnersProcessAndAFreshPlayingFlag) {
    makeRegistry();
    auto spotify = player({"--name", "spotify", "--identity", "Spotify", "--status", "Playing"});
    ASSERT_TRUE(known(spotifyName, QStringLiteral("Playing")));
    auto provider = SystemNowPlayingProvider::make(MprisNowPlayingSource::make(registry, queue), queue);
    ASSERT_TRUE(provider);

    auto ask = [&]() -> std::optional<std::optional<SystemNowPlayingSnapshot>> {
        std::optional<std::optional<SystemNowPlayingSnapshot>> answer;
        int calls = 0;
        provider->fetch([&](std::optional<SystemNowPlayingSnapshot> snapshot) {
            answer = snapshot;
            ++calls;
        });
        EXPECT_FALSE(answer);  // never at once
        waitUntil([&] { return answer.has_value(); }, 10s);
        waitUntil([] { return false; }, 400ms);  // past the time limit: still one call
        EXPECT_EQ(calls, 1);
        return answer;
    };

    auto answer = ask();
    ASSERT_TRUE(answer && *answer);
    EXPECT_EQ(**answer, (SystemNowPlayingSnapshot{spotify->processIdentifier(), true}));

    // Paused without telling anyone: the flag is read from the player itself.
    ASSERT_TRUE(spotify->command("signals off"));
    ASSERT_TRUE(spotify->command("pause"));
    answer = ask();
    ASSERT_TRUE(answer && *answer);
    EXPECT_EQ(**answer, (SystemNowPlayingSnapshot{spotify->processIdentifier(), false}));

    // A player that hangs or refuses leaves the question unanswered: nothing, after the time limit.
    ASSERT_TRUE(spotify->command("hang"));
    answer = ask();
    ASSERT_TRUE(answer);
    EXPECT_FALSE(*answer);
    ASSERT_TRUE(spotify->command("respond"));
    ASSERT_TRUE(spotify->command("deny"));
    answer = ask();
    ASSERT_TRUE(answer);
    EXPECT_FALSE(*answer);

    spotify->kill();
    ASSERT_TRUE(waitUntil([&] { return registry->nowPlaying() == nullptr; }, 10s));
    answer = ask();
    ASSERT_TRUE(answer && *answer);
    EXPECT_EQ(**answer, (SystemNowPlayingSnapshot{0, false}));
}

TEST_F(MprisServices, NoSessionBusGivesNoNowPlayingService) {
    BusConnection nowhere("unix:path=/nonexistent/lorvane-no-bus");
    EXPECT_FALSE(nowhere.connection().isConnected());
    const auto none = MprisPlayerRegistry::make(nowhere.connection());
    EXPECT_FALSE(none);
    EXPECT_FALSE(MprisNowPlayingSource::make(none, queue));
    MprisPlayerStateQuery query(none, processes);
    const auto reply = query.queryState(MusicPlayer::spotify);
    ASSERT_TRUE(std::holds_alternative<PlayerStateError>(reply));
    EXPECT_EQ(std::get<PlayerStateError>(reply).number, MprisPlayerStateQuery::playerNotFoundError);
}

TEST_F(MprisServices, StateQueryWordsTheAnswerLikeTheScript) {
    makeRegistry();
    auto spotify = player({"--name", "spotify", "--identity", "Spotify", "--status", "Playing", "--volume", "0.25"});
    auto music = player({"--name", "music", "--identity", "Music", "--status", "Paused", "--no-volume"});
    ASSERT_TRUE(known(spotifyName, QStringLiteral("Playing")));
    ASSERT_TRUE(known(musicName, QStringLiteral("Paused")));
    MprisPlayerStateQuery query(registry, processes);

    auto text = [&](MusicPlayer player) -> std::string {
        const auto reply = query.queryState(player);
        if (!std::holds_alternative<PlayerStateAnswer>(reply)) return "error";
        return std::get<PlayerStateAnswer>(reply).text.value_or("none");
    };
    EXPECT_EQ(text(MusicPlayer::spotify), "playing|25");
    EXPECT_EQ(text(MusicPlayer::appleMusic), "paused");  // no volume: no bar
    ASSERT_TRUE(spotify->command("stop"));
    ASSERT_TRUE(spotify->command("volume 0.5"));
    EXPECT_EQ(text(MusicPlayer::spotify), "stopped|50");

    const auto absent = query.queryState(MusicPlayer::qqMusic);
    ASSERT_TRUE(std::holds_alternative<PlayerStateError>(absent));
    EXPECT_EQ(std::get<PlayerStateError>(absent).number, MprisPlayerStateQuery::playerNotFoundError);
}

TEST_F(MprisServices, StateQueryErrorsForRefusingHangingAndVanishedPlayers) {
    makeRegistry();
    auto spotify = player({"--name", "spotify", "--identity", "Spotify", "--status", "Playing"});
    ASSERT_TRUE(known(spotifyName, QStringLiteral("Playing")));
    MprisPlayerStateQuery query(registry, processes);
    auto number = [&]() -> std::optional<int> {
        const auto reply = query.queryState(MusicPlayer::spotify);
        if (!std::holds_alternative<PlayerStateError>(reply)) return std::nullopt;
        return std::get<PlayerStateError>(reply).number;
    };

    ASSERT_TRUE(spotify->command("deny"));
    EXPECT_EQ(number(), playerQueryNotPermittedError);

    ASSERT_TRUE(spotify->command("allow"));
    ASSERT_TRUE(spotify->command("hang"));
    const auto asked = std::chrono::steady_clock::now();
    EXPECT_EQ(number(), MprisPlayerStateQuery::timedOutError);
    // The query's own limit applies, not the bus's default of 25 seconds.
    EXPECT_LT(std::chrono::steady_clock::now() - asked, 5s);

    spotify->kill();
    ASSERT_TRUE(waitUntil([&] { return registry->find(spotifyName) == nullptr; }, 10s));
    EXPECT_EQ(number(), MprisPlayerStateQuery::playerNotFoundError);
}

TEST_F(MprisServices, PlayerWithOddNamesIsFoundThroughItsProcess) {
    makeRegistry();
    auto odd = player({"--name", "odd", "--identity", "Odd Player", "--status", "Paused", "--volume", "1"});
    ASSERT_TRUE(known(QStringLiteral("org.mpris.MediaPlayer2.odd"), QStringLiteral("Paused")));
    // Its process, as /proc would show it: a Flatpak Spotify.
    emptyProc.symlink("self/ns/mnt", "mnt:[1]");
    const std::string pid = std::to_string(odd->processIdentifier());
    emptyProc.write(pid + "/comm", "Main\n");
    emptyProc.symlink(pid + "/ns/mnt", "mnt:[2]");
    emptyProc.write(pid + "/root/.flatpak-info", "[Application]\nname=com.spotify.Client\n");

    MprisPlayerStateQuery query(registry, processes);
    const auto reply = query.queryState(MusicPlayer::spotify);
    ASSERT_TRUE(std::holds_alternative<PlayerStateAnswer>(reply));
    EXPECT_EQ(std::get<PlayerStateAnswer>(reply).text, "paused|100");

    // The running applications take the player's own names first, the process's where the player has none.
    LinuxRunningApplications applications(registry, processes);
    const auto application = applications.runningApplication(odd->processIdentifier());
    ASSERT_TRUE(application);
    EXPECT_EQ(application->bundleIdentifier, "com.spotify.Client");
    EXPECT_EQ(application->localizedName, "Odd Player");
    const auto all = applications.runningApplications();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0], *application);
}
