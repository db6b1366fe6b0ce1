// The monitor's decisions against stand-in services on virtual time.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "FakePlaybackServices.h"
#include "core/playback/MusicPlaybackMonitor.h"
#include "support/ManualMainQueue.h"

using namespace lorvane;
using namespace lorvane::test;

namespace {

const RunningApplication appleMusicApp{101, "com.apple.Music", "Music"};
const RunningApplication spotifyApp{102, "com.spotify.Client", "Spotify"};
const RunningApplication qqMusicApp{103, std::nullopt, "QQ音乐"};
const RunningApplication netEaseApp{104, "com.netease.163music", "NetEase Cloud Music"};
const RunningApplication safariApp{200, "com.apple.Safari", "Safari"};

MusicPlayerSet allPlayers() {
    return {MusicPlayer::appleMusic, MusicPlayer::qqMusic, MusicPlayer::netEaseMusic, MusicPlayer::spotify};
}

PlayerStateReply answer(const char* text) { return PlayerStateAnswer{std::string(text)}; }

struct MonitorTest : ::testing::Test {
    ManualMainQueue queue;
    std::shared_ptr<FakeNowPlayingSource> source = std::make_shared<FakeNowPlayingSource>();
    std::shared_ptr<FakeRunningApplications> applications = std::make_shared<FakeRunningApplications>();
    std::shared_ptr<FakePlayerStateQuery> query = std::make_shared<FakePlayerStateQuery>();
    FakeOutputVolume volume{0.64};
    MusicPlayerSet enabled = allPlayers();
    std::vector<MusicPlaybackSnapshot> reports;
    std::unique_ptr<MusicPlaybackMonitor> monitor;

    void make(bool withNowPlaying = true) {
        PlaybackServices services{withNowPlaying ? source : nullptr, applications, query};
        monitor = std::make_unique<MusicPlaybackMonitor>(
            [this] { return enabled; }, [this](const MusicPlaybackSnapshot& s) { reports.push_back(s); },
            services, volume, queue);
    }
    void answerAutomatically(std::int32_t pid, bool playing) {
        source->queue = &queue;
        source->automaticAnswer = SystemNowPlayingSnapshot{pid, playing};
    }
};

MusicPlaybackSnapshot reading(MusicPlayer player, MusicPlaybackState state, double level) {
    return {player, state, level};
}

}  // namespace

TEST_F(MonitorTest, NoEnabledPlayersReportsTheNoPlayerSnapshotOnceThenNothing) {
    enabled = {};
    make();
    monitor->start();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], MusicPlaybackSnapshot::noPlayer());
    queue.advance(5);
    EXPECT_EQ(reports.size(), 1u);
    EXPECT_EQ(source->processIdentifierQuestions, 0);
    EXPECT_EQ(applications->scans, 0);
}

TEST_F(MonitorTest, NowPlayingAppleMusicIsReadAtTheSystemVolumeWithoutAskingThePlayer) {
    applications->applications = {appleMusicApp, spotifyApp};
    query->replies[MusicPlayer::appleMusic] = answer("playing|20");
    answerAutomatically(appleMusicApp.processIdentifier, true);
    make();
    monitor->start();
    EXPECT_TRUE(reports.empty());  // the answer comes later, on the main queue
    queue.runPending();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::appleMusic, MusicPlaybackState::playing, 0.64));
    EXPECT_TRUE(query->asked.empty());
    EXPECT_EQ(applications->scans, 0);
    EXPECT_EQ(applications->lookups, 1);
    EXPECT_FALSE(monitor->queryIsInFlight());
}

TEST_F(MonitorTest, NowPlayingFlagFalseReadsPaused) {
    applications->applications = {spotifyApp};
    answerAutomatically(spotifyApp.processIdentifier, false);
    make();
    monitor->start();
    queue.runPending();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::spotify, MusicPlaybackState::paused, 0.64));
}

TEST_F(MonitorTest, NowPlayingSafariRunsTheFallbackScanInTheSameCallback) {
    applications->applications = {safariApp, spotifyApp};
    query->replies[MusicPlayer::spotify] = answer("paused|100");
    make();
    monitor->start();
    EXPECT_TRUE(monitor->queryIsInFlight());
    source->deliverProcessIdentifier(0, safariApp.processIdentifier);
    EXPECT_EQ(applications->scans, 0);
    source->deliverIsPlaying(0, true);
    // No queue work has run: the scan happened inside the answer's callback.
    EXPECT_EQ(applications->scans, 1);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::spotify, MusicPlaybackState::paused, 0.8));
    EXPECT_FALSE(monitor->queryIsInFlight());
}

