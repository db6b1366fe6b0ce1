#pragma once
// The analysis half of the system-audio level monitor: level and silence on every buffer, and at
// most 30 times a second the spectrum, beat, tempo and smoothing step that makes a frame.
// Pure arithmetic over float blocks and a clock value; it posts nothing and knows no threads.

#include <array>
#include <memory>
#include <span>
#include <vector>

#include "core/AudioVisualizationFrame.h"
#include "core/analysis/SampleBlock.h"

namespace lorvane {

class AudioAnalyzer {
public:
    static constexpr int fftSize = 1024;
    static constexpr unsigned fftLog2 = 10;
    static constexpr int spectrumBandCount = 96;

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
    // Steps 2-16 for one buffer read at clock time `now`.
    Result process(const SampleBlock& block, double now);
    Result process(const ExtractedAudio& audio, double now);

    // 96 band levels from exactly 1024 samples; any other count gives the previous spectrum.
    std::vector<double> spectrum(std::span<const float> samples);

    // Read access for tests and tools.
    double smoothedLevel() const;
    double tempoFactor() const;
    double beatPulse() const;
    double lastBeatTime() const;

private:
    struct State;
    struct Fft;
    std::unique_ptr<Fft> fft_;
    std::unique_ptr<State> state_;
};

}  // namespace lorvane
