// Generated recordings fed the way the capture stream delivers them: 48 kHz stereo blocks.

#include <gtest/gtest.h>

#include <cmath>

#include "AnalysisTestSupport.h"

using namespace lorvane;
using namespace lorvane::analysistest;

namespace {

double tempoTarget(double beatsPerMinute) { return (beatsPerMinute - 70.0) / 110.0; }

std::vector<double> intervals(const std::vector<double>& times) {
    std::vector<double> out;
    for (std::size_t i = 1; i < times.size(); ++i) out.push_back(times[i] - times[i - 1]);
    return out;
}

double levelTargetOfSine(double dbfs) {
    AudioAnalyzer analyzer;
    analyzer.beginRun(1.0);
    const auto block = stereo(sine(1000.0, sineAmplitude(dbfs), 480));  // ten whole periods
    analyzer.process(interleavedBlock(block, 2), 1.01);
    return analyzer.lastLevelTarget();
}

}  // namespace

TEST(AnalyzerSignals, AMinus10DbfsSineGivesALevelTargetOfOneAndAMinus55DbfsSineZero) {
    // The RMS is summed in single precision, so the target lands within a few float steps of 1.
    EXPECT_NEAR(levelTargetOfSine(-10.0), 1.0, 1e-5);
    EXPECT_EQ(levelTargetOfSine(-9.5), 1.0);
    EXPECT_NEAR(levelTargetOfSine(-55.0), 0.0, 1e-4);
    EXPECT_EQ(levelTargetOfSine(-55.5), 0.0);
    EXPECT_NEAR(levelTargetOfSine(-32.5), std::pow(0.5, 0.72), 1e-5);
}

TEST(AnalyzerSignals, AOneKilohertzSinePublishesItsPeakInTheOneKilohertzBand) {
    AudioAnalyzer analyzer;
    const auto signal = sine(1000.0, sineAmplitude(-20), 48000);
    const auto fed = feed(analyzer, signal, 480);
    ASSERT_FALSE(fed.publishes.empty());
    const auto& spectrum = fed.publishes.back().frame.spectrum;
    ASSERT_EQ(spectrum.size(), 96u);
    const auto peak = std::max_element(spectrum.begin(), spectrum.end()) - spectrum.begin();
    EXPECT_EQ(peak, 49);
    for (int b = 0; b < 96; ++b) {
        if (std::abs(b - 49) >= 23) {
            EXPECT_EQ(spectrum[b], 0.0) << "band " << b;  // two octaves away: the floor
        }
    }
}

TEST(AnalyzerSignals, AClickTrainAt120BpmBeatsHalfASecondApartAndPullsTheTempoToward120) {
    // Blocks of 500 frames: a publish every 4 blocks (1/24 s), so 0.5 s is exactly 12 publishes.
    AudioAnalyzer analyzer;
    const auto signal = clickTrain(12.0, 0.5, 0.25);
    const auto fed = feed(analyzer, signal, 500);
    ASSERT_FALSE(fed.silenceFailure);
    const auto beats = fed.beatTimes();
    ASSERT_EQ(beats.size(), 24u);  // one per click
    for (double gap : intervals(beats)) EXPECT_NEAR(gap, 0.5, 1e-9);

    double previous = 0.42;
    const double target = tempoTarget(120.0);
    for (const auto& p : fed.publishes) {
        if (!p.beat || p.time == beats.front()) continue;
        EXPECT_NEAR(p.tempoFactor, previous + (target - previous) * 0.24, 1e-9);
        previous = p.tempoFactor;
    }
    EXPECT_NEAR(analyzer.tempoFactor(), 0.4545, 1e-3);
}

TEST(AnalyzerSignals, AClickTrainAt120BpmIn10MillisecondBlocksBeatsWithinOnePublishOfHalfASecond) {
    AudioAnalyzer analyzer;
    const auto fed = feed(analyzer, clickTrain(12.0, 0.5, 0.25), 480);
    const auto beats = fed.beatTimes();
    ASSERT_EQ(beats.size(), 24u);
    for (double gap : intervals(beats)) EXPECT_NEAR(gap, 0.5, 0.04 + 1e-9);
    EXPECT_NEAR(analyzer.tempoFactor(), tempoTarget(120.0), 0.03);
}

TEST(AnalyzerSignals, AClickTrainAt100BpmPullsTheTempoToward100) {
    // Blocks of 480 frames: a publish every 40 ms, so 0.6 s is exactly 15 publishes.
    AudioAnalyzer analyzer;
    const auto fed = feed(analyzer, clickTrain(14.4, 0.6, 0.24), 480);
    const auto beats = fed.beatTimes();
    ASSERT_EQ(beats.size(), 24u);
    for (double gap : intervals(beats)) EXPECT_NEAR(gap, 0.6, 1e-9);
    EXPECT_LT(analyzer.tempoFactor(), 0.42);
    EXPECT_NEAR(analyzer.tempoFactor(), 30.0 / 110.0, 1e-3);
}

