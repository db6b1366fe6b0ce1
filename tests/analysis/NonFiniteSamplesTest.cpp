// NaN, infinite, huge and denormal samples: read as silence where the block is first looked at,
// counted, and never able to leave a non-finite value in the analysis.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "AnalysisTestSupport.h"
#include "core/analysis/AudioAnalyzer.h"
#include "core/analysis/SampleBlock.h"

using namespace lorvane;
using namespace lorvane::analysistest;

namespace {

constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float denormal = std::numeric_limits<float>::denorm_min() * 1000;

bool finite(const AudioVisualizationFrame& frame) {
    if (!std::isfinite(frame.level) || !std::isfinite(frame.motionRate) || !std::isfinite(frame.beatPulse))
        return false;
    for (double band : frame.spectrum) {
        if (!std::isfinite(band)) return false;
    }
    return true;
}

bool finite(const AudioAnalyzer::Snapshot& s) {
    bool ok = std::isfinite(s.smoothedLevel) && std::isfinite(s.smoothedActivity) && std::isfinite(s.fluxBaseline) &&
              std::isfinite(s.beatPulse) && std::isfinite(s.tempoFactor) && std::isfinite(s.previousPublishedLevel);
    for (double v : s.smoothedSpectrum) ok = ok && std::isfinite(v);
    for (double v : s.previousSpectrum) ok = ok && std::isfinite(v);
    for (float v : s.sampleAccumulator) ok = ok && std::isfinite(v);
    return ok;
}

}  // namespace

TEST(NonFiniteSamples, AreReadAsSilenceAndCountedByTheExtraction) {
    // Interleaved stereo: frames (0.5, NaN), (infinity, 0.25), (-infinity, -infinity), (0.5, 0.5).
    const std::vector<float> samples{0.5f, notANumber, infinity, 0.25f, -infinity, -infinity, 0.5f, 0.5f};
    const auto audio = audioData(interleavedBlock(samples, 2));
    ASSERT_TRUE(audio.has_value());
    EXPECT_EQ(audio->nonFiniteSamples, 4u);
    EXPECT_EQ(audio->samples, (std::vector<float>{0.25f, 0.125f, 0.0f, 0.5f}));
    // RMS over all eight values with the four bad ones as 0.
    EXPECT_NEAR(audio->rms, std::sqrt((0.25 + 0.0625 + 0.25 + 0.25) / 8.0), 1e-6);
}

TEST(NonFiniteSamples, PlanarAndMonoBlocksAreScrubbedToo) {
    const std::vector<float> left{notANumber, 0.5f, -infinity};
    const std::vector<float> right{0.25f, infinity, 0.5f};
    SampleBlock planar;
    planar.channelsPerFrame = 2;
    planar.interleaved = false;
    planar.buffers = {std::as_bytes(std::span(left)), std::as_bytes(std::span(right))};
    const auto audio = audioData(planar);
    ASSERT_TRUE(audio.has_value());
    EXPECT_EQ(audio->samples, (std::vector<float>{0.0f, 0.5f, 0.0f}));
    EXPECT_EQ(audio->nonFiniteSamples, 3u);
    EXPECT_TRUE(std::isfinite(audio->rms));
}

TEST(NonFiniteSamples, HugeFiniteSamplesCannotOverflowIntoInfinity) {
    const float huge = std::numeric_limits<float>::max();
    const std::vector<float> samples{huge, huge, -huge, -huge};
    const auto audio = audioData(interleavedBlock(samples, 2));
    ASSERT_TRUE(audio.has_value());
    EXPECT_EQ(audio->nonFiniteSamples, 0u);
    EXPECT_TRUE(std::isfinite(audio->rms));
    for (float v : audio->samples) EXPECT_TRUE(std::isfinite(v));
}

TEST(NonFiniteSamples, CleanBlocksKeepTheExactFastPath) {
    const auto tone = sine(440, 0.5, 2048);
    std::vector<float> stereo;
    for (float v : tone) {
        stereo.push_back(v);
        stereo.push_back(-v * 0.5f);
    }
    const auto audio = audioData(interleavedBlock(stereo, 2));
    ASSERT_TRUE(audio.has_value());
    EXPECT_EQ(audio->nonFiniteSamples, 0u);
    for (std::size_t i = 0; i < tone.size(); ++i) ASSERT_EQ(audio->samples[i], (tone[i] - tone[i] * 0.5f) * 0.5f);
}

TEST(NonFiniteSamples, NeverPoisonTheAnalysisAndLiveValuesReturnAtOnce) {
    for (const float bad : {notANumber, infinity, -infinity, denormal}) {
        AudioAnalyzer analyzer;
        analyzer.beginRun(1.0);
        double now = 1.0;
        const auto tone = sine(1000, sineAmplitude(-10), 960);
        auto feed = [&](const std::vector<float>& mono) {
            now += 0.02;
            const auto result = analyzer.process(interleavedBlock(mono, 1), now);
            if (result.outcome == AudioAnalyzer::Outcome::frame) {
                EXPECT_TRUE(finite(result.frame)) << bad;
            }
            return result;
        };
        for (int i = 0; i < 50; ++i) feed(tone);
        EXPECT_GT(analyzer.smoothedLevel(), 0.95);
        // 100 ms of the bad value, then the tone again.
        for (int i = 0; i < 5; ++i) feed(std::vector<float>(960, bad));
        EXPECT_TRUE(finite(analyzer.snapshot())) << bad;
        // Within a second of sound (50 blocks of 20 ms) the level is back to the tone's.
        int blocks = 0;
        while (analyzer.smoothedLevel() < 0.95 && blocks < 50) {
            feed(tone);
            ++blocks;
        }
        EXPECT_GT(analyzer.smoothedLevel(), 0.95) << bad;
        EXPECT_TRUE(finite(analyzer.snapshot())) << bad;
        EXPECT_EQ(analyzer.nonFiniteSampleCount(), std::isfinite(bad) ? 0u : 5u * 960u) << bad;
    }
}

TEST(NonFiniteSamples, AreScrubbedOnTheToolsPathThroughExtractedAudio) {
    AudioAnalyzer analyzer;
    analyzer.beginRun(1.0);
    ExtractedAudio audio;
    audio.rms = std::numeric_limits<double>::quiet_NaN();
    audio.samples.assign(1024, notANumber);
    const auto result = analyzer.process(audio, 2.0);
    ASSERT_EQ(result.outcome, AudioAnalyzer::Outcome::frame);
    EXPECT_TRUE(finite(result.frame));
    EXPECT_TRUE(finite(analyzer.snapshot()));
    EXPECT_EQ(analyzer.nonFiniteSampleCount(), 1024u);
}
