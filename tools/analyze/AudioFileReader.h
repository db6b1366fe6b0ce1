#pragma once
// Reads an audio file (anything libsndfile decodes: WAV, FLAC, Ogg...) as interleaved 32-bit floats.

#include <cstddef>
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

    // Reads up to `frames` frames into `out` (frames × channels floats); returns the frames read,
    // 0 at the end of the file or on a read error.
    std::size_t read(float* out, std::size_t frames);

private:
    struct Handle;
    AudioFileReader(std::unique_ptr<Handle> handle, int channels, int sampleRate, bool sixteenBit);
    std::unique_ptr<Handle> handle_;
    int channels_;
    int sampleRate_;
    bool sixteenBit_ = false;
    std::unique_ptr<short[]> shorts_;
    std::size_t shortCapacity_ = 0;
};

}  // namespace lorvane::tools
