#include "core/analysis/AudioAnalyzer.h"

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numbers>

#include "core/analysis/FftwPlanner.h"
#include "core/analysis/SampleExtraction.h"

namespace lorvane {

std::mutex& fftwPlannerMutex() {
    static std::mutex mutex;
    return mutex;
}

namespace {

constexpr std::size_t windowSize = AudioAnalyzer::fftSize;
constexpr std::size_t bandCount = AudioAnalyzer::spectrumBandCount;
constexpr std::size_t magnitudeCount = windowSize / 2;  // 512
constexpr double publishInterval = 1.0 / 30.0;
// Further behind the schedule than this (a stall, a gap in the stream), publishing restarts from now
// instead of catching up with a burst of frames.
constexpr double publishResyncLag = 3 * publishInterval;
constexpr double audibleRms = 0.00002;
constexpr double silenceLimit = 4.0;
constexpr double initialFluxBaseline = 0.015;
constexpr double initialTempoFactor = 0.42;

[[noreturn]] void fatal(const char* message) {
    std::fprintf(stderr, "%s\n", message);
    std::fflush(stderr);
    std::abort();
}

struct BandTable {
    std::array<int, bandCount> lo{};
    std::array<int, bandCount> hi{};
    std::array<bool, bandCount> repeatsPrevious{};  // same bins as the band below (bands 1-10 do)
    int highestBin = 0;                             // one past the highest bin any band reads
};

const BandTable& bandTable() {
    static const BandTable table = [] {
        BandTable t;
        for (std::size_t b = 0; b < bandCount; ++b) {
            const double lowEdge = 45.0 * std::pow(400.0, static_cast<double>(b) / static_cast<double>(bandCount));
            const double highEdge =
                45.0 * std::pow(400.0, static_cast<double>(b + 1) / static_cast<double>(bandCount));
            int lo = static_cast<int>(lowEdge * windowSize / AudioAnalyzer::sampleRate);
            lo = std::min(std::max(lo, 1), static_cast<int>(magnitudeCount) - 1);
            int hi = static_cast<int>(std::ceil(highEdge * windowSize / AudioAnalyzer::sampleRate));
            hi = std::min(std::max(hi, lo + 1), static_cast<int>(magnitudeCount));
            t.lo[b] = lo;
            t.hi[b] = hi;
            t.repeatsPrevious[b] = b > 0 && t.lo[b - 1] == lo && t.hi[b - 1] == hi;
            t.highestBin = std::max(t.highestBin, hi);
        }
        return t;
    }();
    return table;
}

// out[i] = a[i] × b[i], eight at a time (any alignment).
void multiply(const float* a, const float* b, float* out, std::size_t count) {
    using Lanes = float __attribute__((vector_size(32)));
    const std::size_t whole = count - count % 8;
    for (std::size_t i = 0; i < whole; i += 8) {
        Lanes x;
        Lanes y;
        std::memcpy(&x, a + i, sizeof x);
        std::memcpy(&y, b + i, sizeof y);
        const Lanes product = x * y;
        std::memcpy(out + i, &product, sizeof product);
    }
    for (std::size_t i = whole; i < count; ++i) out[i] = a[i] * b[i];
}

double bandValue(float mean) {
    const double value = (20.0 * std::log10(std::max(static_cast<double>(mean), 0.0000001)) + 92.0) / 68.0;
    if (value <= 0) return 0;
    if (value >= 1) return 1;
    return std::pow(value, 0.74);
}

}  // namespace

struct AudioAnalyzer::Fft {
    float* input = nullptr;           // windowed samples
    fftwf_complex* output = nullptr;  // bins 0...512, unscaled
    fftwf_plan plan = nullptr;
    std::array<float, windowSize> window{};
    std::array<float, magnitudeCount> magnitudes{};

    Fft() {
        for (std::size_t n = 0; n < windowSize; ++n) {
            const double phase = 2.0 * std::numbers::pi * static_cast<double>(n) / static_cast<double>(windowSize);
            window[n] = static_cast<float>(0.8165 * (1.0 - std::cos(phase)));
        }
        std::lock_guard lock(fftwPlannerMutex());
        input = fftwf_alloc_real(windowSize);
        output = fftwf_alloc_complex(magnitudeCount + 1);
        if (input != nullptr && output != nullptr) {
            // Estimated, not measured: the plan is the same on every run and planning costs nothing.
            plan = fftwf_plan_dft_r2c_1d(static_cast<int>(windowSize), input, output, FFTW_ESTIMATE);
        }
        if (plan == nullptr) fatal("Unable to create the audio FFT setup");
    }

