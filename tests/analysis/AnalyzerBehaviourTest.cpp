// The per-buffer and publish steps, driven block by block on a hand-set clock.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "AnalysisTestSupport.h"
#include "core/AudioCaptureFailure.h"
#include "core/Clock.h"

using namespace lorvane;
using namespace lorvane::analysistest;
using Outcome = AudioAnalyzer::Outcome;

namespace {

constexpr double step = 0.05;  // between scheduled buffers, more than the 1/30 s throttle

// The quiet background over exactly one FFT window: every copy has the same spectrum.
std::vector<float> quietWindow() {
    std::vector<float> out(1024);
    for (std::size_t n = 0; n < out.size(); ++n) out[n] = static_cast<float>(backgroundSample(n));
    return out;
}

// Drives an analyzer with 1024-sample buffers: the quiet background on a 50 ms grid, and a loud
// noise burst at each of the given times (the grid makes way for it).
class Schedule {
public:
    explicit Schedule(AudioAnalyzer& analyzer) : analyzer_(analyzer) {}

    std::vector<Publish> run(double start, std::vector<double> bursts, double end) {
        std::vector<Publish> publishes;
        analyzer_.beginRun(start);
        std::size_t next = 0;
        for (double t = start; t <= end; t += step) {
            bool loud = false;
            if (next < bursts.size() && t >= bursts[next] - 0.04) {
                t = bursts[next++];
                loud = true;
            }
            auto audio = loud ? extracted(noise(1024, 0.7, seed_++)) : extracted(quietWindow());
            auto result = analyzer_.process(audio, t);
            EXPECT_EQ(result.outcome, Outcome::frame) << "at " << t;
            publishes.push_back({t, result.frame, analyzer_.lastBeatTime() == t, analyzer_.tempoFactor()});
        }
        return publishes;
    }

private:
    AudioAnalyzer& analyzer_;
    std::uint32_t seed_ = 100;
};

const Publish& at(const std::vector<Publish>& publishes, double time) {
    for (const auto& p : publishes)
        if (std::abs(p.time - time) < 1e-9) return p;
    ADD_FAILURE() << "no publish at " << time;
    static const Publish none;
    return none;
}

// The RMS whose level target is `target`.
double rmsForTarget(double target) {
    const double mapped = std::pow(target, 1.0 / 0.72);
    return std::pow(10.0, (45.0 * mapped - 55.0) / 20.0);
}

double tempoAfterOneBeat(double start, double beatsPerMinute) {
    return start + ((beatsPerMinute - 70.0) / 110.0 - start) * 0.24;
}

}  // namespace

TEST(AudioAnalyzer, StartsWithTheInitialAnalysisState) {
    AudioAnalyzer analyzer;
    const auto s = analyzer.snapshot();
    EXPECT_EQ(s.smoothedLevel, 0.0);
    EXPECT_EQ(s.smoothedActivity, 0.0);
    for (int i = 0; i < 96; ++i) {
        EXPECT_EQ(s.smoothedSpectrum[i], 0.0);
        EXPECT_EQ(s.previousSpectrum[i], 0.0);
    }
    EXPECT_TRUE(s.sampleAccumulator.empty());
    EXPECT_EQ(s.fluxBaseline, 0.015);
    EXPECT_EQ(s.beatPulse, 0.0);
    EXPECT_EQ(s.tempoFactor, 0.42);
    EXPECT_EQ(s.previousPublishedLevel, 0.0);
    EXPECT_EQ(s.lastBeatTime, 0.0);
    EXPECT_EQ(s.captureStartTime, 0.0);
    EXPECT_EQ(s.lastAudibleSampleTime, 0.0);
    EXPECT_EQ(s.lastPublishTime, 0.0);
}

