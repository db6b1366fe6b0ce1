// The level monitor on the real capture path: a private PulseAudio server, sound played into its null
// sink, the PulseAudio capture source, the analysis, and frames and failures on the main thread.
// A freshly started null sink works in blocks of about 2 s until a low-latency stream has been
// served, so the first frame of a run may take that long; bounds below allow for it.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "core/Clock.h"
#include "platform/linux/PulseCaptureSource.h"
#include "support/ManualMainQueue.h"
#include "support/PulsePlayer.h"
#include "support/PulseServer.h"

namespace lorvane::test {
namespace {

using namespace std::chrono_literals;
constexpr auto startUpWait = 5s;

// Counts what is posted to the main queue, so a test can tell that work is in flight.
class CountingQueue final : public MainQueue {
public:
    explicit CountingQueue(ManualMainQueue& inner) : inner_(inner) {}
    void post(std::function<void()> work) override {
        inner_.post(std::move(work));
        ++posted;
    }
    void postAfter(double seconds, std::function<void()> work) override { inner_.postAfter(seconds, std::move(work)); }
    std::unique_ptr<RepeatingTimer> startRepeating(double interval, std::function<void()> tick) override {
        return inner_.startRepeating(interval, std::move(tick));
    }
    std::atomic<int> posted{0};

private:
    ManualMainQueue& inner_;
};

// Waits for something only the server or a thread can change, asking again every 20 ms.
bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds bound) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(20ms);
    }
    return true;
}

class PulseAudioLevelMonitorTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server->running()) << server->why();
        makeMonitor();
    }

    void makeMonitor() {
        monitor = makePulseAudioLevelMonitor(
            [this](const AudioVisualizationFrame& frame) {
                EXPECT_EQ(std::this_thread::get_id(), mainThread);
                frames.push_back(frame);
                events.emplace_back("frame");
            },
            [this](AudioCaptureFailureReport failure) {
                EXPECT_EQ(std::this_thread::get_id(), mainThread);
                failures.push_back(failure);
                reasons.push_back(failure.reason);
                failureTime = clock.now();
                events.emplace_back(rawValue(failure.failure));
            },
            counting, clock);
    }

    bool runUntilFrames(std::size_t count, std::chrono::milliseconds bound) {
        return queue.runUntil([&] { return frames.size() >= count; }, bound);
    }
    bool runUntilFailure(std::chrono::milliseconds bound) {
        return queue.runUntil([&] { return !failures.empty(); }, bound);
    }
    double lastLevel() const { return frames.empty() ? -1 : frames.back().level; }

    // Declared first so it is stopped last, after everything that talks to it.
    std::unique_ptr<PulseServer> server = std::make_unique<PulseServer>();
    const std::thread::id mainThread = std::this_thread::get_id();
    SteadyClock clock;
    ManualMainQueue queue;
    CountingQueue counting{queue};
    std::vector<AudioVisualizationFrame> frames;
    std::vector<AudioCaptureFailure> failures;
    std::vector<AudioCaptureReason> reasons;
    std::vector<std::string> events;
    double failureTime = 0;
    std::unique_ptr<SystemAudioLevelMonitor> monitor;
};

TEST_F(PulseAudioLevelMonitorTest, AToneYieldsRisingFramesWithItsSpectrumPeak) {
    // 1 kHz at -10 dBFS RMS: the level target is 1, and 1 kHz lies in bands 49 and 50.
    PulsePlayer player(PulsePlayer::sine(1000, 0.4472));
    ASSERT_TRUE(player.waitUntilPlaying(5s)) << player.why();
    monitor->start();
    ASSERT_TRUE(runUntilFrames(1, startUpWait));
    // Within a second of the first frame the level has climbed most of the way to 1.
    ASSERT_TRUE(queue.runUntil([&] { return lastLevel() > 0.95; }, 1s)) << "level " << lastLevel();
    for (std::size_t i = 1; i < frames.size() && frames[i].level < 0.95; ++i) {
        EXPECT_GE(frames[i].level, frames[i - 1].level);
    }
    // Let the spectrum settle on a full window of the tone, then look at where it peaks.
    const std::size_t settled = frames.size() + 10;
    ASSERT_TRUE(runUntilFrames(settled, 2s));
    const auto& spectrum = frames.back().spectrum;
    ASSERT_EQ(spectrum.size(), 96u);
    const auto peak = std::max_element(spectrum.begin(), spectrum.end());
    const auto peakBand = std::distance(spectrum.begin(), peak);
    EXPECT_GE(peakBand, 46);
    EXPECT_LE(peakBand, 51);
    EXPECT_GT(spectrum[49], 0.9);
    EXPECT_LT(*std::max_element(spectrum.begin(), spectrum.begin() + 20), 0.5 * spectrum[49]);  // < 100 Hz
    EXPECT_LT(*std::max_element(spectrum.begin() + 80, spectrum.end()), 0.5 * spectrum[49]);    // > 5 kHz
    EXPECT_TRUE(failures.empty());
    monitor->stop();
}