    ~Fft() {
        std::lock_guard lock(fftwPlannerMutex());
        fftwf_destroy_plan(plan);
        fftwf_free(output);
        fftwf_free(input);
    }

    Fft(const Fft&) = delete;
    Fft& operator=(const Fft&) = delete;

    // Transforms `input` (already windowed) into the 96 band levels.
    void bands(std::array<double, bandCount>& out) {
        const BandTable& table = bandTable();
        fftwf_execute(plan);
        // The band constants expect twice the plain DFT magnitude; doubling is exact in float.
        for (int k = 1; k < table.highestBin; ++k) {
            const float re = output[k][0];
            const float im = output[k][1];
            magnitudes[static_cast<std::size_t>(k)] = 2.0f * std::sqrt(re * re + im * im);
        }
        for (std::size_t b = 0; b < bandCount; ++b) {
            if (table.repeatsPrevious[b]) {
                out[b] = out[b - 1];
                continue;
            }
            float sum = 0;
            for (int k = table.lo[b]; k < table.hi[b]; ++k) sum += magnitudes[static_cast<std::size_t>(k)];
            const float mean = sum / static_cast<float>(table.hi[b] - table.lo[b]) * (1.0f / 1024.0f);
            out[b] = bandValue(mean);
        }
    }
};

struct AudioAnalyzer::State {
    double smoothedLevel = 0;
    double smoothedActivity = 0;
    std::array<double, bandCount> smoothedSpectrum{};
    std::array<double, bandCount> previousSpectrum{};
    // The accumulator as a ring: the newest `filled` samples end just before `writePos`.
    std::array<float, windowSize> ring{};
    std::size_t writePos = 0;
    std::size_t filled = 0;
    double fluxBaseline = initialFluxBaseline;
    double beatPulse = 0;
    double tempoFactor = initialTempoFactor;
    double previousPublishedLevel = 0;
    double lastBeatTime = 0;
    double captureStartTime = 0;
    double lastAudibleSampleTime = 0;
    double lastPublishTime = 0;
    double nextPublishTime = 0;  // the schedule's next slot; 0 publishes on the first buffer
    double lastLevelTarget = 0;
    std::size_t nonFiniteSamples = 0;
    std::array<double, bandCount> scratch{};  // this publish's raw spectrum

    // `write(out, from, count)` writes samples [from, from + count) of the `total` new ones; only
    // the newest windowSize can survive, so only those are written.
    template <typename Write>
    void append(std::size_t total, Write write) {
        const std::size_t take = std::min(total, windowSize);
        const std::size_t skip = total - take;
        const std::size_t first = std::min(take, windowSize - writePos);
        write(ring.data() + writePos, skip, first);
        write(ring.data(), skip + first, take - first);
        writePos = (writePos + take) % windowSize;
        filled = std::min(windowSize, filled + take);
    }

