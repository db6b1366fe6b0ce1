#include <gtest/gtest.h>

#include <cmath>

#include "core/VisualizerModel.h"

using namespace lorvane;

namespace {
AudioVisualizationFrame frame(double level, double motion, double pulse, std::vector<double> spectrum) {
    return {level, motion, pulse, std::move(spectrum)};
}
}  // namespace

TEST(VisualizerModel, StartsWaitingWithAGentleIdleWave) {
    VisualizerModel m;
    EXPECT_EQ(m.captureStatus(), AudioCaptureStatus::waiting);
    EXPECT_EQ(m.audioLevel(), 0.48);
    EXPECT_EQ(m.motionRate(), 1.0);
    EXPECT_EQ(m.beatPulse(), 0.0);
    EXPECT_TRUE(m.spectrum().empty());
    EXPECT_EQ(m.fallbackLevel(), 0.48);
}

TEST(VisualizerModel, LiveFrameValuesAreClamped) {
    VisualizerModel m;
    m.updateLiveFrame(frame(1.4, 3.0, -0.5, {-0.2, 0.5, 1.3}));
    EXPECT_EQ(m.captureStatus(), AudioCaptureStatus::live);
    EXPECT_EQ(m.audioLevel(), 1.0);
    EXPECT_EQ(m.motionRate(), 2.8);
    EXPECT_EQ(m.beatPulse(), 0.0);
    EXPECT_EQ(m.spectrum(), (std::vector<double>{0.0, 0.5, 1.0}));
    m.updateLiveFrame(frame(-1, 0.3, 2, {}));
    EXPECT_EQ(m.audioLevel(), 0.0);
    EXPECT_EQ(m.motionRate(), 0.55);
    EXPECT_EQ(m.beatPulse(), 1.0);
}

TEST(VisualizerModel, FallbackWithNoFailureIsFallbackNotWaiting) {
    VisualizerModel m;
    m.useFallbackAudio(std::nullopt);
    EXPECT_EQ(m.captureStatus(), AudioCaptureStatus::fallback);
}

TEST(VisualizerModel, FallbackStatusFollowsTheFailure) {
    VisualizerModel m;
    m.useFallbackAudio(AudioCaptureFailure::permissionRequired);
    EXPECT_EQ(m.captureStatus(), AudioCaptureStatus::permissionRequired);
    m.useFallbackAudio(AudioCaptureFailure::silentOrProtectedAudio);
    EXPECT_EQ(m.captureStatus(), AudioCaptureStatus::protectedAudio);
    m.useFallbackAudio(AudioCaptureFailure::unavailable);
    EXPECT_EQ(m.captureStatus(), AudioCaptureStatus::fallback);
}

TEST(VisualizerModel, FallbackUsesTheLastVolumeLevel) {
    VisualizerModel m;
    m.updateLiveFrame(frame(0.9, 2, 1, std::vector<double>(96, 0.5)));
    m.updateFallbackLevel(0.25);
    m.useFallbackAudio(AudioCaptureFailure::unavailable);
    EXPECT_EQ(m.audioLevel(), 0.25);
    EXPECT_DOUBLE_EQ(m.motionRate(), 0.82 + 0.72 * 0.25);
    EXPECT_EQ(m.beatPulse(), 0.0);
    EXPECT_TRUE(m.spectrum().empty());
}

TEST(VisualizerModel, FallbackLevelAboveOneWhileProtectedIsClampedAndKeepsTheStatus) {
    VisualizerModel m;
    m.useFallbackAudio(AudioCaptureFailure::silentOrProtectedAudio);
    m.updateFallbackLevel(1.5);
    EXPECT_EQ(m.fallbackLevel(), 1.0);
    EXPECT_EQ(m.audioLevel(), 1.0);
    EXPECT_DOUBLE_EQ(m.motionRate(), 1.54);
    EXPECT_EQ(m.captureStatus(), AudioCaptureStatus::protectedAudio);
}

TEST(VisualizerModel, FallbackLevelWhileLiveChangesNoPublishedValue) {
    VisualizerModel m;
    m.updateLiveFrame(frame(0.7, 1.7, 0.3, {0.1, 0.2}));
    int notifications = 0;
    m.objectWillChange.connect([&] { ++notifications; });
    m.updateFallbackLevel(0.1);
    EXPECT_EQ(notifications, 0);
    EXPECT_EQ(m.audioLevel(), 0.7);
    EXPECT_EQ(m.motionRate(), 1.7);
    EXPECT_EQ(m.beatPulse(), 0.3);
    EXPECT_EQ(m.spectrum(), (std::vector<double>{0.1, 0.2}));
    EXPECT_EQ(m.fallbackLevel(), 0.1);
}