TEST_F(MonitorTest, SpotifyPlayingWinsOverPausedAppleMusicDespitePriority) {
    applications->applications = {appleMusicApp, spotifyApp};
    query->replies[MusicPlayer::appleMusic] = answer("paused|50");
    query->replies[MusicPlayer::spotify] = answer("playing|100");
    make(false);
    monitor->start();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::spotify, MusicPlaybackState::playing, 0.8));
    EXPECT_EQ(query->asked, (std::vector<MusicPlayer>{MusicPlayer::appleMusic, MusicPlayer::spotify}));
}

TEST_F(MonitorTest, PlayingPlayerWinsAtOnceAndLaterPlayersAreNotAsked) {
    applications->applications = {spotifyApp, appleMusicApp};
    query->replies[MusicPlayer::appleMusic] = answer("playing|25");
    query->replies[MusicPlayer::spotify] = answer("playing|100");
    volume.volume = 1.0;
    make(false);
    monitor->start();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::appleMusic, MusicPlaybackState::playing, 0.5));
    EXPECT_EQ(query->asked, (std::vector<MusicPlayer>{MusicPlayer::appleMusic}));
}

TEST_F(MonitorTest, AppleMusicRefusingAutomationLosesToRunningQQMusicAsPaused) {
    applications->applications = {appleMusicApp, qqMusicApp};
    query->replies[MusicPlayer::appleMusic] = PlayerStateError{-1743};
    make(false);
    monitor->start();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::qqMusic, MusicPlaybackState::paused, 0.64));
    EXPECT_EQ(query->asked, (std::vector<MusicPlayer>{MusicPlayer::appleMusic}));
}

TEST_F(MonitorTest, AppleMusicAloneStoppedAtFortyUsesTheSquareRootOfBothVolumes) {
    applications->applications = {appleMusicApp};
    query->replies[MusicPlayer::appleMusic] = answer("stopped|40");
    make(false);
    monitor->start();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::appleMusic, MusicPlaybackState::stopped, std::sqrt(0.4 * 0.64)));
}

TEST_F(MonitorTest, AnswerWithoutBarIsPlayingAtFullPlayerVolume) {
    applications->applications = {spotifyApp};
    query->replies[MusicPlayer::spotify] = answer("playing");
    make(false);
    monitor->start();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::spotify, MusicPlaybackState::playing, std::sqrt(0.64)));
}

TEST_F(MonitorTest, UpperCaseStateAndUnparsableVolume) {
    applications->applications = {spotifyApp};
    query->replies[MusicPlayer::spotify] = answer("PLAYING|abc");
    make(false);
    monitor->start();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::spotify, MusicPlaybackState::playing, std::sqrt(0.64)));
}

TEST_F(MonitorTest, AnswerAfterStopAndStartIsDroppedAndKeepsTheNewQueryInFlight) {
    applications->applications = {spotifyApp};
    make();
    monitor->start();
    ASSERT_TRUE(monitor->queryIsInFlight());
    monitor->stop();
    EXPECT_FALSE(monitor->queryIsInFlight());
    monitor->start();
    ASSERT_TRUE(monitor->queryIsInFlight());
    ASSERT_EQ(source->pendingProcessIdentifiers.size(), 2u);

    source->deliverProcessIdentifier(0, spotifyApp.processIdentifier);
    source->deliverIsPlaying(0, true);
    EXPECT_TRUE(reports.empty());
    EXPECT_TRUE(monitor->queryIsInFlight());
    EXPECT_EQ(applications->lookups, 0);

    source->deliverProcessIdentifier(1, spotifyApp.processIdentifier);
    source->deliverIsPlaying(1, false);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::spotify, MusicPlaybackState::paused, 0.64));
    EXPECT_FALSE(monitor->queryIsInFlight());
}

TEST_F(MonitorTest, StaleTimeOutAfterRestartIsDroppedToo) {
    applications->applications = {spotifyApp};
    query->replies[MusicPlayer::spotify] = answer("paused|100");
    make();
    monitor->start();
    queue.advance(0.2);
    monitor->stop();
    monitor->start();  // second query asked at 0.2
    queue.advance(0.15);  // the first query times out at 0.35: stale
    EXPECT_TRUE(reports.empty());
    EXPECT_EQ(applications->scans, 0);
    EXPECT_TRUE(monitor->queryIsInFlight());
    queue.advance(0.2);  // the second one times out at 0.55 and falls back
    EXPECT_EQ(applications->scans, 1);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::spotify, MusicPlaybackState::paused, 0.8));
}

