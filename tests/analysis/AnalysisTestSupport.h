#pragma once
// Signals and feeding helpers shared by the analysis tests.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <span>
#include <vector>

#include "core/analysis/AudioAnalyzer.h"

namespace lorvane::analysistest {

constexpr double rate = 48000;
constexpr double twoPi = 2 * std::numbers::pi;

// Peak amplitude of a sine whose RMS is `dbfs` decibels below full scale.
inline double sineAmplitude(double dbfs) { return std::sqrt(2.0) * std::pow(10.0, dbfs / 20.0); }

inline std::vector<float> sine(double frequency, double amplitude, std::size_t count, double phase = 0) {
    std::vector<float> out(count);
    for (std::size_t n = 0; n < count; ++n) {
        out[n] = static_cast<float>(amplitude * std::sin(twoPi * frequency * static_cast<double>(n) / rate + phase));
    }
    return out;
}

inline std::vector<float> noise(std::size_t count, double amplitude, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    std::vector<float> out(count);
    for (auto& v : out) v = static_cast<float>(amplitude * uniform(random));
    return out;
}

// Quiet background: a sine centred on FFT bin 20 keeps a steady spectrum, so it adds no flux.
inline double backgroundSample(std::size_t n) {
    return 0.001 * std::sin(twoPi * 20.0 * static_cast<double>(n) / 1024.0);
}

// A click every `interval` seconds from `offset`: a burst of noise that decays in about 8 ms,
// over the quiet background.
inline std::vector<float> clickTrain(double seconds, double interval, double offset, std::uint32_t seed = 7) {
    const auto count = static_cast<std::size_t>(seconds * rate);
    std::vector<float> out(count);
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    const auto period = static_cast<std::size_t>(std::llround(interval * rate));
    const auto first = static_cast<std::size_t>(std::llround(offset * rate));
    for (std::size_t n = 0; n < count; ++n) {
        double v = backgroundSample(n);
        if (n >= first) {
            const double since = static_cast<double>((n - first) % period) / rate;
            if (since < 0.06) v += 0.7 * std::exp(-since / 0.008) * uniform(random);
        }
        out[n] = static_cast<float>(v);
    }
    return out;
}

// Something like music: a bass line and chords that change every quarter second, a kick on every
// half second, hi-hats between, and a swelling and fading loudness.
inline std::vector<float> musicLike(double seconds, std::uint32_t seed = 11) {
    const auto count = static_cast<std::size_t>(seconds * rate);
    std::vector<float> out(count);
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    const double roots[] = {110.0, 130.81, 98.0, 146.83, 123.47, 87.31};
    for (std::size_t n = 0; n < count; ++n) {
        const double t = static_cast<double>(n) / rate;
        const auto step = static_cast<std::size_t>(t / 0.25);
        const double root = roots[step % 6];
        const double loud = 0.55 + 0.45 * std::sin(twoPi * 0.23 * t);
        double v = 0.12 * std::sin(twoPi * root * t) + 0.05 * std::sin(twoPi * root * 2.5198 * t) +
                   0.04 * std::sin(twoPi * root * 3.0 * t) + 0.02 * std::sin(twoPi * root * 4.7568 * t);
        const double sinceKick = std::fmod(t, 0.5);
        v += 0.5 * std::exp(-sinceKick / 0.05) * std::sin(twoPi * (50.0 + 80.0 * std::exp(-sinceKick / 0.02)) * sinceKick);
        const double sinceHat = std::fmod(t + 0.25, 0.5);
        v += 0.15 * std::exp(-sinceHat / 0.004) * uniform(random);
        out[n] = static_cast<float>(loud * v);
    }
    return out;
}

// Interleaved stereo with both channels equal.
inline std::vector<float> stereo(std::span<const float> mono) {
    std::vector<float> out(mono.size() * 2);
    for (std::size_t i = 0; i < mono.size(); ++i) out[2 * i] = out[2 * i + 1] = mono[i];
    return out;
}

inline SampleBlock interleavedBlock(std::span<const float> samples, int channels) {
    SampleBlock block;
    block.format = SampleFormat::float32;
    block.channelsPerFrame = channels;
    block.interleaved = true;
    block.buffers = {std::as_bytes(samples)};
    return block;
}

inline ExtractedAudio extracted(std::vector<float> samples) {
    double sum = 0;
    for (float v : samples) sum += static_cast<double>(v) * v;
    ExtractedAudio audio;
    audio.rms = samples.empty() ? 0 : std::sqrt(sum / static_cast<double>(samples.size()));
    audio.samples = std::move(samples);
    return audio;
}

struct Publish {
    double time = 0;
    AudioVisualizationFrame frame;
    bool beat = false;
    double tempoFactor = 0;
};

struct FeedResult {
    std::vector<Publish> publishes;
    bool silenceFailure = false;
    std::vector<double> beatTimes() const {
        std::vector<double> times;
        for (const auto& p : publishes)
            if (p.beat) times.push_back(p.time);
        return times;
    }
};

// Feeds a mono signal as interleaved stereo blocks of `blockFrames`, each read at the time its
// last frame arrives (start + frames so far / 48000).
inline FeedResult feed(AudioAnalyzer& analyzer, std::span<const float> mono, std::size_t blockFrames,
                       double start = 1.0) {
    FeedResult result;
    analyzer.beginRun(start);
    const std::vector<float> both = stereo(mono);
    for (std::size_t first = 0; first < mono.size(); first += blockFrames) {
        const std::size_t frames = std::min(blockFrames, mono.size() - first);
        const double now = start + static_cast<double>(first + frames) / rate;
        const auto block = interleavedBlock(std::span(both).subspan(first * 2, frames * 2), 2);
        auto outcome = analyzer.process(block, now);
        if (outcome.outcome == AudioAnalyzer::Outcome::silenceFailure) {
            result.silenceFailure = true;
            break;
        }
        if (outcome.outcome == AudioAnalyzer::Outcome::frame) {
            result.publishes.push_back({now, std::move(outcome.frame), analyzer.lastBeatTime() == now,
                                        analyzer.tempoFactor()});
        }
    }
    return result;
}

}  // namespace lorvane::analysistest
