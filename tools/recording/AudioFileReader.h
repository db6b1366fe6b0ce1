#pragma once
// Reads an audio file (anything libsndfile decodes: WAV, FLAC, Ogg...) as interleaved 32-bit floats.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace lorvane::tools {

class AudioFileReader {
public:
    struct Opened {
        std::unique_ptr<AudioFileReader> reader;  // null on failure
        std::string error;                        // one line, set on failure
    };
    static Opened open(const std::string& path);

    ~AudioFileReader();
    AudioFileReader(const AudioFileReader&) = delete;
    AudioFileReader& operator=(const AudioFileReader&) = delete;

    int channels() const { return channels_; }
    int sampleRate() const { return sampleRate_; }
    // Frames in the file as its header says; 0 or less when unknown.
    std::int64_t frames() const { return frames_; }

    // Reads up to `frames` frames into `out` (frames × channels floats); returns the frames read,
    // 0 at the end of the file or on a read error.
    std::size_t read(float* out, std::size_t frames);
    // Back to the first frame; false when the file cannot seek.
    bool rewind();

private:
    struct Handle;
    AudioFileReader(std::unique_ptr<Handle> handle, int channels, int sampleRate, std::int64_t frames, bool sixteenBit);
    std::unique_ptr<Handle> handle_;
    int channels_;
    int sampleRate_;
    std::int64_t frames_;
    bool sixteenBit_ = false;
    std::unique_ptr<short[]> shorts_;
    std::size_t shortCapacity_ = 0;
};

}  // namespace lorvane::tools