TEST_F(MonitorTest, IdenticalReadingsAreReportedOnce) {
    applications->applications = {spotifyApp};
    answerAutomatically(spotifyApp.processIdentifier, true);
    make();
    monitor->start();
    queue.advance(3);
    EXPECT_EQ(source->processIdentifierQuestions, 7);  // at 0, 0.5, ..., 3
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::spotify, MusicPlaybackState::playing, 0.64));

    volume.volume = 0.25;
    queue.advance(0.5);
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[1], reading(MusicPlayer::spotify, MusicPlaybackState::playing, 0.25));
}

TEST_F(MonitorTest, TimeOutOfTheNowPlayingAnswerFallsBackAtExactlyTheTimeLimit) {
    applications->applications = {spotifyApp};
    query->replies[MusicPlayer::spotify] = answer("playing|100");
    make();
    monitor->start();
    source->deliverProcessIdentifier(0, spotifyApp.processIdentifier);  // the playing flag never comes
    queue.advance(0.349);
    EXPECT_TRUE(reports.empty());
    EXPECT_TRUE(monitor->queryIsInFlight());
    queue.advance(0.001);
    EXPECT_EQ(applications->scans, 1);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::spotify, MusicPlaybackState::playing, 0.8));
    EXPECT_FALSE(monitor->queryIsInFlight());
    EXPECT_EQ(source->processIdentifierQuestions, 1);
    queue.advance(0.15);  // the tick at 0.5 asks again
    EXPECT_EQ(source->processIdentifierQuestions, 2);
}

TEST_F(MonitorTest, TickWhileAQueryIsOutstandingDoesNothing) {
    applications->applications = {spotifyApp};
    make();
    monitor->start();
    monitor->checkPlaybackState();
    monitor->checkPlaybackState();
    EXPECT_EQ(source->processIdentifierQuestions, 1);
    EXPECT_EQ(applications->scans, 0);
    monitor->setQueryIsInFlight(false);  // as the application controller may do
    monitor->checkPlaybackState();
    EXPECT_EQ(source->processIdentifierQuestions, 2);
}

TEST_F(MonitorTest, AnswerForAnOlderGenerationSetFromOutsideIsIgnored) {
    applications->applications = {spotifyApp};
    make();
    monitor->start();
    monitor->setQueryGeneration(monitor->queryGeneration() + 1);
    source->deliverProcessIdentifier(0, spotifyApp.processIdentifier);
    source->deliverIsPlaying(0, true);
    EXPECT_TRUE(reports.empty());
    EXPECT_TRUE(monitor->queryIsInFlight());
}

TEST_F(MonitorTest, NowPlayingIdentifierZeroOrUnknownOrDisabledFallsBack) {
    applications->applications = {appleMusicApp, spotifyApp};
    query->replies[MusicPlayer::spotify] = answer("stopped|100");
    enabled = {MusicPlayer::spotify};
    make();
    monitor->start();
    source->deliverProcessIdentifier(0, 0);
    source->deliverIsPlaying(0, true);
    EXPECT_EQ(applications->lookups, 0);
    EXPECT_EQ(applications->scans, 1);

    queue.advance(0.5);
    source->deliverProcessIdentifier(1, 999);  // no such application
    source->deliverIsPlaying(1, true);
    EXPECT_EQ(applications->lookups, 1);
    EXPECT_EQ(applications->scans, 2);

    queue.advance(0.5);
    source->deliverProcessIdentifier(2, appleMusicApp.processIdentifier);  // a player the user did not enable
    source->deliverIsPlaying(2, true);
    EXPECT_EQ(applications->lookups, 2);
    EXPECT_EQ(applications->scans, 3);

    EXPECT_EQ(query->asked, (std::vector<MusicPlayer>(3, MusicPlayer::spotify)));
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::spotify, MusicPlaybackState::stopped, 0.8));
}

TEST_F(MonitorTest, WithoutANowPlayingServiceEveryTickScans) {
    applications->applications = {qqMusicApp};
    make(false);
    EXPECT_FALSE(monitor->hasSystemNowPlayingProvider());
    monitor->start();
    queue.advance(1.0);
    EXPECT_EQ(applications->scans, 3);
    EXPECT_EQ(source->processIdentifierQuestions, 0);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::qqMusic, MusicPlaybackState::paused, 0.64));
}

