#pragma once
// Shared by audioData() and the analyzer's own per-buffer path: validate a block, total its energy
// and read its mono samples without building an intermediate array.

#include <cstddef>
#include <optional>

#include "core/analysis/SampleBlock.h"

namespace lorvane::detail {

struct BlockLayout {
    float rms = 0;                     // over all channels of all buffers, single precision
    const std::byte* first = nullptr;  // the first buffer's data
    std::size_t firstFloats = 0;       // floats in the first buffer
    std::size_t channels = 1;          // channels per frame, at least 1
    bool monoOrPlanar = true;          // samples are the first buffer as is
    std::size_t monoCount = 0;         // mono samples the block yields, never 0
    // NaN or infinite samples in the block (read as 0). `scrub` is set whenever the fast sums could
    // not be trusted, so the mono samples are then made one by one.
    std::size_t nonFiniteSamples = 0;
    bool scrub = false;
};

// Nothing when the block is not float PCM, holds no usable buffer or yields no samples.
std::optional<BlockLayout> inspectBlock(const SampleBlock& block);

// Writes mono samples [from, from + count) of the block to `out`; from + count <= monoCount. The
// written samples are always finite.
void writeMono(const BlockLayout& layout, std::size_t from, std::size_t count, float* out);

// Single-precision sum of squares of `count` floats stored at `data` (any alignment).
float sumOfSquares(const std::byte* data, std::size_t count);

}  // namespace lorvane::detail