    std::vector<float> accumulator() const {
        std::vector<float> samples(filled);
        const std::size_t start = (writePos + windowSize - filled) % windowSize;
        for (std::size_t i = 0; i < filled; ++i) samples[i] = ring[(start + i) % windowSize];
        return samples;
    }
};

AudioAnalyzer::AudioAnalyzer() : fft_(std::make_unique<Fft>()), state_(std::make_unique<State>()) {}

AudioAnalyzer::~AudioAnalyzer() = default;

void AudioAnalyzer::beginRun(double now) {
    state_->captureStartTime = now;
    state_->lastAudibleSampleTime = now;
}

void AudioAnalyzer::reset() {
    State& s = *state_;
    s.smoothedLevel = 0;
    s.smoothedActivity = 0;
    s.smoothedSpectrum.fill(0);
    s.previousSpectrum.fill(0);
    s.writePos = 0;
    s.filled = 0;
    s.fluxBaseline = initialFluxBaseline;
    s.beatPulse = 0;
    s.previousPublishedLevel = 0;
    s.lastBeatTime = 0;
    s.lastPublishTime = 0;
    s.nextPublishTime = 0;
    // The learnt tempo carries over into the next run; the run's start times are set by beginRun().
}

double AudioAnalyzer::levelTarget(double rms) {
    const double mapped = (20.0 * std::log10(std::max(rms, 0.000001)) + 55.0) / 45.0;
    return std::pow(std::clamp(mapped, 0.0, 1.0), 0.72);
}

AudioAnalyzer::BandBins AudioAnalyzer::bandBins(int band) {
    const BandTable& table = bandTable();
    const auto b = static_cast<std::size_t>(std::clamp(band, 0, spectrumBandCount - 1));
    return {table.lo[b], table.hi[b]};
}

bool AudioAnalyzer::updateLevelAndWatchSilence(double rms, double now) {
    State& s = *state_;
    if (std::isnan(rms)) rms = 0;  // an infinite RMS is merely loud; NaN is nothing heard
    const double target = levelTarget(rms);
    s.lastLevelTarget = target;
    const double coefficient = s.smoothedLevel < target ? 0.42 : 0.14;
    s.smoothedLevel += (target - s.smoothedLevel) * coefficient;

    if (rms > audibleRms) {
        s.lastAudibleSampleTime = now;
    } else if (now - std::max(s.captureStartTime, s.lastAudibleSampleTime) > silenceLimit) {
        return false;
    }
    return true;
}

AudioAnalyzer::Result AudioAnalyzer::process(const SampleBlock& block, double now) {
    const auto layout = detail::inspectBlock(block);
    if (!layout) return {};
    state_->nonFiniteSamples += layout->nonFiniteSamples;
    if (!updateLevelAndWatchSilence(layout->rms, now)) return {Outcome::silenceFailure, {}};
    state_->append(layout->monoCount, [&](float* out, std::size_t from, std::size_t count) {
        detail::writeMono(*layout, from, count, out);
    });
    return throttleAndPublish(now);
}

AudioAnalyzer::Result AudioAnalyzer::process(const ExtractedAudio& audio, double now) {
    if (audio.samples.empty()) return {};
    if (!updateLevelAndWatchSilence(audio.rms, now)) return {Outcome::silenceFailure, {}};
    state_->append(audio.samples.size(), [&](float* out, std::size_t from, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            const float sample = audio.samples[from + i];
            const bool finite = std::isfinite(sample);
            if (!finite) ++state_->nonFiniteSamples;
            out[i] = finite ? sample : 0.0f;
        }
    });
    return throttleAndPublish(now);
}

AudioAnalyzer::Result AudioAnalyzer::throttleAndPublish(double now) {
    // A fixed 1/30 s schedule rather than 1/30 s since the last publish: buffers of 10 or 20 ms then
    // give 30 frames a second on average instead of 25, and never two in one slot.
    State& s = *state_;
    if (now < s.nextPublishTime) return {};
    const bool resync = s.nextPublishTime == 0 || now - s.nextPublishTime > publishResyncLag;
    s.nextPublishTime = (resync ? now : s.nextPublishTime) + publishInterval;
    return {Outcome::frame, publishFrame(now)};
}

std::vector<double> AudioAnalyzer::spectrum(std::span<const float> samples) {
    std::array<double, bandCount> out;
    if (samples.size() != windowSize) {
        out = state_->previousSpectrum;
    } else {
        multiply(samples.data(), fft_->window.data(), fft_->input, windowSize);
        fft_->bands(out);
    }
    return {out.begin(), out.end()};
}

