// An independent check of the numbers: the analysis written out again in the plainest way (double
// precision throughout, a direct DFT instead of FFTW, the accumulator as a growing list) and run
// side by side with the real one on the same blocks.

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "AnalysisTestSupport.h"

using namespace lorvane;
using namespace lorvane::analysistest;

namespace {

struct ReferenceFrame {
    double level, motionRate, beatPulse;
    std::vector<double> spectrum;
    bool beat;
    double onset;
    bool beatPossible;  // outside the refractory time, so the onset decided
};

class ReferenceAnalysis {
public:
    ReferenceAnalysis() {
        for (int n = 0; n < 1024; ++n) {
            window_[n] = 0.8165 * (1 - std::cos(2 * std::numbers::pi * n / 1024));
            cosTable_[n] = std::cos(2 * std::numbers::pi * n / 1024);
            sinTable_[n] = std::sin(2 * std::numbers::pi * n / 1024);
        }
    }

    void start(double now) {
        captureStartTime_ = now;
        lastAudibleSampleTime_ = now;
    }

    // One interleaved stereo block; nothing, a frame, or (as `failed`) the silence failure.
    std::optional<ReferenceFrame> process(const std::vector<float>& block, double now, bool& failed) {
        failed = false;
        double squares = 0;
        for (float v : block) squares += static_cast<double>(v) * v;
        const double rms = std::sqrt(squares / static_cast<double>(block.size()));
        std::vector<double> mono;
        for (std::size_t i = 0; i + 1 < block.size(); i += 2) mono.push_back((block[i] + static_cast<double>(block[i + 1])) / 2);

        double target = (20 * std::log10(std::max(rms, 0.000001)) + 55) / 45;
        if (target < 0) target = 0;
        if (target > 1) target = 1;
        target = std::pow(target, 0.72);
        if (smoothedLevel_ < target) {
            smoothedLevel_ += (target - smoothedLevel_) * 0.42;
        } else {
            smoothedLevel_ += (target - smoothedLevel_) * 0.14;
        }

        if (rms > 0.00002) {
            lastAudibleSampleTime_ = now;
        } else if (now - std::max(captureStartTime_, lastAudibleSampleTime_) > 4.0) {
            failed = true;
            return std::nullopt;
        }

        for (double v : mono) accumulator_.push_back(v);
        while (accumulator_.size() > 1024) accumulator_.erase(accumulator_.begin());

        // Publishes on a 1/30 s schedule anchored at the first publish, restarting after a lag of three slots.
        if (now < nextPublishTime_) return std::nullopt;
        const bool resync = nextPublishTime_ == 0 || now - nextPublishTime_ > 3 * (1.0 / 30.0);
        nextPublishTime_ = (resync ? now : nextPublishTime_) + 1.0 / 30.0;
        lastPublishTime_ = now;

        const std::vector<double> s = spectrum();
        double flux = 0;
        for (int i = 0; i < 96; ++i) {
            if (s[i] > previousSpectrum_[i]) flux += s[i] - previousSpectrum_[i];
        }
        flux /= 96.0;
        previousSpectrum_ = s;
        fluxBaseline_ += (flux - fluxBaseline_) * 0.045;
        double rise = smoothedLevel_ - previousPublishedLevel_;
        if (rise < 0) rise = 0;
        previousPublishedLevel_ = smoothedLevel_;
        const double onset = (flux - 1.28 * fluxBaseline_) * 12 + 2.8 * rise;

        const bool beatPossible = now - lastBeatTime_ > 0.22;
        const bool beat = onset > 0.28 && beatPossible;
        if (beat) {
            if (lastBeatTime_ > 0) {
                double d = now - lastBeatTime_;
                while (d < 0.34) d = d * 2;
                while (d > 0.86) d = d / 2;
                double tempoTarget = (60 / d - 70) / 110;
                if (tempoTarget < 0) tempoTarget = 0;
                if (tempoTarget > 1) tempoTarget = 1;
                tempoFactor_ += (tempoTarget - tempoFactor_) * 0.24;
            }
            lastBeatTime_ = now;
            beatPulse_ = 1.0;
        } else {
            beatPulse_ = beatPulse_ * 0.74;
        }

        double activityTarget = 9 * flux + 3.2 * rise;
        if (activityTarget < 0) activityTarget = 0;
        if (activityTarget > 1) activityTarget = 1;
        if (smoothedActivity_ < activityTarget) {
            smoothedActivity_ += (activityTarget - smoothedActivity_) * 0.38;
        } else {
            smoothedActivity_ += (activityTarget - smoothedActivity_) * 0.12;
        }

        for (int i = 0; i < 96; ++i) {
            if (smoothedSpectrum_[i] < s[i]) {
                smoothedSpectrum_[i] += (s[i] - smoothedSpectrum_[i]) * 0.58;
            } else {
                smoothedSpectrum_[i] += (s[i] - smoothedSpectrum_[i]) * 0.17;
            }
        }

        const double motion = 0.62 + 1.12 * tempoFactor_ + 0.62 * smoothedActivity_ + 0.28 * beatPulse_;
        return ReferenceFrame{smoothedLevel_, motion, beatPulse_, smoothedSpectrum_, beat, onset, beatPossible};
    }

