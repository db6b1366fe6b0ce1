// The capture life cycle of the level monitor, driven by a test source on its own thread: every
// situation here is one the real sound server cannot be made to produce exactly when wanted.

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <thread>
#include <vector>

#include "TestCaptureSource.h"
#include "core/Clock.h"
#include "core/capture/SystemAudioLevelMonitor.h"
#include "support/ManualMainQueue.h"

namespace lorvane::test {
namespace {

// 10 ms of interleaved stereo at 48000 Hz.
constexpr std::size_t blockFrames = 480;

std::vector<float> sineBlock(double amplitude, double frequency = 1000) {
    std::vector<float> samples(blockFrames * 2);
    for (std::size_t i = 0; i < blockFrames; ++i) {
        const auto value = static_cast<float>(amplitude * std::sin(2 * std::numbers::pi * frequency * i / 48000.0));
        samples[2 * i] = value;
        samples[2 * i + 1] = value;
    }
    return samples;
}

std::vector<float> silentBlock() { return std::vector<float>(blockFrames * 2, 0.0f); }

class SystemAudioLevelMonitorTest : public ::testing::Test {
protected:
    void SetUp() override { makeMonitor(true); }

    void makeMonitor(bool accessGranted) {
        record = std::make_shared<TestCaptureSource::Record>();
        auto owned = std::make_unique<TestCaptureSource>(record, accessGranted);
        source = owned.get();
        monitor = std::make_unique<SystemAudioLevelMonitor>(
            [this](const AudioVisualizationFrame& frame) {
                frames.push_back(frame);
                events.push_back("frame");
                EXPECT_EQ(std::this_thread::get_id(), mainThread);
            },
            [this](AudioCaptureFailure failure) {
                failures.push_back(failure);
                events.push_back(std::string(rawValue(failure)));
                EXPECT_EQ(std::this_thread::get_id(), mainThread);
            },
            std::move(owned), queue, clock);
    }

    // Starts a run whose stream is live.
    void startCapturing() {
        monitor->start();
        source->connect();
        ASSERT_TRUE(record->streamLive);
    }

    const std::thread::id mainThread = std::this_thread::get_id();
    ManualClock clock{500.0};
    ManualMainQueue queue;
    std::shared_ptr<TestCaptureSource::Record> record;
    TestCaptureSource* source = nullptr;
    std::unique_ptr<SystemAudioLevelMonitor> monitor;
    std::vector<AudioVisualizationFrame> frames;
    std::vector<AudioCaptureFailure> failures;
    std::vector<std::string> events;
};

TEST_F(SystemAudioLevelMonitorTest, FramesReachTheMainThreadOnlyThroughTheQueue) {
    startCapturing();
    source->deliver(sineBlock(0.447));
    EXPECT_TRUE(frames.empty());  // posted, not called from the capture thread
    EXPECT_EQ(queue.runPending(), 1);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_GT(frames[0].level, 0.4);  // one rising step of 0.42 toward a target of 1
    EXPECT_EQ(frames[0].spectrum.size(), 96u);
    EXPECT_NE(record->captureThread.load(), mainThread);
}

TEST_F(SystemAudioLevelMonitorTest, StartTwiceMakesOneStream) {
    monitor->start();
    monitor->start();
    source->connect();
    source->connect();
    EXPECT_EQ(record->startCalls, 1);
    EXPECT_EQ(record->streamsCreated, 1);
    EXPECT_TRUE(monitor->captureRequested());
}

TEST_F(SystemAudioLevelMonitorTest, StopWhileConnectingMakesNoStreamAndNoCallback) {
    monitor->start();
    monitor->stop();
    source->connect();  // the connection completes after the stop
    queue.runPending();
    EXPECT_EQ(record->streamsCreated, 0);
    EXPECT_FALSE(record->streamLive);
    EXPECT_TRUE(events.empty());
    EXPECT_FALSE(monitor->captureRequested());
}

TEST_F(SystemAudioLevelMonitorTest, AFailureAfterStopIsNotReported) {
    startCapturing();
    monitor->stop();
    source->lateFailure(AudioCaptureFailure::unavailable);
    queue.runPending();
    EXPECT_TRUE(failures.empty());
}

TEST_F(SystemAudioLevelMonitorTest, OnlyTheFirstOfTwoFailuresInARunIsReported) {
    startCapturing();
    clock.advance(4.5);
    source->deliver(silentBlock());  // silence for more than 4 s
    source->lateFailure(AudioCaptureFailure::unavailable);  // then the stream stops with an error
    queue.runPending();
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0], AudioCaptureFailure::silentOrProtectedAudio);
    EXPECT_FALSE(monitor->captureRequested());
    EXPECT_FALSE(record->streamLive);  // the failure stopped the stream
}

