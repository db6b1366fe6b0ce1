#pragma once
// A recording as the analysis wants it: 48000 Hz, one or two channels, finite samples. Other rates
// are resampled (libsoxr), more than two channels are mixed down to one, and NaN or infinite samples
// are read as silence and counted. Memory does not depend on the file's length or channel count.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "AudioFileReader.h"

struct soxr;

namespace lorvane::tools {

class RecordingReader {
public:
    static constexpr int outputRate = 48000;

    struct Opened {
        std::unique_ptr<RecordingReader> reader;  // null on failure
        std::string error;                        // one line, set on failure
        std::string notice;                       // one line when the audio is changed on the way (mixdown)
    };
    static Opened open(const std::string& path);

    ~RecordingReader();
    RecordingReader(const RecordingReader&) = delete;
    RecordingReader& operator=(const RecordingReader&) = delete;

    int channels() const { return channels_; }  // what read() gives: 1 or 2
    int fileChannels() const { return file_->channels(); }
    int fileSampleRate() const { return file_->sampleRate(); }
    // Seconds of audio, from the file's header (0 when it does not say).
    double duration() const;
    // Samples that were NaN or infinite and were read as 0, so far.
    std::uint64_t nonFiniteSamples() const { return nonFinite_; }

    // Reads up to `frames` frames at 48000 Hz into `out` (frames × channels() floats); fewer only
    // at the end of the recording or on a read error.
    std::size_t read(float* out, std::size_t frames);
    // Back to the start; false when the file cannot seek.
    bool rewind();

private:
    RecordingReader(std::unique_ptr<AudioFileReader> file, int channels, std::int64_t fileFrames);
    // Up to `frames` frames at the file's rate, mixed and cleaned, into `out`.
    std::size_t readSource(float* out, std::size_t frames);
    std::size_t readResampled(float* out, std::size_t frames);
    void clean(float* samples, std::size_t count);

    std::unique_ptr<AudioFileReader> file_;
    int channels_;
    std::int64_t fileFrames_;
    std::uint64_t nonFinite_ = 0;
    std::vector<float> wide_;  // file frames with all their channels, before the mixdown
    soxr* resampler_ = nullptr;
    std::vector<float> input_;  // source frames waiting for the resampler
    std::size_t inputStart_ = 0;
    std::size_t inputEnd_ = 0;
    bool sourceEnded_ = false;
    bool flushed_ = false;
};

}  // namespace lorvane::tools