TEST(AudioAnalyzer, LevelTargetIsOneAtMinus10DbfsZeroAtMinus55DbfsOrBelowAndZeroForSilence) {
    EXPECT_EQ(AudioAnalyzer::levelTarget(std::pow(10.0, -10.0 / 20.0)), 1.0);
    EXPECT_EQ(AudioAnalyzer::levelTarget(std::pow(10.0, -55.0 / 20.0)), 0.0);
    EXPECT_EQ(AudioAnalyzer::levelTarget(std::pow(10.0, -80.0 / 20.0)), 0.0);
    EXPECT_EQ(AudioAnalyzer::levelTarget(0.0), 0.0);
    EXPECT_EQ(AudioAnalyzer::levelTarget(2.0), 1.0);
    // Halfway in decibels, curved by 0.72.
    EXPECT_NEAR(AudioAnalyzer::levelTarget(std::pow(10.0, -32.5 / 20.0)), std::pow(0.5, 0.72), 1e-12);

    // Through the per-buffer step: the target, then the rising (0.42) and falling (0.14) smoothing.
    AudioAnalyzer analyzer;
    analyzer.beginRun(1.0);
    ExtractedAudio loud{std::pow(10.0, -10.0 / 20.0), std::vector<float>(64, 0.1f)};
    analyzer.process(loud, 1.0);
    EXPECT_EQ(analyzer.lastLevelTarget(), 1.0);
    EXPECT_DOUBLE_EQ(analyzer.smoothedLevel(), 0.42);
    ExtractedAudio quiet{0.0, std::vector<float>(64, 0.0f)};
    analyzer.process(quiet, 1.001);
    EXPECT_EQ(analyzer.lastLevelTarget(), 0.0);
    EXPECT_DOUBLE_EQ(analyzer.smoothedLevel(), 0.42 * 0.86);
}

TEST(AudioAnalyzer, FewerThan1024SamplesKeepThePreviousSpectrumSoOnlyALevelRiseCanMakeABeat) {
    {
        AudioAnalyzer analyzer;
        const auto few = noise(1000, 0.5, 1);
        EXPECT_EQ(analyzer.spectrum(few), std::vector<double>(96, 0.0));
        EXPECT_EQ(analyzer.spectrum(noise(1025, 0.5, 1)), std::vector<double>(96, 0.0));
    }
    // Onset strength with no flux is 2.8 × rise − 15.36 × baseline, the baseline having moved
    // once towards 0: 0.015 × 0.955. The rise is 0.42 × target on the first buffer.
    const double baseline = 0.015 * (1 - 0.045);
    auto firstPublish = [&](double target) {
        AudioAnalyzer analyzer;
        analyzer.beginRun(1.0);
        const auto result = analyzer.process(ExtractedAudio{rmsForTarget(target), noise(512, 0.5, 2)}, 1.0);
        EXPECT_EQ(result.outcome, Outcome::frame);
        EXPECT_EQ(result.frame.spectrum, std::vector<double>(96, 0.0));  // the previous (initial) spectrum
        const auto s = analyzer.snapshot();
        EXPECT_EQ(s.previousSpectrum, (std::array<double, 96>{}));
        EXPECT_DOUBLE_EQ(s.fluxBaseline, baseline);  // flux was 0
        return std::pair{result.frame.beatPulse, 2.8 * 0.42 * target - 15.36 * baseline};
    };
    // Just above and just below the 0.28 threshold.
    const double threshold = (0.28 + 15.36 * baseline) / (2.8 * 0.42);
    const auto [pulseAbove, onsetAbove] = firstPublish(threshold + 0.005);
    EXPECT_GT(onsetAbove, 0.28);
    EXPECT_EQ(pulseAbove, 1.0);
    const auto [pulseBelow, onsetBelow] = firstPublish(threshold - 0.005);
    EXPECT_LT(onsetBelow, 0.28);
    EXPECT_EQ(pulseBelow, 0.0);
}

