// The capture path against a hostile sound stream and a dying sound server: NaN, infinite and
// denormal samples played into the private sink never reach the model as anything but finite values,
// and a controller over the real capture comes back to live frames by itself after every restart of
// the server, without leaking open files or threads.

#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>
#include <numbers>
#include <thread>

#include "app/AppFakes.h"
#include "core/Clock.h"
#include "core/VisualizerModel.h"
#include "platform/linux/PulseCaptureSource.h"
#include "platform/linux/PulseOutputVolume.h"
#include "support/ManualMainQueue.h"
#include "support/PulsePlayer.h"
#include "support/PulseServer.h"

namespace lorvane::test {
namespace {

using namespace std::chrono_literals;

std::size_t entriesIn(const char* directory) {
    std::size_t count = 0;
    if (DIR* dir = opendir(directory)) {
        while (const dirent* entry = readdir(dir)) {
            if (entry->d_name[0] != '.') ++count;
        }
        closedir(dir);
    }
    return count;
}
std::size_t openFiles() {
    return entriesIn("/proc/self/fd");
}
std::size_t threads() {
    return entriesIn("/proc/self/task");
}

bool finite(const AudioVisualizationFrame& frame) {
    if (!std::isfinite(frame.level) || !std::isfinite(frame.motionRate) || !std::isfinite(frame.beatPulse))
        return false;
    for (double band : frame.spectrum) {
        if (!std::isfinite(band)) return false;
    }
    return true;
}

bool finite(const VisualizerModel& model) {
    return finite({model.audioLevel(), model.motionRate(), model.beatPulse(), model.spectrum()});
}

// A -10 dBFS 1 kHz tone that, when asked, plays 100 ms of one bad value instead and then goes back.
class PoisonedTone {
public:
    static constexpr std::uint64_t poisonFrames = 4800;

    PulsePlayer::Generator generator() {
        return [this](float* out, std::size_t frames, std::uint64_t position) {
            for (std::size_t i = 0; i < frames; ++i) {
                float value;
                if (poisonLeft_ > 0) {
                    value = bad_.load();
                    if (--poisonLeft_ == 0) done_.store(true);
                } else if (poisonAsked_.exchange(false)) {
                    poisonLeft_ = poisonFrames - 1;
                    value = bad_.load();
                } else {
                    const double t = static_cast<double>(position + i) / PulsePlayer::sampleRate;
                    value = static_cast<float>(0.4472 * std::sin(2 * std::numbers::pi * 1000 * t));
                }
                out[2 * i] = value;
                out[2 * i + 1] = value;
            }
        };
    }

    void poison(float bad) {
        bad_.store(bad);
        done_.store(false);
        poisonAsked_.store(true);
    }
    bool poisonPlayed() const { return done_.load(); }

private:
    std::atomic<float> bad_{0};
    std::atomic<bool> poisonAsked_{false};
    std::atomic<bool> done_{false};
    std::uint64_t poisonLeft_ = 0;  // player thread only
};

TEST(CaptureHardening, NonFiniteAndDenormalSamplesInTheSinkLeaveTheLiveModelFiniteAndLiveValuesReturn) {
    PulseServer server;
    ASSERT_TRUE(server.running()) << server.why();
    PoisonedTone tone;
    PulsePlayer player(tone.generator());
    ASSERT_TRUE(player.waitUntilPlaying(5s)) << player.why();

    ManualMainQueue queue;
    SteadyClock clock;
    VisualizerModel model;
    std::vector<AudioVisualizationFrame> frames;
    std::vector<AudioCaptureFailure> failures;
    auto monitor = makePulseAudioLevelMonitor(
        [&](const AudioVisualizationFrame& frame) {
            frames.push_back(frame);
            model.updateLiveFrame(frame);
        },
        [&](AudioCaptureFailure failure) { failures.push_back(failure); }, queue, clock);
    monitor->start();
    ASSERT_TRUE(queue.runUntil([&] { return model.audioLevel() > 0.95; }, 8s)) << "level " << model.audioLevel();

    for (const float bad : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::denorm_min() * 8}) {
        const std::size_t countBefore = monitor->nonFiniteSampleCount();
        tone.poison(bad);
        ASSERT_TRUE(queue.runUntil([&] { return tone.poisonPlayed(); }, 5s));
        if (!std::isfinite(bad)) {
            // The bad samples did reach the capture (the sound server passes them through).
            ASSERT_TRUE(queue.runUntil([&] { return monitor->nonFiniteSampleCount() > countBefore; }, 5s)) << bad;
        }
        const std::size_t firstAfter = frames.size();
        // Back to the tone's values within a second of sound: 30 frames at 30 a second.
        ASSERT_TRUE(queue.runUntil([&] { return frames.size() > firstAfter + 5 && model.audioLevel() > 0.95; }, 5s))
            << bad << ": level " << model.audioLevel();
        EXPECT_LE(frames.size() - firstAfter, 30u + 6u) << bad;
        for (const auto& frame : frames) ASSERT_TRUE(finite(frame)) << bad;
        EXPECT_TRUE(finite(model));
        EXPECT_EQ(model.captureStatus(), AudioCaptureStatus::live);
    }
    EXPECT_TRUE(failures.empty());
    monitor->stop();
}

// The controller with the real capture and the real volume on one shared connection, the volume as the
// server's watcher, the way the desktop program wires them; only the playback monitor, the windows and
// the tray are fakes.
class ServerRestarts : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server->running()) << server->why();
        harness = std::make_unique<AppHarness>(std::make_shared<MemoryKeyValueStore>(), [this](AppEnvironment& env) {
            env.factories.makeAudioLevelMonitor = [this](FrameCallback frame, FailureCallback failure) {
                return makePulseAudioLevelMonitor(std::move(frame), std::move(failure), harness->queue, steady,
                                                  connection);
            };
        });
        volume = std::make_unique<PulseOutputVolume>(
            connection, [this] { harness->queue.post([this] { harness->app->soundServerDidAppear(); }); });
        harness->launch();
    }
    void TearDown() override {
        if (harness) harness->app->applicationWillTerminate();
        volume.reset();
        harness.reset();
        connection.reset();
    }

    bool live() const { return harness->app->visualizerModel().captureStatus() == AudioCaptureStatus::live; }
    bool runUntil(const std::function<bool()>& condition, std::chrono::milliseconds bound) {
        return harness->queue.runUntil(condition, bound);
    }

    std::unique_ptr<PulseServer> server = std::make_unique<PulseServer>();
    SteadyClock steady;
    std::shared_ptr<PulseConnection> connection = std::make_shared<PulseConnection>(0.25);
    std::unique_ptr<AppHarness> harness;
    std::unique_ptr<PulseOutputVolume> volume;
};