TEST_F(MonitorTest, NoRunningEnabledPlayerReportsTheNoPlayerSnapshotOnce) {
    applications->applications = {safariApp, appleMusicApp};
    enabled = {MusicPlayer::spotify};
    make(false);
    monitor->start();
    queue.advance(1.0);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], MusicPlaybackSnapshot::noPlayer());
    EXPECT_TRUE(query->asked.empty());
}

TEST_F(MonitorTest, CandidatePreferenceIsPausedThenRefusedThenTheFirst) {
    applications->applications = {appleMusicApp, spotifyApp};
    make(false);

    query->replies[MusicPlayer::appleMusic] = answer("stopped|100");
    query->replies[MusicPlayer::spotify] = PlayerStateError{-10004};
    monitor->checkPlaybackState();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports.back(), reading(MusicPlayer::spotify, MusicPlaybackState::permissionDenied, 0.64));

    query->replies[MusicPlayer::appleMusic] = PlayerStateError{-1708};
    query->replies[MusicPlayer::spotify] = answer("stopped|100");
    monitor->checkPlaybackState();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports.back(), reading(MusicPlayer::appleMusic, MusicPlaybackState::unknown, 0.64));

    query->replies[MusicPlayer::appleMusic] = PlayerStateError{-1743};
    query->replies[MusicPlayer::spotify] = answer("Paused|25");
    monitor->checkPlaybackState();
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports.back(), reading(MusicPlayer::spotify, MusicPlaybackState::paused, std::sqrt(0.25 * 0.64)));
}

TEST_F(MonitorTest, PriorityOrderAmongPlayersThatCannotBeAsked) {
    applications->applications = {netEaseApp, qqMusicApp};
    make(false);
    monitor->start();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::qqMusic, MusicPlaybackState::paused, 0.64));
    EXPECT_TRUE(query->asked.empty());
}

TEST_F(MonitorTest, DisabledPlayerIsNeitherAskedNorCounted) {
    applications->applications = {appleMusicApp, spotifyApp};
    query->replies[MusicPlayer::appleMusic] = answer("playing|100");
    query->replies[MusicPlayer::spotify] = answer("paused|100");
    enabled = {MusicPlayer::spotify};
    make(false);
    monitor->start();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::spotify, MusicPlaybackState::paused, 0.8));
    EXPECT_EQ(query->asked, (std::vector<MusicPlayer>{MusicPlayer::spotify}));
}

TEST_F(MonitorTest, DisablingThePlayerIsHonouredAtTheNextTick) {
    applications->applications = {spotifyApp};
    answerAutomatically(spotifyApp.processIdentifier, true);
    make();
    monitor->start();
    queue.runPending();
    ASSERT_EQ(reports.size(), 1u);
    enabled = {MusicPlayer::appleMusic};
    queue.advance(0.5);
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[1], MusicPlaybackSnapshot::noPlayer());
}

TEST_F(MonitorTest, ErrorsWithoutANumberAndMissingTextGiveUnknown) {
    applications->applications = {spotifyApp};
    make(false);
    query->replies[MusicPlayer::spotify] = PlayerStateError{std::nullopt};
    monitor->checkPlaybackState();
    query->replies[MusicPlayer::spotify] = PlayerStateAnswer{std::nullopt};
    monitor->checkPlaybackState();
    query->replies[MusicPlayer::spotify] = answer("");
    monitor->checkPlaybackState();
    query->replies[MusicPlayer::spotify] = answer("buffering|10");
    monitor->checkPlaybackState();
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports[0], reading(MusicPlayer::spotify, MusicPlaybackState::unknown, 0.64));
    EXPECT_EQ(reports[1], reading(MusicPlayer::spotify, MusicPlaybackState::unknown, 0.8));
    EXPECT_EQ(reports[2], reading(MusicPlayer::spotify, MusicPlaybackState::unknown, std::sqrt(0.1 * 0.64)));
}

TEST_F(MonitorTest, LevelIsClampedAndNaNPassesAndIsReportedEveryTime) {
    applications->applications = {spotifyApp};
    volume.volume = 1.0;
    make(false);
    query->replies[MusicPlayer::spotify] = answer("paused|400");
    monitor->checkPlaybackState();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].volumeLevel, 1.0);

    query->replies[MusicPlayer::spotify] = answer("paused|0");
    monitor->checkPlaybackState();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[1].volumeLevel, 0.0);

    query->replies[MusicPlayer::spotify] = answer("paused|-50");
    monitor->checkPlaybackState();
    monitor->checkPlaybackState();
    ASSERT_EQ(reports.size(), 4u);  // a NaN level never equals the last one
    EXPECT_TRUE(std::isnan(reports[3].volumeLevel));
}