TEST_F(SystemAudioLevelMonitorTest, TwoFailuresRacingFromTwoThreadsReportOne) {
    startCapturing();
    // The capture thread reports one failure while other threads report more.
    std::vector<std::thread> others;
    for (int i = 0; i < 4; ++i) others.emplace_back([&] { source->failHere(AudioCaptureFailure::unavailable); });
    source->failStream(AudioCaptureFailure::unavailable);
    for (auto& other : others) other.join();
    queue.runPending();
    EXPECT_EQ(failures.size(), 1u);
    EXPECT_FALSE(monitor->captureRequested());
}

TEST_F(SystemAudioLevelMonitorTest, ASilentRunFailsOnTheFirstSilentBlockMoreThanFourSecondsAfterStart) {
    const double started = clock.now();
    monitor->start();
    clock.set(started + 1.0);  // the stream becomes live a second later; the watch counts from start()
    source->connect();
    source->deliver(silentBlock());
    clock.set(started + 4.0);
    source->deliver(silentBlock());  // exactly 4 s: not yet
    queue.runPending();
    EXPECT_TRUE(failures.empty());
    EXPECT_FALSE(frames.empty());  // quiet blocks within 4 s still publish
    clock.set(started + 4.001);
    source->deliver(silentBlock());
    queue.runPending();
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0], AudioCaptureFailure::silentOrProtectedAudio);
    EXPECT_EQ(events.back(), "silentOrProtectedAudio");
}

TEST_F(SystemAudioLevelMonitorTest, AnAudibleBlockRestartsTheSilenceWatch) {
    const double started = clock.now();
    startCapturing();
    clock.set(started + 3.0);
    source->deliver(sineBlock(0.1));
    clock.set(started + 6.9);
    source->deliver(silentBlock());
    queue.runPending();
    EXPECT_TRUE(failures.empty());
    clock.set(started + 7.1);
    source->deliver(silentBlock());
    queue.runPending();
    EXPECT_EQ(failures.size(), 1u);
}

TEST_F(SystemAudioLevelMonitorTest, RefusedPermissionLaunchesNothingAndReportsThroughTheQueue) {
    monitor.reset();
    makeMonitor(false);
    monitor->start();
    EXPECT_EQ(record->startCalls, 0);  // no start task
    EXPECT_FALSE(monitor->captureRequested());
    EXPECT_TRUE(failures.empty());  // delivery is still posted
    queue.runPending();
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0], AudioCaptureFailure::permissionRequired);
    source->connect();
    EXPECT_EQ(record->streamsCreated, 0);
}

TEST_F(SystemAudioLevelMonitorTest, ASourceFailureEndsTheRunAndStopsTheStream) {
    startCapturing();
    source->failStream(AudioCaptureFailure::unavailable);
    EXPECT_FALSE(monitor->captureRequested());
    queue.runPending();
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0], AudioCaptureFailure::unavailable);
    // Blocks still in flight after the failure publish nothing.
    const auto framesBefore = frames.size();
    clock.advance(0.1);
    source->lateBlock(sineBlock(0.447));
    queue.runPending();
    EXPECT_EQ(frames.size(), framesBefore);
}