    double tempoFactor() const { return tempoFactor_; }

private:
    std::vector<double> spectrum() const {
        if (accumulator_.size() != 1024) return previousSpectrum_;
        // Direct DFT of the windowed samples; the band constants expect twice its magnitude.
        std::vector<double> magnitude(512, 0.0);
        for (int k = 1; k < 512; ++k) {
            double re = 0;
            double im = 0;
            for (int n = 0; n < 1024; ++n) {
                const double x = accumulator_[n] * window_[n];
                re += x * cosTable_[(k * n) % 1024];
                im -= x * sinTable_[(k * n) % 1024];
            }
            magnitude[k] = 2 * std::sqrt(re * re + im * im);
        }
        std::vector<double> bands(96);
        for (int b = 0; b < 96; ++b) {
            const double low = 45 * std::pow(400.0, b / 96.0);
            const double high = 45 * std::pow(400.0, (b + 1) / 96.0);
            int lo = static_cast<int>(low * 1024 / 48000);
            if (lo < 1) lo = 1;
            if (lo > 511) lo = 511;
            int hi = static_cast<int>(std::ceil(high * 1024 / 48000));
            if (hi < lo + 1) hi = lo + 1;
            if (hi > 512) hi = 512;
            double sum = 0;
            for (int k = lo; k < hi; ++k) sum += magnitude[k];
            const double mean = sum / (hi - lo) / 1024;
            double value = (20 * std::log10(std::max(mean, 0.0000001)) + 92) / 68;
            if (value < 0) value = 0;
            if (value > 1) value = 1;
            bands[b] = std::pow(value, 0.74);
        }
        return bands;
    }