TEST(AudioAnalyzer, ASecondOnsetWithin220MillisecondsIsNotABeatButThePulseStillDecays) {
    AudioAnalyzer analyzer;
    const auto publishes = Schedule(analyzer).run(2.0, {2.5, 2.7}, 3.0);
    EXPECT_TRUE(at(publishes, 2.5).beat);
    const auto& second = at(publishes, 2.7);
    EXPECT_FALSE(second.beat);
    EXPECT_EQ(analyzer.lastBeatTime(), 2.5);
    EXPECT_DOUBLE_EQ(second.frame.beatPulse, at(publishes, 2.65).frame.beatPulse * 0.74);

    // The same burst 0.25 s after the first one is a beat: it was a real onset.
    AudioAnalyzer control;
    const auto controlPublishes = Schedule(control).run(2.0, {2.5, 2.75}, 3.0);
    EXPECT_TRUE(at(controlPublishes, 2.75).beat);
    EXPECT_EQ(at(controlPublishes, 2.75).frame.beatPulse, 1.0);
}

TEST(AudioAnalyzer, BeatIntervalsFoldIntoTheTempoOctave) {
    struct Case {
        double interval;
        double beatsPerMinute;  // after folding into 0.34...0.86 s
    };
    for (const Case c : {Case{1.0, 120.0}, Case{0.3, 100.0}, Case{0.25, 120.0}, Case{2.0, 120.0},
                         Case{0.9, 60.0 / 0.45}, Case{0.8, 75.0}}) {
        AudioAnalyzer analyzer;
        const auto publishes = Schedule(analyzer).run(2.0, {2.5, 2.5 + c.interval}, 2.5 + c.interval + 0.1);
        EXPECT_TRUE(at(publishes, 2.5).beat) << c.interval;
        EXPECT_TRUE(at(publishes, 2.5 + c.interval).beat) << c.interval;
        EXPECT_NEAR(analyzer.tempoFactor(), tempoAfterOneBeat(0.42, c.beatsPerMinute), 1e-9) << c.interval;
    }
}

TEST(AudioAnalyzer, FirstBeatAfterConstructionOrAfterAStopLeavesTheTempoUnchanged) {
    AudioAnalyzer analyzer;
    Schedule schedule(analyzer);
    auto publishes = schedule.run(2.0, {2.5}, 2.6);
    EXPECT_TRUE(at(publishes, 2.5).beat);
    EXPECT_EQ(at(publishes, 2.5).frame.beatPulse, 1.0);
    EXPECT_EQ(analyzer.tempoFactor(), 0.42);

    publishes = schedule.run(2.65, {3.0}, 3.1);
    ASSERT_TRUE(at(publishes, 3.0).beat);
    const double learnt = analyzer.tempoFactor();
    EXPECT_NEAR(learnt, tempoAfterOneBeat(0.42, 120.0), 1e-9);

    analyzer.reset();
    EXPECT_EQ(analyzer.lastBeatTime(), 0.0);
    publishes = schedule.run(10.0, {10.5}, 10.6);
    EXPECT_TRUE(at(publishes, 10.5).beat);
    EXPECT_EQ(at(publishes, 10.5).frame.beatPulse, 1.0);
    EXPECT_EQ(analyzer.tempoFactor(), learnt);
}

TEST(AudioAnalyzer, StopResetsTheAnalysisStateButKeepsTheLearntTempo) {
    AudioAnalyzer analyzer;
    Schedule(analyzer).run(2.0, {2.5, 3.0, 3.5}, 3.6);
    const auto before = analyzer.snapshot();
    ASSERT_NE(before.tempoFactor, 0.42);
    ASSERT_GT(before.smoothedActivity, 0.0);
    ASSERT_EQ(before.sampleAccumulator.size(), 1024u);

    analyzer.reset();
    const auto s = analyzer.snapshot();
    EXPECT_EQ(s.smoothedLevel, 0.0);
    EXPECT_EQ(s.smoothedActivity, 0.0);
    EXPECT_EQ(s.smoothedSpectrum, (std::array<double, 96>{}));
    EXPECT_EQ(s.previousSpectrum, (std::array<double, 96>{}));
    EXPECT_TRUE(s.sampleAccumulator.empty());
    EXPECT_EQ(s.fluxBaseline, 0.015);
    EXPECT_EQ(s.beatPulse, 0.0);
    EXPECT_EQ(s.previousPublishedLevel, 0.0);
    EXPECT_EQ(s.lastBeatTime, 0.0);
    EXPECT_EQ(s.lastPublishTime, 0.0);
    EXPECT_EQ(s.tempoFactor, before.tempoFactor);
    // The run's start times belong to the next start, not to the stop.
    EXPECT_EQ(s.captureStartTime, before.captureStartTime);
    EXPECT_EQ(s.lastAudibleSampleTime, before.lastAudibleSampleTime);
}