TEST_F(SystemAudioLevelMonitorTest, StopCallsNothingAndBlocksAfterItAreIgnored) {
    startCapturing();
    source->deliver(sineBlock(0.447));
    queue.runPending();
    ASSERT_EQ(frames.size(), 1u);
    events.clear();
    monitor->stop();
    clock.advance(0.1);
    source->lateBlock(sineBlock(0.447));
    queue.runPending();
    EXPECT_TRUE(events.empty());
}

TEST_F(SystemAudioLevelMonitorTest, ARetryAfterAFailureStartsANewRun) {
    startCapturing();
    source->failStream(AudioCaptureFailure::unavailable);
    queue.runPending();
    ASSERT_EQ(failures.size(), 1u);
    startCapturing();
    EXPECT_EQ(record->startCalls, 2);
    EXPECT_EQ(record->streamsCreated, 2);
    clock.advance(4.5);
    source->deliver(silentBlock());  // the new run reports again
    queue.runPending();
    ASSERT_EQ(failures.size(), 2u);
    EXPECT_EQ(failures[1], AudioCaptureFailure::silentOrProtectedAudio);
}

TEST_F(SystemAudioLevelMonitorTest, StopResetsTheAnalysisButKeepsTheLearntTempo) {
    startCapturing();
    // Loud clicks one second apart, silence between them: beats, and a tempo learnt from them.
    for (int beat = 0; beat < 4; ++beat) {
        source->deliver(sineBlock(0.447));
        for (int quiet = 0; quiet < 19; ++quiet) {
            clock.advance(0.05);
            source->deliver(silentBlock());
        }
        clock.advance(0.05);
    }
    queue.runPending();
    const double learnt = monitor->tempoFactor();
    EXPECT_NE(learnt, 0.42);
    EXPECT_NEAR(learnt, 0.42 + (1 - std::pow(0.76, 3)) * (50.0 / 110 - 0.42), 1e-6);
    monitor->stop();
    EXPECT_EQ(monitor->tempoFactor(), learnt);
    EXPECT_EQ(monitor->smoothedLevel(), 0.0);
    // The next run publishes from a clean state: the first frame's level is one rising step.
    startCapturing();
    clock.advance(0.05);
    source->deliver(sineBlock(0.447));
    frames.clear();
    queue.runPending();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_NEAR(frames[0].level, 0.42, 0.01);
    EXPECT_EQ(frames[0].beatPulse, 1.0);  // first beat of the run
}

TEST_F(SystemAudioLevelMonitorTest, ADestroyedMonitorCallsNothing) {
    startCapturing();
    source->deliver(sineBlock(0.447));        // a frame in flight
    clock.advance(4.5);
    source->deliver(silentBlock());           // and a failure in flight
    monitor->stop();
    monitor.reset();
    EXPECT_TRUE(record->destroyed);
    EXPECT_EQ(queue.runPending(), 2);
    EXPECT_TRUE(events.empty());
}

TEST_F(SystemAudioLevelMonitorTest, DestroyingARunningMonitorEndsItsSourceQuietly) {
    startCapturing();
    source->deliver(sineBlock(0.447));
    monitor.reset();  // the owner forgot to stop
    EXPECT_TRUE(record->destroyed);
    queue.runPending();
    EXPECT_TRUE(events.empty());
}

TEST_F(SystemAudioLevelMonitorTest, BuffersInAnUnsupportedFormatAreIgnored) {
    startCapturing();
    clock.advance(4.5);
    // Integer PCM and empty blocks neither publish nor count as silence.
    source->deliver(sineBlock(0.447), 2, SampleFormat::int16);
    source->deliver(silentBlock(), 2, SampleFormat::int32);
    source->deliver(std::vector<float>{}, 2);
    queue.runPending();
    EXPECT_TRUE(events.empty());
    EXPECT_TRUE(monitor->captureRequested());
}

}  // namespace
}  // namespace lorvane::test
