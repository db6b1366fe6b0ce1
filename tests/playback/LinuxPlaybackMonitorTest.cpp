// The whole monitor on Qt's event loop against test players on a private session bus.
#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QTimer>
#include <chrono>
#include <cmath>
#include <memory>
#include <vector>

#include "FakePlaybackServices.h"
#include "QtTestSupport.h"
#include "TemporaryDirectory.h"
#include "TestPlayerProcess.h"
#include "platform/linux/LinuxPlaybackMonitor.h"
#include "platform/qt/QtMainQueue.h"
#include "support/SessionBus.h"

using namespace lorvane;
using namespace lorvane::test;
using namespace std::chrono_literals;

namespace {

struct ApplicationFirst {
    ApplicationFirst() { ensureApplication(); }
};

constexpr double systemVolume = 0.64;

struct RealBusMonitor : ::testing::Test {
    ApplicationFirst application;
    SessionBus bus;
    std::unique_ptr<BusConnection> connection;
    QtMainQueue queue;
    FakeOutputVolume volume{systemVolume};
    TemporaryDirectory emptyProc;  // the machine's own processes stay out of these tests
    MusicPlayerSet enabled{MusicPlayer::appleMusic, MusicPlayer::qqMusic, MusicPlayer::netEaseMusic,
                           MusicPlayer::spotify};
    std::vector<MusicPlaybackSnapshot> reports;
    std::unique_ptr<MusicPlaybackMonitor> monitor;

    void SetUp() override {
        ASSERT_TRUE(bus.isRunning()) << bus.error();
        connection = std::make_unique<BusConnection>(bus.address());
        ASSERT_TRUE(connection->connection().isConnected());
    }
    void TearDown() override {
        monitor.reset();
        connection.reset();
    }
    void startMonitor(std::optional<QDBusConnection> busConnection = std::nullopt) {
        LinuxPlaybackEnvironment environment;
        environment.bus = busConnection ? *busConnection : connection->connection();
        environment.procRoot = emptyProc.path();
        monitor = makeLinuxPlaybackMonitor([this] { return enabled; },
                                           [this](const MusicPlaybackSnapshot& s) { reports.push_back(s); }, volume,
                                           queue, environment);
        monitor->start();
    }
    std::unique_ptr<TestPlayerProcess> player(const std::vector<std::string>& arguments) {
        auto process = std::make_unique<TestPlayerProcess>(bus.address(), arguments);
        EXPECT_TRUE(process->isReady()) << process->error();
        return process;
    }
    std::unique_ptr<TestPlayerProcess> spotify(const char* status = "Playing") {
        return player({"--name", "spotify", "--identity", "Spotify", "--desktop-entry", "spotify", "--status", status,
                       "--volume", "0.3"});
    }
    bool lastReportBecomes(const MusicPlaybackSnapshot& expected, std::chrono::milliseconds bound = 10s) {
        return waitUntil([&] { return !reports.empty() && reports.back() == expected; }, bound);
    }
    std::string lastReport() const {
        if (reports.empty()) return "nothing";
        const auto& last = reports.back();
        return std::string(last.player ? rawValue(*last.player) : "none") + " " + std::string(rawValue(last.state)) +
               " " + std::to_string(last.volumeLevel);
    }
    // Waits until the monitor has read the system volume `count` more times (one reading each).
    bool readingsPass(int count) {
        const int target = volume.reads + count;
        return waitUntil([&] { return volume.reads >= target; }, 20s);
    }
};

const MusicPlaybackSnapshot spotifyPlaying{MusicPlayer::spotify, MusicPlaybackState::playing, systemVolume};
const MusicPlaybackSnapshot spotifyPaused{MusicPlayer::spotify, MusicPlaybackState::paused, systemVolume};

}  // namespace

TEST_F(RealBusMonitor, PlayingSpotifyIsReportedAtTheSystemVolumeAndPausingIt) {
    auto player = spotify();
    startMonitor();
    EXPECT_TRUE(monitor->hasSystemNowPlayingProvider());
    ASSERT_TRUE(lastReportBecomes(spotifyPlaying)) << lastReport();

    ASSERT_TRUE(player->command("pause"));
    ASSERT_TRUE(lastReportBecomes(spotifyPaused)) << lastReport();

    ASSERT_TRUE(player->command("play"));
    ASSERT_TRUE(lastReportBecomes(spotifyPlaying)) << lastReport();
}

TEST_F(RealBusMonitor, IdenticalReadingsAreReportedOnce) {
    auto player = spotify();
    startMonitor();
    ASSERT_TRUE(lastReportBecomes(spotifyPlaying)) << lastReport();
    const auto reported = reports.size();
    ASSERT_TRUE(readingsPass(5));
    EXPECT_EQ(reports.size(), reported);
    EXPECT_EQ(std::count(reports.begin(), reports.end(), spotifyPlaying), 1);
}

TEST_F(RealBusMonitor, RefusingPlayerIsReportedAsPermissionDenied) {
    auto player = spotify();
    startMonitor();
    ASSERT_TRUE(lastReportBecomes(spotifyPlaying)) << lastReport();
    ASSERT_TRUE(player->command("deny"));
    ASSERT_TRUE(lastReportBecomes({MusicPlayer::spotify, MusicPlaybackState::permissionDenied, systemVolume}))
        << lastReport();
}

