// Any bytes as a captured block: a header picks the channel count, the layout and how the bytes are
// split into buffers; the rest are the samples. Extraction and the whole analysis must take it without
// a crash, and nothing they produce may be NaN or infinite.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "core/analysis/AudioAnalyzer.h"
#include "core/analysis/SampleBlock.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

void requireFinite(const lorvane::AudioVisualizationFrame& frame) {
    require(std::isfinite(frame.level) && std::isfinite(frame.motionRate) && std::isfinite(frame.beatPulse));
    for (double band : frame.spectrum) require(std::isfinite(band));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3) return 0;
    using namespace lorvane;
    static AudioAnalyzer analyzer;  // one for the whole run, so state carries over as in a capture run
    static double now = 1.0;

    SampleBlock block;
    block.format = static_cast<SampleFormat>(data[0] % 3);
    block.channelsPerFrame = static_cast<int>(data[1] % 9) - 1;  // -1...7
    block.interleaved = (data[2] & 1) != 0;
    const std::size_t buffers = 1 + (data[2] >> 1) % 4;
    const auto* bytes = reinterpret_cast<const std::byte*>(data + 3);
    const std::size_t length = size - 3;
    // Buffers of unequal, unaligned lengths, and sometimes an absent one.
    std::size_t at = 0;
    for (std::size_t i = 0; i < buffers; ++i) {
        const std::size_t take = i + 1 == buffers ? length - at : (length - at) / 2 + i;
        const std::size_t bounded = std::min(take, length - at);
        if (static_cast<std::size_t>(data[2] >> 5) == i + 1) {
            block.buffers.emplace_back();
        } else {
            block.buffers.emplace_back(bytes + at, bounded);
        }
        at += bounded;
    }

    if (const auto audio = audioData(block)) {
        require(std::isfinite(audio->rms));
        for (float sample : audio->samples) require(std::isfinite(sample));
    }
    now += 0.02;
    const auto result = analyzer.process(block, now);
    if (result.outcome == AudioAnalyzer::Outcome::frame) requireFinite(result.frame);
    if (result.outcome == AudioAnalyzer::Outcome::silenceFailure) {
        analyzer.reset();
        analyzer.beginRun(now);
    }
    // The publish step on whatever the accumulator now holds.
    requireFinite(analyzer.publishFrame(now + 0.034));
    return 0;
}