TEST_F(MonitorTest, SystemVolumeIsClamped) {
    applications->applications = {spotifyApp};
    answerAutomatically(spotifyApp.processIdentifier, true);
    volume.volume = 1.5;
    make();
    monitor->start();
    queue.runPending();
    volume.volume = -0.2;
    queue.advance(0.5);
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0].volumeLevel, 1.0);
    EXPECT_EQ(reports[1].volumeLevel, 0.0);
}

TEST_F(MonitorTest, TimerTicksEveryHalfSecondAndRestartingKeepsOneTimer) {
    applications->applications = {spotifyApp};
    answerAutomatically(spotifyApp.processIdentifier, true);
    make();
    EXPECT_EQ(monitor->queryGeneration(), 0);
    monitor->start();
    EXPECT_EQ(monitor->queryGeneration(), 2);  // start passes through stop
    EXPECT_TRUE(monitor->isStarted());
    queue.advance(0.49);
    EXPECT_EQ(source->processIdentifierQuestions, 1);
    queue.advance(0.01);
    EXPECT_EQ(source->processIdentifierQuestions, 2);
    monitor->start();
    EXPECT_EQ(queue.activeTimers(), 1u);
    EXPECT_EQ(monitor->queryGeneration(), 4);
    monitor->stop();
    EXPECT_EQ(queue.activeTimers(), 0u);
    EXPECT_EQ(monitor->queryGeneration(), 5);
    const int asked = source->processIdentifierQuestions;
    queue.advance(2);
    EXPECT_EQ(source->processIdentifierQuestions, asked);
}

TEST_F(MonitorTest, LastReadingSurvivesStopAndStart) {
    applications->applications = {spotifyApp};
    answerAutomatically(spotifyApp.processIdentifier, true);
    make();
    monitor->start();
    queue.runPending();
    monitor->stop();
    monitor->start();
    queue.runPending();
    EXPECT_EQ(reports.size(), 1u);
    monitor->stop();
    answerAutomatically(spotifyApp.processIdentifier, false);
    monitor->start();
    queue.runPending();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[1], reading(MusicPlayer::spotify, MusicPlaybackState::paused, 0.64));
    ASSERT_TRUE(monitor->lastSnapshot());
    EXPECT_EQ(*monitor->lastSnapshot(), reports[1]);
}

TEST_F(MonitorTest, OutstandingAnswerAfterTheMonitorIsGoneDoesNothing) {
    applications->applications = {spotifyApp};
    make();
    monitor->start();
    monitor.reset();
    source->deliverProcessIdentifier(0, spotifyApp.processIdentifier);
    source->deliverIsPlaying(0, true);
    queue.advance(1);
    EXPECT_TRUE(reports.empty());
    EXPECT_EQ(applications->lookups, 0);
}

TEST_F(MonitorTest, ReportComesAfterTheLastReadingIsSet) {
    applications->applications = {spotifyApp};
    answerAutomatically(spotifyApp.processIdentifier, true);
    std::optional<MusicPlaybackSnapshot> seenInsideCallback;
    monitor = std::make_unique<MusicPlaybackMonitor>(
        [this] { return enabled; },
        [&](const MusicPlaybackSnapshot&) { seenInsideCallback = monitor->lastSnapshot(); },
        PlaybackServices{source, applications, query}, volume, queue);
    monitor->start();
    queue.runPending();
    ASSERT_TRUE(seenInsideCallback);
    EXPECT_EQ(*seenInsideCallback, reading(MusicPlayer::spotify, MusicPlaybackState::playing, 0.64));
}

TEST_F(MonitorTest, ScanRecognisesEachApplicationByItsOwnIdentifierAndName) {
    // The same texts in the other field must not be taken for the identifier.
    applications->applications = {{1, std::string(), std::string("com.spotify.client")},
                                  {2, std::string("spotify"), std::nullopt}};
    make(false);
    monitor->start();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0], MusicPlaybackSnapshot::noPlayer());

    applications->applications.push_back({3, std::string("com.spotify.client"), std::string()});
    query->replies[MusicPlayer::spotify] = answer("paused|100");
    queue.advance(0.5);
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[1], reading(MusicPlayer::spotify, MusicPlaybackState::paused, 0.8));

    // Absent and empty names are alike.
    applications->applications = {{4, std::nullopt, std::string("Spotify")}, {5, std::string(), std::string("Spotify")}};
    queue.advance(0.5);
    EXPECT_EQ(reports.size(), 2u);
}