TEST_F(ServerRestarts, TwentyKillsAndRestartsWhileLiveComeBackLiveWithoutRetryAndLeakNothing) {
    auto player = std::make_unique<PulsePlayer>(PulsePlayer::sine(1000, 0.4472));
    ASSERT_TRUE(player->waitUntilPlaying(5s)) << player->why();
    harness->play();
    ASSERT_TRUE(runUntil([&] { return live(); }, 10s));

    constexpr int restarts = 20;
    std::vector<std::size_t> files;
    std::vector<std::size_t> threadCounts;
    double slowestReturn = 0;
    for (int round = 0; round < restarts; ++round) {
        server->kill();
        ASSERT_TRUE(runUntil([&] { return !live(); }, 10s)) << "round " << round;
        const auto& model = harness->app->visualizerModel();
        EXPECT_EQ(model.captureStatus(), AudioCaptureStatus::fallback);
        EXPECT_EQ(model.captureFailureReason(), AudioCaptureReason::serverStopped) << "round " << round;
        player.reset();
        ASSERT_TRUE(server->restart()) << server->why();
        const auto back = std::chrono::steady_clock::now();
        player = std::make_unique<PulsePlayer>(PulsePlayer::sine(1000, 0.4472));
        ASSERT_TRUE(player->waitUntilPlaying(5s)) << player->why();
        // Nothing is pressed and no snapshot changes: the server's return alone brings capture back.
        ASSERT_TRUE(runUntil([&] { return live(); }, 15s)) << "round " << round;
        slowestReturn =
            std::max(slowestReturn, std::chrono::duration<double>(std::chrono::steady_clock::now() - back).count());
        EXPECT_TRUE(harness->app->audioCaptureRetryAfter() == std::nullopt);
        // Let a dropped run's release happen before counting.
        harness->queue.runPending();
        files.push_back(openFiles());
        threadCounts.push_back(threads());
    }
    EXPECT_EQ(harness->runs.size(), 0u);  // the fake factory was never used
    // After the first few rounds (lazy set-up in libraries) nothing grows.
    const std::size_t filesBaseline = *std::max_element(files.begin(), files.begin() + 3);
    const std::size_t threadsBaseline = *std::max_element(threadCounts.begin(), threadCounts.begin() + 3);
    EXPECT_LE(files.back(), filesBaseline) << "open files by round: " << ::testing::PrintToString(files);
    EXPECT_LE(threadCounts.back(), threadsBaseline) << "threads by round: " << ::testing::PrintToString(threadCounts);
    // Capture and the volume came back on one connection, not one each.
    EXPECT_EQ(server->clientCount(getpid(), "com.tarnhollow.Lorvane"), 1);
    RecordProperty("slowest_return_seconds", std::to_string(slowestReturn));
    std::printf("server restarts survived: %d, slowest return to live: %.2f s\n", restarts, slowestReturn);
}

TEST_F(ServerRestarts, NoServerAtStartIsExplainedAndCaptureStartsWhenTheServerAppears) {
    server->stop();
    harness->play();
    ASSERT_TRUE(
        runUntil([&] { return harness->app->visualizerModel().captureStatus() == AudioCaptureStatus::fallback; }, 10s));
    EXPECT_EQ(harness->app->visualizerModel().captureFailureReason(), AudioCaptureReason::noSoundServer);
    ASSERT_TRUE(server->restart()) << server->why();
    PulsePlayer player(PulsePlayer::sine(1000, 0.4472));
    ASSERT_TRUE(player.waitUntilPlaying(5s)) << player.why();
    ASSERT_TRUE(runUntil([&] { return live(); }, 15s));
    EXPECT_FALSE(harness->app->visualizerModel().captureFailureReason());
}

}  // namespace
}  // namespace lorvane::test