TEST(AudioAnalyzer, BuffersFasterThan30PerSecondUpdateTheLevelEachTimeButPublishOncePerThirtiethOfASecond) {
    AudioAnalyzer analyzer;
    ManualClock clock(5.0);
    analyzer.beginRun(clock.now());
    const auto signal = musicLike(1.0);
    std::vector<double> publishTimes;
    int levelChanges = 0;
    int buffers = 0;
    for (std::size_t first = 0; first + 64 <= signal.size(); first += 64) {
        clock.advance(64 / rate);
        const double before = analyzer.smoothedLevel();
        const auto result =
            analyzer.process(extracted({signal.begin() + first, signal.begin() + first + 64}), clock.now());
        ++buffers;
        if (analyzer.smoothedLevel() != before) ++levelChanges;
        if (result.outcome == Outcome::frame) publishTimes.push_back(clock.now());
        EXPECT_EQ(analyzer.snapshot().lastAudibleSampleTime, clock.now());
    }
    EXPECT_EQ(levelChanges, buffers);
    ASSERT_GE(publishTimes.size(), 29u);
    EXPECT_LE(publishTimes.size(), 31u);
    // One frame per slot of the 1/30 s schedule: a gap can fall short of 1/30 s by less than a buffer.
    for (std::size_t i = 1; i < publishTimes.size(); ++i) {
        EXPECT_GT(publishTimes[i] - publishTimes[i - 1], 1.0 / 30.0 - 64 / rate);
    }
}

TEST(AudioAnalyzer, ABufferExactlyAThirtiethOfASecondAfterThePublishDoesPublish) {
    AudioAnalyzer analyzer;
    analyzer.beginRun(0.0);
    const auto audio = extracted(noise(256, 0.3, 5));
    // 2/30 is exactly twice 1/30 in binary, so these differences are exactly 1/30.
    EXPECT_EQ(analyzer.process(audio, 1.0 / 30.0).outcome, Outcome::frame);  // 1/30 after the initial 0
    EXPECT_EQ(analyzer.process(audio, std::nextafter(2.0 / 30.0, 0.0)).outcome, Outcome::nothing);
    EXPECT_EQ(analyzer.process(audio, 2.0 / 30.0).outcome, Outcome::frame);
    EXPECT_EQ(analyzer.snapshot().lastPublishTime, 2.0 / 30.0);
}

TEST(AudioAnalyzer, SilenceForExactlyFourSecondsDoesNotFailButTheFirstLaterSilentBufferDoes) {
    AudioAnalyzer analyzer;
    analyzer.beginRun(10.0);
    const ExtractedAudio silent{0.0, std::vector<float>(480, 0.0f)};
    for (double t = 10.5; t <= 14.0; t += 0.5) {
        EXPECT_NE(analyzer.process(silent, t).outcome, Outcome::silenceFailure) << t;
    }
    EXPECT_EQ(analyzer.process(silent, std::nextafter(14.0, 15.0)).outcome, Outcome::silenceFailure);

    // An audible buffer restarts the watch; rms at the threshold itself is not audible.
    AudioAnalyzer second;
    second.beginRun(10.0);
    EXPECT_NE(second.process(extracted(noise(480, 0.01, 9)), 12.0).outcome, Outcome::silenceFailure);
    const ExtractedAudio atThreshold{0.00002, std::vector<float>(480, 0.00002f)};
    EXPECT_NE(second.process(atThreshold, 16.0).outcome, Outcome::silenceFailure);
    EXPECT_EQ(second.snapshot().lastAudibleSampleTime, 12.0);
    EXPECT_EQ(second.process(atThreshold, 16.01).outcome, Outcome::silenceFailure);
}