    double window_[1024];
    double cosTable_[1024];
    double sinTable_[1024];
    double smoothedLevel_ = 0, smoothedActivity_ = 0;
    std::vector<double> smoothedSpectrum_ = std::vector<double>(96, 0.0);
    std::vector<double> previousSpectrum_ = std::vector<double>(96, 0.0);
    std::vector<double> accumulator_;
    double fluxBaseline_ = 0.015, beatPulse_ = 0, tempoFactor_ = 0.42, previousPublishedLevel_ = 0;
    double lastBeatTime_ = 0, captureStartTime_ = 0, lastAudibleSampleTime_ = 0, lastPublishTime_ = 0,
           nextPublishTime_ = 0;
};

// How close is close enough. The real analysis keeps the window, FFT, magnitudes, band sums and RMS
// in single precision, as it must; the reference keeps everything in double.
// - Spectrum: a float FFT's error is relative to the loudest part of the window (about 1e-7 of it),
//   so a band 60 dB below the loudest one is off by about 1e-4 of itself, i.e. 20·log10(1 + 1e-4)
//   ≈ 9e-4 dB, which the mapping divides by 68 and the 0.74 power scales by at most a few: about
//   1e-5 in the band's 0...1 level. The test signals stay within that range (largest difference
//   seen: 9e-6), so 1e-4 leaves a tenfold margin.
// - Level, motion rate and pulse: the level only sees the RMS (float, 7 digits); the motion rate
//   sees the flux, an average over 96 bands with weight 9 at most. Largest difference seen: 2e-7,
//   so 1e-6.
// Any real mistake (a wrong constant, bin edge, scaling or order of steps) moves values by 1e-3 or
// more, and a wrong beat decision changes the pulse by at least 0.26.
constexpr double spectrumTolerance = 1e-4;
constexpr double scalarTolerance = 1e-6;

struct Deviation {
    double level = 0, motionRate = 0, beatPulse = 0, spectrum = 0;
    int publishes = 0, beats = 0;
};

// Runs both analyses over `mono` (as stereo with slightly different channels) in blocks of
// `blockFrames`; every publish and every value must agree within the tolerances above.
Deviation compare(const std::vector<float>& mono, std::size_t blockFrames) {
    AudioAnalyzer analyzer;
    ReferenceAnalysis reference;
    const double start = 1.0;
    analyzer.beginRun(start);
    reference.start(start);
    Deviation worst;
    for (std::size_t first = 0; first < mono.size(); first += blockFrames) {
        const std::size_t frames = std::min(blockFrames, mono.size() - first);
        std::vector<float> block(frames * 2);
        for (std::size_t i = 0; i < frames; ++i) {
            block[2 * i] = mono[first + i];
            block[2 * i + 1] = mono[first + i] * 0.8f;  // the mix and the RMS see both channels
        }
        const double now = start + static_cast<double>(first + frames) / rate;
        const auto real = analyzer.process(interleavedBlock(block, 2), now);
        bool referenceFailed = false;
        const auto expected = reference.process(block, now, referenceFailed);

        EXPECT_EQ(real.outcome == AudioAnalyzer::Outcome::silenceFailure, referenceFailed) << "at " << now;
        EXPECT_EQ(real.outcome == AudioAnalyzer::Outcome::frame, expected.has_value()) << "at " << now;
        if (real.outcome != AudioAnalyzer::Outcome::frame || !expected) continue;

        ++worst.publishes;
        // A beat decision is only comparable when the onset is clear of the threshold by far more
        // than the precision difference; the test signals must not put it on a knife's edge.
        if (expected->beatPossible) {
            EXPECT_GT(std::abs(expected->onset - 0.28), 1e-3) << "ambiguous onset in the test signal at " << now;
        }
        const bool realBeat = analyzer.lastBeatTime() == now;
        EXPECT_EQ(realBeat, expected->beat) << "at " << now;
        if (expected->beat) ++worst.beats;

        worst.level = std::max(worst.level, std::abs(real.frame.level - expected->level));
        worst.motionRate = std::max(worst.motionRate, std::abs(real.frame.motionRate - expected->motionRate));
        worst.beatPulse = std::max(worst.beatPulse, std::abs(real.frame.beatPulse - expected->beatPulse));
        EXPECT_NEAR(real.frame.level, expected->level, scalarTolerance) << "at " << now;
        EXPECT_NEAR(real.frame.motionRate, expected->motionRate, scalarTolerance) << "at " << now;
        EXPECT_NEAR(real.frame.beatPulse, expected->beatPulse, scalarTolerance) << "at " << now;
        EXPECT_EQ(real.frame.spectrum.size(), 96u);
        for (std::size_t i = 0; i < 96 && i < real.frame.spectrum.size(); ++i) {
            const double diff = std::abs(real.frame.spectrum[i] - expected->spectrum[i]);
            worst.spectrum = std::max(worst.spectrum, diff);
            EXPECT_NEAR(real.frame.spectrum[i], expected->spectrum[i], spectrumTolerance) << "band " << i << " at " << now;
        }
    }
    EXPECT_NEAR(analyzer.tempoFactor(), reference.tempoFactor(), scalarTolerance);
    return worst;
}

void report(const Deviation& d) {
    ::testing::Test::RecordProperty("publishes", d.publishes);
    ::testing::Test::RecordProperty("beats", d.beats);
    std::printf("%d publishes, %d beats; largest differences: level %.2g, motionRate %.2g, beatPulse %.2g, "
                "spectrum %.2g\n",
                d.publishes, d.beats, d.level, d.motionRate, d.beatPulse, d.spectrum);
}


}  // namespace

TEST(ReferenceComparison, NoiseWithAChangingLoudnessAgreesWithThePlainAnalysis) {
    auto signal = noise(static_cast<std::size_t>(4 * rate), 1.0, 31);
    for (std::size_t n = 0; n < signal.size(); ++n) {
        const double t = static_cast<double>(n) / rate;
        signal[n] *= static_cast<float>(0.02 + 0.5 * std::pow(std::sin(twoPi * 0.6 * t), 2));
    }
    const auto d = compare(signal, 480);
    report(d);
    EXPECT_GT(d.publishes, 90);
    EXPECT_GT(d.beats, 2);
}

TEST(ReferenceComparison, MusicLikeSignalAgreesWithThePlainAnalysis) {
    const auto d = compare(musicLike(5.0), 480);
    report(d);
    EXPECT_GT(d.publishes, 120);
    EXPECT_GT(d.beats, 5);
}

TEST(ReferenceComparison, MusicLikeSignalInSmallAndLargeBlocksAgreesWithThePlainAnalysis) {
    const auto signal = musicLike(3.0, 12);
    for (std::size_t blockFrames : {64u, 4096u}) {
        const auto d = compare(signal, blockFrames);
        report(d);
        EXPECT_GT(d.publishes, 30);
        EXPECT_GT(d.beats, 2);
    }
}

TEST(ReferenceComparison, ARecordingThatFallsSilentFailsOnTheSameBuffer) {
    auto signal = musicLike(2.0, 13);
    signal.resize(static_cast<std::size_t>(7 * rate), 0.0f);
    const auto d = compare(signal, 480);
    report(d);
    EXPECT_GT(d.publishes, 100);
}
