#pragma once
// One captured audio buffer, described the way the analysis needs it: sample format, channels,
// interleaving and the raw buffers (one interleaved buffer, or one buffer per channel).

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace lorvane {

enum class SampleFormat { float32, int16, int32 };

struct SampleBlock {
    SampleFormat format = SampleFormat::float32;
    int channelsPerFrame = 2;
    bool interleaved = true;
    std::vector<std::span<const std::byte>> buffers;
};

struct ExtractedAudio {
    double rms = 0;              // over all channels of all buffers, computed in single precision
    std::vector<float> samples;  // mono
    // NaN and infinite samples met in the block; they were read as silence (0).
    std::size_t nonFiniteSamples = 0;
};

// Nothing for unsupported formats (only 32-bit float is accepted) and for empty blocks. NaN and
// infinite samples count as silence, so the RMS and the samples are always finite.
std::optional<ExtractedAudio> audioData(const SampleBlock& block);

}  // namespace lorvane
