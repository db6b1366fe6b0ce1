// Any bytes as a recording file: the reader the tools use (libsndfile, then mixdown and resampling
// to 48000 Hz) and the analysis of what it gives must not crash, whatever the header claims; the
// samples it gives and the analysis must stay finite.

#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "RecordingReader.h"
#include "core/analysis/AudioAnalyzer.h"
#include "core/analysis/SampleBlock.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

const std::string& scratchPath() {
    static const std::string path = "/tmp/lorvane-fuzz-recording-" + std::to_string(getpid());
    // libFuzzer ends a run of a fixed count with exit(); the scratch file goes with it. Registered
    // after `path` exists, so it runs before `path` is destroyed.
    static const bool removedAtExit = std::atexit([] { std::remove(path.c_str()); }) == 0;
    (void)removedAtExit;
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace lorvane;
    // The reader's public face takes a path: the input goes through a scratch file.
    std::FILE* file = std::fopen(scratchPath().c_str(), "wb");
    if (!file) return 0;
    if (size > 0) std::fwrite(data, 1, size, file);
    std::fclose(file);

    auto opened = tools::RecordingReader::open(scratchPath());
    if (!opened.reader) {
        require(!opened.error.empty());
        return 0;
    }
    tools::RecordingReader& reader = *opened.reader;
    const int channels = reader.channels();
    require(channels == 1 || channels == 2);
    static AudioAnalyzer analyzer;
    analyzer.reset();
    analyzer.beginRun(1.0);
    constexpr std::size_t frames = 960;
    std::vector<float> samples(frames * static_cast<std::size_t>(channels));
    double now = 1.0;
    // A bounded number of blocks keeps one input quick, whatever length the header claims.
    for (int block = 0; block < 64; ++block) {
        const std::size_t got = reader.read(samples.data(), frames);
        if (got == 0) break;
        require(got <= frames);
        for (std::size_t i = 0; i < got * static_cast<std::size_t>(channels); ++i) require(std::isfinite(samples[i]));
        SampleBlock sampleBlock;
        sampleBlock.channelsPerFrame = channels;
        sampleBlock.buffers.push_back(
            std::as_bytes(std::span(samples.data(), got * static_cast<std::size_t>(channels))));
        now += 0.02;
        const auto result = analyzer.process(sampleBlock, now);
        if (result.outcome == AudioAnalyzer::Outcome::frame) {
            require(std::isfinite(result.frame.level) && std::isfinite(result.frame.motionRate));
            for (double band : result.frame.spectrum) require(std::isfinite(band));
        }
        if (result.outcome == AudioAnalyzer::Outcome::silenceFailure) break;
    }
    return 0;
}
