#pragma once
// The analysis half of the system-audio level monitor: level and silence on every buffer, and on a
// 1/30 s schedule the spectrum, beat, tempo and smoothing step that makes a frame.
// Pure arithmetic over float blocks and a clock value; it posts nothing and knows no threads.
// Not thread-safe: the owner calls every member from one thread at a time (the sample thread, or
// the main thread while no buffer is being processed).

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "core/AudioVisualizationFrame.h"
#include "core/StringEnum.h"
#include "core/analysis/SampleBlock.h"

namespace lorvane {

class AudioAnalyzer {
public:
    static constexpr int fftSize = 1024;
    static constexpr unsigned fftLog2 = 10;
    static constexpr int spectrumBandCount = 96;
    // The band layout assumes the capture rate; it is not read from the stream.
    static constexpr double sampleRate = 48000;

    enum class Outcome { nothing, frame, silenceFailure };
    struct Result {
        Outcome outcome = Outcome::nothing;
        AudioVisualizationFrame frame;  // set when outcome is frame
    };

    // Plans the FFT on the calling thread; a failed plan stops the program with
    // "Unable to create the audio FFT setup".
    AudioAnalyzer();
    ~AudioAnalyzer();
    AudioAnalyzer(const AudioAnalyzer&) = delete;
    AudioAnalyzer& operator=(const AudioAnalyzer&) = delete;

    // A capture run starts: the silence watch counts from `now`.
    void beginRun(double now);
    // An explicit stop: the analysis state returns to its initial values, except the learnt tempo.
    void reset();
    // The whole per-buffer step for one buffer read at clock time `now`: level, silence watch,
    // accumulation and, at the first buffer of each 1/30 s slot of the publish schedule, a frame.
    Result process(const SampleBlock& block, double now);
    Result process(const ExtractedAudio& audio, double now);

    // 96 band levels from exactly 1024 samples; any other count gives the previous spectrum.
    std::vector<double> spectrum(std::span<const float> samples);

    // The publish step (spectrum, flux, beat, tempo, smoothing, frame) on the samples accumulated
    // so far, bypassing the 1/30 s throttle that process() applies before calling it; `now` becomes
    // the last publish time. For benchmarks and tests.
    AudioVisualizationFrame publishFrame(double now);

    // Read access for tests and tools.
    double smoothedLevel() const;
    double tempoFactor() const;
    double beatPulse() const;
    double lastBeatTime() const;

    // The level target of the last buffer that reached the level step.
    double lastLevelTarget() const;

    // NaN and infinite samples read as silence since construction.
    std::size_t nonFiniteSampleCount() const;

    // Everything the analysis remembers between buffers.
    struct Snapshot {
        double smoothedLevel = 0;
        double smoothedActivity = 0;
        std::array<double, spectrumBandCount> smoothedSpectrum{};
        std::array<double, spectrumBandCount> previousSpectrum{};
        std::vector<float> sampleAccumulator;  // oldest first, at most fftSize
        double fluxBaseline = 0;
        double beatPulse = 0;
        double tempoFactor = 0;
        double previousPublishedLevel = 0;
        double lastBeatTime = 0;
        double captureStartTime = 0;
        double lastAudibleSampleTime = 0;
        double lastPublishTime = 0;
    };
    Snapshot snapshot() const;

    // Level target of a buffer's RMS: -55 dBFS maps to 0, -10 dBFS to 1, curved by 0.72.
    static double levelTarget(double rms);

    // FFT bins [lo, hi) averaged into one band.
    struct BandBins {
        int lo = 0;
        int hi = 0;
    };
    static BandBins bandBins(int band);

private:
    struct State;
    struct Fft;
    std::unique_ptr<Fft> fft_;
    std::unique_ptr<State> state_;

    // Level target, smoothing and silence watch; false when the silence watch ends the run.
    bool updateLevelAndWatchSilence(double rms, double now);
    // The publish schedule and, when a slot is due, the publish step.
    Result throttleAndPublish(double now);
    // Puts any state value that is no longer finite back to its initial value, so one bad value
    // cannot stay in the smoothing for the rest of the run.
    void discardNonFiniteState();
};

template <>
struct EnumTraits<AudioAnalyzer::Outcome> {
    static constexpr std::array<std::string_view, 3> rawValues{"nothing", "frame", "silenceFailure"};
};

template <>
struct EnumTraits<SampleFormat> {
    static constexpr std::array<std::string_view, 3> rawValues{"float32", "int16", "int32"};
};

}  // namespace lorvane