TEST_F(PulseAudioLevelMonitorTest, SilenceEndsTheRunOnceAfterFourSeconds) {
    PulsePlayer player(PulsePlayer::silence());
    ASSERT_TRUE(player.waitUntilPlaying(5s)) << player.why();
    const double started = clock.now();
    monitor->start();
    ASSERT_TRUE(runUntilFailure(4s + startUpWait));
    EXPECT_EQ(failures, std::vector<AudioCaptureFailure>{AudioCaptureFailure::silentOrProtectedAudio});
    EXPECT_EQ(reasons, std::vector<AudioCaptureReason>{AudioCaptureReason::onlySilence});
    EXPECT_GT(failureTime - started, 4.0);
    EXPECT_FALSE(frames.empty());  // quiet frames came before it
    for (const auto& frame : frames) EXPECT_EQ(frame.level, 0.0);
    EXPECT_FALSE(monitor->captureRequested());
    // The failure ended the stream; once the server has seen that, nothing else can come.
    EXPECT_TRUE(eventually([&] { return server->recordStreamCount() == 0; }, 5s));
    queue.runPending();
    EXPECT_EQ(events.back(), "silentOrProtectedAudio");
    EXPECT_EQ(std::count(events.begin(), events.end(), "silentOrProtectedAudio"), 1);
}

TEST_F(PulseAudioLevelMonitorTest, AServerDyingDuringCaptureIsReportedOnceAsUnavailable) {
    PulsePlayer player(PulsePlayer::sine(440, 0.2));
    ASSERT_TRUE(player.waitUntilPlaying(5s)) << player.why();
    monitor->start();
    ASSERT_TRUE(runUntilFrames(3, startUpWait));
    server->kill();  // the connection and the stream both fail
    ASSERT_TRUE(runUntilFailure(5s));
    EXPECT_FALSE(monitor->captureRequested());
    // stop() waits for the capture thread, so whatever else it would report has been posted by now.
    events.clear();
    monitor->stop();
    queue.runPending();
    EXPECT_EQ(failures, std::vector<AudioCaptureFailure>{AudioCaptureFailure::unavailable});
    EXPECT_EQ(std::count(events.begin(), events.end(), "unavailable"), 0);
}

TEST_F(PulseAudioLevelMonitorTest, NoServerIsUnavailable) {
    server->stop();
    monitor->start();
    ASSERT_TRUE(runUntilFailure(5s));
    EXPECT_EQ(failures, std::vector<AudioCaptureFailure>{AudioCaptureFailure::unavailable});
    EXPECT_EQ(reasons, std::vector<AudioCaptureReason>{AudioCaptureReason::noSoundServer});
}

TEST_F(PulseAudioLevelMonitorTest, TheServerDyingWhileLiveIsExplainedAsStopped) {
    PulsePlayer player(PulsePlayer::sine(1000, 0.4472));
    ASSERT_TRUE(player.waitUntilPlaying(5s)) << player.why();
    monitor->start();
    ASSERT_TRUE(runUntilFrames(1, startUpWait));
    server->kill();
    ASSERT_TRUE(runUntilFailure(5s));
    EXPECT_EQ(failures, std::vector<AudioCaptureFailure>{AudioCaptureFailure::unavailable});
    EXPECT_EQ(reasons, std::vector<AudioCaptureReason>{AudioCaptureReason::serverStopped});
}