TEST(AnalyzerSignals, BeatsNeverComeCloserThan220Milliseconds) {
    // Clicks every 0.2 s: every other one falls inside the refractory time.
    AudioAnalyzer analyzer;
    const auto fed = feed(analyzer, clickTrain(6.0, 0.2, 0.2), 480);
    const auto beats = fed.beatTimes();
    ASSERT_GE(beats.size(), 13u);
    for (double gap : intervals(beats)) {
        EXPECT_GT(gap, 0.22);
        // Every other click; the 1/30 s schedule lands on 10 ms blocks, so within one block of 0.4 s.
        EXPECT_NEAR(gap, 0.4, 0.01 + 1e-9);
    }

    // Loud bursts at random gaps, some as short as 50 ms.
    std::mt19937 random(21);
    std::uniform_real_distribution<double> gap(0.05, 0.45);
    auto signal = std::vector<float>(static_cast<std::size_t>(20 * rate));
    for (std::size_t n = 0; n < signal.size(); ++n) signal[n] = static_cast<float>(backgroundSample(n));
    int bursts = 0;
    for (double t = 0.3; t < 19.5; t += gap(random), ++bursts) {
        const auto burst = noise(960, 0.6, static_cast<std::uint32_t>(bursts));
        const auto at = static_cast<std::size_t>(t * rate);
        for (std::size_t i = 0; i < burst.size(); ++i) signal[at + i] += burst[i];
    }
    AudioAnalyzer second;
    const auto randomBeats = feed(second, signal, 480).beatTimes();
    ASSERT_GE(randomBeats.size(), 20u);
    ASSERT_LT(randomBeats.size(), static_cast<std::size_t>(bursts));
    for (double g : intervals(randomBeats)) EXPECT_GT(g, 0.22);
}

TEST(AnalyzerSignals, TheBeatPulseDecaysBy074PerPublishBetweenBeats) {
    AudioAnalyzer analyzer;
    const auto fed = feed(analyzer, clickTrain(4.0, 0.5, 0.25), 480);
    int decays = 0;
    for (std::size_t i = 1; i < fed.publishes.size(); ++i) {
        const auto& now = fed.publishes[i];
        if (now.beat) {
            EXPECT_EQ(now.frame.beatPulse, 1.0);
        } else {
            EXPECT_EQ(now.frame.beatPulse, fed.publishes[i - 1].frame.beatPulse * 0.74);
            ++decays;
        }
    }
    EXPECT_GT(decays, 50);
}

TEST(AnalyzerSignals, ThePublishScheduleHoldsForBlocksOf64And480And4096Frames) {
    const auto signal = musicLike(3.0);
    for (std::size_t blockFrames : {64u, 480u, 4096u}) {
        AudioAnalyzer analyzer;
        const auto fed = feed(analyzer, signal, blockFrames);
        const double blockSeconds = static_cast<double>(blockFrames) / rate;
        ASSERT_GE(fed.publishes.size(), 30u) << blockFrames;
        for (std::size_t i = 1; i < fed.publishes.size(); ++i) {
            const double gap = fed.publishes[i].time - fed.publishes[i - 1].time;
            // Never two frames in one 1/30 s slot: short of 1/30 s by less than one block at most ...
            EXPECT_GT(gap, 1.0 / 30.0 - blockSeconds) << blockFrames;
            // ... and a frame on the first block of each slot.
            EXPECT_LE(gap, std::max(1.0 / 30.0, blockSeconds) + blockSeconds + 1e-12) << blockFrames;
        }
    }
}

// 10 ms and 20 ms blocks (the sizes sound servers deliver) give 30 frames a second on average, one
// in each 1/30 s slot of the schedule: never two within one slot.
TEST(AnalyzerSignals, TenAndTwentyMillisecondBlocksPublishThirtyFramesASecond) {
    const double seconds = 10.0;
    const auto signal = musicLike(seconds);
    for (std::size_t blockFrames : {480u, 960u}) {
        SCOPED_TRACE(blockFrames);
        AudioAnalyzer analyzer;
        const auto fed = feed(analyzer, signal, blockFrames);
        ASSERT_FALSE(fed.publishes.empty());
        const double first = fed.publishes.front().time;
        const double span = fed.publishes.back().time - first;
        const double perSecond = static_cast<double>(fed.publishes.size() - 1) / span;
        EXPECT_NEAR(perSecond, 30.0, 0.15);
        EXPECT_GE(fed.publishes.size(), static_cast<std::size_t>(seconds * 30) - 1);
        // Frame k falls in slot k of the schedule that starts at the first frame.
        for (std::size_t k = 0; k < fed.publishes.size(); ++k) {
            const double slot = (fed.publishes[k].time - first) * 30.0;
            EXPECT_GE(slot, static_cast<double>(k) - 1e-9) << "frame " << k;
            EXPECT_LT(slot, static_cast<double>(k + 1)) << "frame " << k;
        }
    }
}

TEST(AnalyzerSignals, PublishedValuesStayInTheirRanges) {
    AudioAnalyzer analyzer;
    const auto fed = feed(analyzer, musicLike(8.0), 480);
    ASSERT_GT(fed.publishes.size(), 150u);
    for (const auto& p : fed.publishes) {
        EXPECT_GE(p.frame.level, 0.0);
        EXPECT_LE(p.frame.level, 1.0);
        EXPECT_GE(p.frame.motionRate, 0.62);
        EXPECT_LE(p.frame.motionRate, 2.64);
        EXPECT_GE(p.frame.beatPulse, 0.0);
        EXPECT_LE(p.frame.beatPulse, 1.0);
        ASSERT_EQ(p.frame.spectrum.size(), 96u);
        for (double v : p.frame.spectrum) {
            EXPECT_GE(v, 0.0);
            EXPECT_LE(v, 1.0);
        }
    }
    EXPECT_GE(fed.beatTimes().size(), 10u);
}