TEST_F(RealBusMonitor, PlayerRefusingFromTheStartIsReportedAsPermissionDenied) {
    auto refusing = player({"--name", "spotify", "--identity", "Spotify", "--status", "Playing", "--deny"});
    startMonitor();
    ASSERT_TRUE(lastReportBecomes({MusicPlayer::spotify, MusicPlaybackState::permissionDenied, systemVolume}))
        << lastReport();
}

TEST_F(RealBusMonitor, HangingPlayerGivesUnknownAndLeavesTheMainThreadFree) {
    auto player = spotify();
    startMonitor();
    ASSERT_TRUE(lastReportBecomes(spotifyPlaying)) << lastReport();

    // The longest stretch the event loop could not run, measured by a fast heartbeat.
    QElapsedTimer sinceBeat;
    qint64 longestStall = 0;
    QTimer heartbeat;
    heartbeat.setInterval(5);
    QObject::connect(&heartbeat, &QTimer::timeout, [&] {
        longestStall = std::max(longestStall, sinceBeat.restart());
    });
    sinceBeat.start();
    heartbeat.start();

    ASSERT_TRUE(player->command("hang"));
    ASSERT_TRUE(lastReportBecomes({MusicPlayer::spotify, MusicPlaybackState::unknown, systemVolume})) << lastReport();
    ASSERT_TRUE(readingsPass(3));
    // At worst one tick waits out the now-playing limit (0.35 s, without blocking) and then blocks
    // for the query's own limit (0.25 s); a player without limits would block for 25 seconds.
    // The margin beyond 0.6 s is for a loaded machine.
    RecordProperty("longestStallMilliseconds", static_cast<int>(longestStall));
    EXPECT_LT(longestStall, 1000) << "the main thread was blocked for " << longestStall << " ms";

    ASSERT_TRUE(player->command("respond"));
    ASSERT_TRUE(lastReportBecomes(spotifyPlaying)) << lastReport();
}

TEST_F(RealBusMonitor, VanishedPlayerGivesTheNoPlayerSnapshot) {
    auto player = spotify();
    startMonitor();
    ASSERT_TRUE(lastReportBecomes(spotifyPlaying)) << lastReport();
    player->kill();
    ASSERT_TRUE(lastReportBecomes(MusicPlaybackSnapshot::noPlayer())) << lastReport();
}

TEST_F(RealBusMonitor, DisablingThePlayerIsHonouredAtTheNextTick) {
    auto player = spotify();
    startMonitor();
    ASSERT_TRUE(lastReportBecomes(spotifyPlaying)) << lastReport();
    enabled = {MusicPlayer::appleMusic};
    ASSERT_TRUE(lastReportBecomes(MusicPlaybackSnapshot::noPlayer(), 3s)) << lastReport();
    enabled = {MusicPlayer::spotify};
    ASSERT_TRUE(lastReportBecomes(spotifyPlaying)) << lastReport();
}

TEST_F(RealBusMonitor, StoppedPlayerIsAskedDirectlyAndReadAtBothVolumes) {
    auto player = spotify("Stopped");  // a stopped player is nobody's now-playing one
    startMonitor();
    ASSERT_TRUE(lastReportBecomes({MusicPlayer::spotify, MusicPlaybackState::stopped, std::sqrt(0.3 * systemVolume)}))
        << lastReport();
}

TEST_F(RealBusMonitor, LatestPlayerToStartPlayingIsFollowed) {
    auto spotifyPlayer = spotify();
    auto music = player({"--name", "music", "--identity", "Music", "--status", "Paused"});
    startMonitor();
    ASSERT_TRUE(lastReportBecomes(spotifyPlaying)) << lastReport();
    ASSERT_TRUE(music->command("play"));
    ASSERT_TRUE(lastReportBecomes({MusicPlayer::appleMusic, MusicPlaybackState::playing, systemVolume}))
        << lastReport();
    ASSERT_TRUE(music->command("stop"));
    ASSERT_TRUE(lastReportBecomes(spotifyPlaying)) << lastReport();
}

TEST_F(RealBusMonitor, UnsupportedNowPlayingPlayerFallsBackToTheSupportedOne) {
    auto spotifyPlayer = spotify("Paused");
    auto browser = player({"--name", "firefox", "--identity", "Mozilla Firefox", "--status", "Paused"});
    startMonitor();
    ASSERT_TRUE(browser->command("play"));  // now playing, but no music player
    ASSERT_TRUE(lastReportBecomes({MusicPlayer::spotify, MusicPlaybackState::paused, std::sqrt(0.3 * systemVolume)}))
        << lastReport();
}

TEST_F(RealBusMonitor, WithoutASessionBusTheProcessScanStillFindsPlayers) {
    emptyProc.write("777/comm", "spotify\n");
    BusConnection nowhere("unix:path=/nonexistent/lorvane-no-bus");
    startMonitor(nowhere.connection());
    EXPECT_FALSE(monitor->hasSystemNowPlayingProvider());
    // Found, but it cannot be asked: state unknown at the system volume.
    ASSERT_TRUE(lastReportBecomes({MusicPlayer::spotify, MusicPlaybackState::unknown, systemVolume})) << lastReport();
    monitor.reset();
}