TEST(AudioAnalyzer, TheSilenceFailureUpdatesTheLevelButDiscardsTheBuffersSamples) {
    AudioAnalyzer analyzer;
    analyzer.beginRun(1.0);
    analyzer.process(extracted(std::vector<float>(300, 0.25f)), 1.0);
    const auto before = analyzer.snapshot();
    const ExtractedAudio silent{0.0, std::vector<float>(480, 0.0f)};
    EXPECT_EQ(analyzer.process(silent, 5.5).outcome, Outcome::silenceFailure);
    const auto after = analyzer.snapshot();
    EXPECT_EQ(after.sampleAccumulator, before.sampleAccumulator);
    EXPECT_LT(after.smoothedLevel, before.smoothedLevel);
    EXPECT_EQ(after.lastPublishTime, before.lastPublishTime);
}

TEST(AudioAnalyzer, UnsupportedOrEmptyBuffersNeitherUpdateTheLevelNorCountAsSilence) {
    AudioAnalyzer analyzer;
    analyzer.beginRun(1.0);
    const std::vector<float> samples(960, 0.0f);
    auto block = interleavedBlock(samples, 2);
    block.format = SampleFormat::int16;
    analyzer.process(extracted(noise(480, 0.5, 4)), 1.0);
    const double level = analyzer.smoothedLevel();
    EXPECT_EQ(analyzer.process(block, 100.0).outcome, Outcome::nothing);
    EXPECT_EQ(analyzer.process(SampleBlock{}, 100.0).outcome, Outcome::nothing);
    EXPECT_EQ(analyzer.process(ExtractedAudio{}, 100.0).outcome, Outcome::nothing);
    EXPECT_EQ(analyzer.smoothedLevel(), level);
    EXPECT_EQ(analyzer.snapshot().lastPublishTime, 1.0);
}

TEST(AudioAnalyzer, TheAccumulatorKeepsTheNewest1024MonoSamples) {
    AudioAnalyzer analyzer;
    analyzer.beginRun(1.0);
    std::vector<float> ramp(5000);
    for (std::size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<float>(i) / 8192.0f;
    const auto slice = [&](std::size_t from, std::size_t count) {
        return std::vector<float>(ramp.begin() + static_cast<long>(from), ramp.begin() + static_cast<long>(from + count));
    };
    analyzer.process(extracted(slice(0, 600)), 1.0);
    EXPECT_EQ(analyzer.snapshot().sampleAccumulator, slice(0, 600));
    analyzer.process(extracted(slice(600, 600)), 1.001);
    EXPECT_EQ(analyzer.snapshot().sampleAccumulator, slice(176, 1024));
    analyzer.process(extracted(slice(1200, 3800)), 1.002);
    EXPECT_EQ(analyzer.snapshot().sampleAccumulator, slice(3976, 1024));

    // Through a stereo block: the mono mix, newest last.
    const auto stereoRamp = stereo(slice(0, 700));
    analyzer.process(interleavedBlock(stereoRamp, 2), 1.003);
    const auto expected = [&] {
        auto v = slice(4676, 324);
        const auto head = slice(0, 700);
        v.insert(v.end(), head.begin(), head.end());
        return v;
    }();
    EXPECT_EQ(analyzer.snapshot().sampleAccumulator, expected);
}

TEST(AudioAnalyzer, MotionRateCombinesTempoActivityAndPulse) {
    AudioAnalyzer analyzer;
    const auto publishes = Schedule(analyzer).run(2.0, {2.5, 3.0}, 3.3);
    const auto s = analyzer.snapshot();
    const auto& last = publishes.back();
    EXPECT_DOUBLE_EQ(last.frame.motionRate, 0.62 + 1.12 * s.tempoFactor + 0.62 * s.smoothedActivity + 0.28 * s.beatPulse);
    EXPECT_EQ(last.frame.level, s.smoothedLevel);
    EXPECT_EQ(last.frame.beatPulse, s.beatPulse);
    EXPECT_EQ(last.frame.spectrum, std::vector<double>(s.smoothedSpectrum.begin(), s.smoothedSpectrum.end()));
}