AudioVisualizationFrame AudioAnalyzer::publishFrame(double now) {
    State& s = *state_;
    s.lastPublishTime = now;

    // Spectrum of the accumulator, oldest sample first; the previous one until it first fills.
    std::array<double, bandCount>& spectrum = s.scratch;
    if (s.filled == windowSize) {
        const std::size_t tail = windowSize - s.writePos;
        multiply(s.ring.data() + s.writePos, fft_->window.data(), fft_->input, tail);
        multiply(s.ring.data(), fft_->window.data() + tail, fft_->input + tail, windowSize - tail);
        fft_->bands(spectrum);
    } else {
        spectrum = s.previousSpectrum;
    }

    // Spectral flux against the previous publish.
    double flux = 0;
    for (std::size_t i = 0; i < bandCount; ++i) flux += std::max(spectrum[i] - s.previousSpectrum[i], 0.0);
    flux /= 96.0;
    s.previousSpectrum = spectrum;

    s.fluxBaseline += (flux - s.fluxBaseline) * 0.045;
    const double rise = std::max(s.smoothedLevel - s.previousPublishedLevel, 0.0);
    s.previousPublishedLevel = s.smoothedLevel;
    const double onset = (flux - 1.28 * s.fluxBaseline) * 12.0 + 2.8 * rise;

    if (onset > 0.28 && now - s.lastBeatTime > 0.22) {
        if (s.lastBeatTime > 0) {
            // Fold the interval into 0.34...0.86 s (about 70...176 BPM) before reading a tempo from it.
            double interval = now - s.lastBeatTime;
            while (interval < 0.34) interval *= 2;
            while (interval > 0.86) interval /= 2;
            const double target = std::clamp((60.0 / interval - 70.0) / 110.0, 0.0, 1.0);
            s.tempoFactor += (target - s.tempoFactor) * 0.24;
        }
        s.lastBeatTime = now;
        s.beatPulse = 1.0;
    } else {
        s.beatPulse *= 0.74;
    }

    const double activityTarget = std::clamp(9.0 * flux + 3.2 * rise, 0.0, 1.0);
    const double activityCoefficient = s.smoothedActivity < activityTarget ? 0.38 : 0.12;
    s.smoothedActivity += (activityTarget - s.smoothedActivity) * activityCoefficient;

    for (std::size_t i = 0; i < bandCount; ++i) {
        const double coefficient = s.smoothedSpectrum[i] < spectrum[i] ? 0.58 : 0.17;
        s.smoothedSpectrum[i] += (spectrum[i] - s.smoothedSpectrum[i]) * coefficient;
    }

    discardNonFiniteState();
    const double motionRate = 0.62 + 1.12 * s.tempoFactor + 0.62 * s.smoothedActivity + 0.28 * s.beatPulse;
    return {s.smoothedLevel, motionRate, s.beatPulse, {s.smoothedSpectrum.begin(), s.smoothedSpectrum.end()}};
}

void AudioAnalyzer::discardNonFiniteState() {
    State& s = *state_;
    const auto finiteOr = [](double& value, double initial) {
        if (!std::isfinite(value)) value = initial;
    };
    finiteOr(s.smoothedLevel, 0);
    finiteOr(s.smoothedActivity, 0);
    finiteOr(s.fluxBaseline, initialFluxBaseline);
    finiteOr(s.beatPulse, 0);
    finiteOr(s.tempoFactor, initialTempoFactor);
    finiteOr(s.previousPublishedLevel, 0);
    for (double& band : s.smoothedSpectrum) finiteOr(band, 0);
    for (double& band : s.previousSpectrum) finiteOr(band, 0);
}

double AudioAnalyzer::smoothedLevel() const { return state_->smoothedLevel; }
double AudioAnalyzer::tempoFactor() const { return state_->tempoFactor; }
double AudioAnalyzer::beatPulse() const { return state_->beatPulse; }
double AudioAnalyzer::lastBeatTime() const { return state_->lastBeatTime; }
double AudioAnalyzer::lastLevelTarget() const { return state_->lastLevelTarget; }
std::size_t AudioAnalyzer::nonFiniteSampleCount() const { return state_->nonFiniteSamples; }

AudioAnalyzer::Snapshot AudioAnalyzer::snapshot() const {
    const State& s = *state_;
    Snapshot snap;
    snap.smoothedLevel = s.smoothedLevel;
    snap.smoothedActivity = s.smoothedActivity;
    snap.smoothedSpectrum = s.smoothedSpectrum;
    snap.previousSpectrum = s.previousSpectrum;
    snap.sampleAccumulator = s.accumulator();
    snap.fluxBaseline = s.fluxBaseline;
    snap.beatPulse = s.beatPulse;
    snap.tempoFactor = s.tempoFactor;
    snap.previousPublishedLevel = s.previousPublishedLevel;
    snap.lastBeatTime = s.lastBeatTime;
    snap.captureStartTime = s.captureStartTime;
    snap.lastAudibleSampleTime = s.lastAudibleSampleTime;
    snap.lastPublishTime = s.lastPublishTime;
    return snap;
}

}  // namespace lorvane
