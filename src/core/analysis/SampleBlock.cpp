#include "core/analysis/SampleBlock.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "core/analysis/SampleExtraction.h"

namespace lorvane {
namespace detail {

namespace {

constexpr std::size_t floatBytes = sizeof(float);

inline float loadFloat(const std::byte* data, std::size_t index) {
    float value;
    std::memcpy(&value, data + index * floatBytes, floatBytes);  // buffers need not be float-aligned
    return value;
}

// A non-finite sample is silence to the analysis.
inline float finiteOrZero(float value) { return std::isfinite(value) ? value : 0.0f; }

// The careful pass for a block whose fast sum came out non-finite: NaN and infinite samples count
// as 0, and the squares are summed in double so huge finite samples cannot overflow.
double finiteSumOfSquares(const std::byte* data, std::size_t count, std::size_t& nonFinite) {
    double total = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const float v = loadFloat(data, i);
        if (!std::isfinite(v)) {
            ++nonFinite;
            continue;
        }
        total += static_cast<double>(v) * v;
    }
    return total;
}

}  // namespace

float sumOfSquares(const std::byte* data, std::size_t count) {
    // Eight partial sums let the compiler keep the loop in vector registers; a single running sum
    // would serialise every addition.
    using Lanes = float __attribute__((vector_size(32)));
    constexpr std::size_t laneCount = 8;
    Lanes partial{};
    std::size_t i = 0;
    for (; i + laneCount <= count; i += laneCount) {
        Lanes v;
        std::memcpy(&v, data + i * floatBytes, sizeof v);
        partial += v * v;
    }
    float total = ((partial[0] + partial[1]) + (partial[2] + partial[3])) +
                  ((partial[4] + partial[5]) + (partial[6] + partial[7]));
    for (; i < count; ++i) {
        const float v = loadFloat(data, i);
        total += v * v;
    }
    return total;
}

std::optional<BlockLayout> inspectBlock(const SampleBlock& block) {
    if (block.format != SampleFormat::float32 || block.buffers.empty()) return std::nullopt;

    BlockLayout layout;
    layout.channels = block.channelsPerFrame < 2 ? 1 : static_cast<std::size_t>(block.channelsPerFrame);
    layout.monoOrPlanar = layout.channels < 2 || !block.interleaved;

    float total = 0;
    std::size_t count = 0;
    for (std::size_t index = 0; index < block.buffers.size(); ++index) {
        const auto& buffer = block.buffers[index];
        if (buffer.data() == nullptr || buffer.size() < floatBytes) continue;
        const std::size_t n = buffer.size() / floatBytes;
        total += sumOfSquares(buffer.data(), n);
        count += n;
    }
    if (!std::isfinite(total)) {
        // NaN, an infinity or samples so large that their squares overflow: take the careful pass.
        layout.scrub = true;
        double careful = 0;
        for (const auto& buffer : block.buffers) {
            if (buffer.data() == nullptr || buffer.size() < floatBytes) continue;
            careful += finiteSumOfSquares(buffer.data(), buffer.size() / floatBytes, layout.nonFiniteSamples);
        }
        total = static_cast<float>(std::min(careful, static_cast<double>(std::numeric_limits<float>::max())));
    }
    for (std::size_t index = 0; index < block.buffers.size(); ++index) {
        const auto& buffer = block.buffers[index];
        if (buffer.data() == nullptr || buffer.size() < floatBytes) continue;
        const std::size_t n = buffer.size() / floatBytes;
        if (index == 0) {
            layout.first = buffer.data();
            layout.firstFloats = n;
        }
    }
    if (layout.first != nullptr) {
        layout.monoCount = layout.monoOrPlanar ? layout.firstFloats : layout.firstFloats / layout.channels;
    }
    if (count < 1 || layout.monoCount == 0) return std::nullopt;
    layout.rms = std::sqrt(total / static_cast<float>(count));
    return layout;
}

namespace {

// Without the scrub flag every sample is finite and below 2^64 in size, so no sum here can overflow.
void writeMonoFast(const BlockLayout& layout, std::size_t from, std::size_t count, float* out) {
    const std::byte* data = layout.first;
    if (layout.monoOrPlanar) {
        std::memcpy(out, data + from * floatBytes, count * floatBytes);
        return;
    }
    const std::size_t channels = layout.channels;
    if (channels == 2) {
        // Halving is exact, so this equals the sum divided by 2. Four frames at a time: split
        // eight values into left and right lanes, add, halve.
        using Lanes = float __attribute__((vector_size(16)));
        std::size_t i = 0;
        for (; i + 4 <= count; i += 4) {
            Lanes a;
            Lanes b;
            std::memcpy(&a, data + (from + i) * 2 * floatBytes, sizeof a);
            std::memcpy(&b, data + ((from + i) * 2 + 4) * floatBytes, sizeof b);
            const Lanes left = __builtin_shufflevector(a, b, 0, 2, 4, 6);
            const Lanes right = __builtin_shufflevector(a, b, 1, 3, 5, 7);
            const Lanes mono = (left + right) * 0.5f;
            std::memcpy(out + i, &mono, sizeof mono);
        }
        for (; i < count; ++i) {
            const std::size_t at = (from + i) * 2;
            out[i] = (loadFloat(data, at) + loadFloat(data, at + 1)) * 0.5f;
        }
        return;
    }
    const float divisor = static_cast<float>(channels);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = (from + i) * channels;
        float sum = 0;
        for (std::size_t c = 0; c < channels; ++c) sum += loadFloat(data, at + c);
        out[i] = sum / divisor;
    }
}

// writeMono() for a block that held non-finite or huge samples: each sample on its own.
void writeMonoScrubbed(const BlockLayout& layout, std::size_t from, std::size_t count, float* out) {
    const std::byte* data = layout.first;
    if (layout.monoOrPlanar) {
        for (std::size_t i = 0; i < count; ++i) out[i] = finiteOrZero(loadFloat(data, from + i));
        return;
    }
    const std::size_t channels = layout.channels;
    const double divisor = static_cast<double>(channels);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = (from + i) * channels;
        double sum = 0;
        for (std::size_t c = 0; c < channels; ++c) sum += finiteOrZero(loadFloat(data, at + c));
        out[i] = finiteOrZero(static_cast<float>(sum / divisor));
    }
}

}  // namespace

void writeMono(const BlockLayout& layout, std::size_t from, std::size_t count, float* out) {
    if (layout.scrub) {
        writeMonoScrubbed(layout, from, count, out);
        return;
    }
    writeMonoFast(layout, from, count, out);
}

}  // namespace detail

std::optional<ExtractedAudio> audioData(const SampleBlock& block) {
    const auto layout = detail::inspectBlock(block);
    if (!layout) return std::nullopt;
    ExtractedAudio audio;
    audio.rms = layout->rms;
    audio.nonFiniteSamples = layout->nonFiniteSamples;
    audio.samples.resize(layout->monoCount);
    detail::writeMono(*layout, 0, layout->monoCount, audio.samples.data());
    return audio;
}

}  // namespace lorvane