TEST_F(PulseAudioLevelMonitorTest, StartTwiceMakesOneStream) {
    monitor->start();
    monitor->start();
    ASSERT_TRUE(runUntilFrames(3, startUpWait));
    EXPECT_EQ(server->recordStreamCount(), 1);
    monitor->stop();
    EXPECT_TRUE(eventually([&] { return server->recordStreamCount() == 0; }, 5s));
}

TEST_F(PulseAudioLevelMonitorTest, StopWhileConnectingMakesNoStreamAndNoCallback) {
    server->pause();  // the connection cannot complete before the stop
    monitor->start();
    monitor->stop();
    server->resume();
    // Once the server has processed our connection and its end, no client of ours is left.
    EXPECT_TRUE(eventually([&] {
        return server->pactl({"list", "clients"}).output.find("com.tarnhollow.Lorvane") == std::string::npos;
    }, 5s));
    EXPECT_EQ(server->recordStreamCount(), 0);
    queue.runPending();
    EXPECT_TRUE(events.empty());
}

TEST_F(PulseAudioLevelMonitorTest, ADestroyedMonitorWithAFrameInFlightCallsNothing) {
    PulsePlayer player(PulsePlayer::sine(440, 0.2));
    ASSERT_TRUE(player.waitUntilPlaying(5s)) << player.why();
    monitor->start();
    ASSERT_TRUE(runUntilFrames(1, startUpWait));
    events.clear();
    // Stop pumping the queue and wait until a frame has been posted but not delivered. The queue
    // itself is asked: the posting thread counts only after it posted, and a frame the last pump
    // already delivered may be counted late.
    ASSERT_TRUE(eventually([&] { return queue.pendingCount() > 0; }, 2s));
    monitor.reset();
    EXPECT_GE(queue.runPending(), 1);
    EXPECT_TRUE(events.empty());
    EXPECT_TRUE(eventually([&] { return server->recordStreamCount() == 0; }, 5s));
}

TEST_F(PulseAudioLevelMonitorTest, FramesFollowANewDefaultSinkWithoutAFailure) {
    ASSERT_TRUE(server->addNullSink("second"));
    // A faint tone (about -60 dBFS, level 0 but audible to the silence watch) in the current default
    // sink, a loud one in the second.
    PulsePlayer faint(PulsePlayer::sine(300, 0.0014), PulseServer::defaultSink);
    PulsePlayer loud(PulsePlayer::sine(1000, 0.4472), "second");
    ASSERT_TRUE(faint.waitUntilPlaying(5s)) << faint.why();
    ASSERT_TRUE(loud.waitUntilPlaying(5s)) << loud.why();
    monitor->start();
    ASSERT_TRUE(runUntilFrames(5, startUpWait));
    EXPECT_LT(lastLevel(), 0.05);
    ASSERT_TRUE(server->setDefaultSink("second"));
    EXPECT_TRUE(queue.runUntil([&] { return lastLevel() > 0.9; }, 3s)) << "level " << lastLevel();
    const std::size_t count = frames.size();
    EXPECT_TRUE(runUntilFrames(count + 15, 2s));
    EXPECT_EQ(server->recordStreamSources(), std::vector<std::string>{"second.monitor"});
    EXPECT_TRUE(failures.empty());
    EXPECT_TRUE(monitor->captureRequested());
    monitor->stop();
}

class PulseAudioLevelMonitorRefusedTest : public PulseAudioLevelMonitorTest {
protected:
    void SetUp() override {
        server.reset();  // only one private server per process at a time
        server = std::make_unique<PulseServer>(PulseServer::Access::refused);
        PulseAudioLevelMonitorTest::SetUp();
    }
};

TEST_F(PulseAudioLevelMonitorRefusedTest, AServerRefusingAccessMeansPermissionRequired) {
    monitor->start();
    ASSERT_TRUE(runUntilFailure(5s));
    EXPECT_EQ(failures, std::vector<AudioCaptureFailure>{AudioCaptureFailure::permissionRequired});
    EXPECT_EQ(reasons, std::vector<AudioCaptureReason>{AudioCaptureReason::refused});
    EXPECT_TRUE(frames.empty());
    EXPECT_FALSE(monitor->captureRequested());
}

}  // namespace
}  // namespace lorvane::test