TEST(VisualizerModel, AfterPauseMotionIsPointSevenAndLevelZero) {
    VisualizerModel m;
    m.updateLiveFrame(frame(0.7, 1.7, 0.3, {0.1}));
    m.pause();
    EXPECT_EQ(m.captureStatus(), AudioCaptureStatus::waiting);
    EXPECT_EQ(m.motionRate(), 0.7);
    EXPECT_EQ(m.audioLevel(), 0.0);
    EXPECT_EQ(m.beatPulse(), 0.0);
    EXPECT_TRUE(m.spectrum().empty());
    m.updateFallbackLevel(0.6);  // a volume snapshot ends the pause values
    EXPECT_EQ(m.audioLevel(), 0.6);
    EXPECT_EQ(m.captureStatus(), AudioCaptureStatus::waiting);
}

TEST(VisualizerModel, ObserversHearOfEachPublishedValueInTheFixedOrderBeforeItChanges) {
    VisualizerModel m;
    std::vector<std::string> seen;
    m.objectWillChange.connect([&] {
        seen.push_back(std::string(rawValue(m.captureStatus())) + " " + std::to_string(m.audioLevel()));
    });
    m.updateLiveFrame(frame(0.9, 1, 0, {}));
    ASSERT_EQ(seen.size(), 5u);
    EXPECT_EQ(seen[0], "waiting 0.480000");  // before the status changes
    EXPECT_EQ(seen[1], "live 0.480000");     // before the level changes
    EXPECT_EQ(seen[2], "live 0.900000");
}

// MARK: Keyed change announcements

namespace {
struct ModelLog {
    explicit ModelLog(VisualizerModel& model) {
        model.changed.connect([this](VisualizerModelKey key) { keys.push_back(key); });
    }
    std::vector<VisualizerModelKey> keys;
};
}  // namespace

TEST(VisualizerModelChanges, ALiveFrameAnnouncesEachChangedValueThenTheFrame) {
    VisualizerModel m;
    ModelLog log(m);
    double levelSeen = -1;
    m.changed.connect([&](VisualizerModelKey key) {
        if (key == VisualizerModelKey::captureStatus) levelSeen = m.audioLevel();
    });
    m.updateLiveFrame(frame(0.3, 1.2, 0.4, {0.1, 0.2}));
    using K = VisualizerModelKey;
    EXPECT_EQ(log.keys, (std::vector<K>{K::captureStatus, K::audioLevel, K::motionRate, K::beatPulse, K::spectrum,
                                        K::liveFrame}));
    // Announced after the whole frame was taken in.
    EXPECT_EQ(levelSeen, 0.3);

    // The same status and level again: only what differs, and the frame itself.
    log.keys.clear();
    m.updateLiveFrame(frame(0.3, 1.3, 0.4, {0.1, 0.2}));
    EXPECT_EQ(log.keys, (std::vector<K>{K::motionRate, K::liveFrame}));
}

TEST(VisualizerModelChanges, FallbackLevelWhileLiveAnnouncesOnlyTheFallbackLevel) {
    VisualizerModel m;
    m.updateLiveFrame(frame(0.3, 1.2, 0.4, {0.1}));
    ModelLog log(m);
    m.updateFallbackLevel(0.9);
    EXPECT_EQ(log.keys, std::vector<VisualizerModelKey>{VisualizerModelKey::fallbackLevel});
    log.keys.clear();
    m.updateFallbackLevel(0.9);
    EXPECT_TRUE(log.keys.empty());
}

TEST(VisualizerModelChanges, FallbackAndPauseAnnounceStatusAndValues) {
    VisualizerModel m;
    ModelLog log(m);
    using K = VisualizerModelKey;
    m.useFallbackAudio(AudioCaptureFailure::permissionRequired);
    // 0.48 stays the level; the motion moves to the fallback's.
    EXPECT_EQ(log.keys, (std::vector<K>{K::captureStatus, K::motionRate}));
    log.keys.clear();
    m.pause();
    EXPECT_EQ(log.keys, (std::vector<K>{K::captureStatus, K::audioLevel, K::motionRate}));
    log.keys.clear();
    m.pause();
    EXPECT_TRUE(log.keys.empty());
}
