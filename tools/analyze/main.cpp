// lorvane-analyze: runs an audio file through the same analysis the program applies to captured
// system audio and prints every published frame as one JSON object per line.

#include <cerrno>
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "FrameJsonWriter.h"
#include "RecordingReader.h"
#include "core/analysis/AudioAnalyzer.h"

namespace {

using namespace lorvane;
using tools::RecordingReader;
using tools::FrameJsonWriter;

constexpr const char* programName = "lorvane-analyze";
constexpr std::size_t defaultBlockFrames = 480;  // 10 ms, like the capture stream's buffers
// One second: a larger block would only hold more memory, never publish more often.
constexpr std::size_t maximumBlockFrames = 48000;
constexpr std::size_t chunkFrames = 1 << 15;  // about 0.7 s
// The clock starts above 0 because a last beat time of 0 means "no beat yet".
constexpr double clockStart = 1.0;

constexpr const char* usage =
    "Usage: lorvane-analyze [--block FRAMES] [--keep-going] FILE\n"
    "\n"
    "Feeds FILE (WAV, FLAC, Ogg or anything else libsndfile reads) to the audio analysis in blocks\n"
    "of FRAMES frames at 48000 Hz (default 480, 10 ms; at most 48000) on a simulated clock that\n"
    "starts at 1.0 s and advances by each block's duration. Other sample rates are resampled to\n"
    "48000 Hz, more than two channels are mixed down to one, and samples that are NaN or infinite\n"
    "are read as silence (their count is reported on standard error).\n"
    "Prints one JSON object per line for every published frame:\n"
    "  {\"t\":SECONDS,\"level\":L,\"motionRate\":M,\"beatPulse\":P,\"spectrum\":[96 band levels]}\n"
    "and, when more than 4 s pass without an audible block, the failure that ends the run:\n"
    "  {\"t\":SECONDS,\"failure\":\"silentOrProtectedAudio\"}\n"
    "The run stops there unless --keep-going starts a new run at once, as a retry would.\n"
    "Numbers are printed with up to six decimals.\n"
    "\n"
    "Exit status: 0 when the file was analysed, 1 when it could not be read, 2 on a usage error.\n";

struct Options {
    std::size_t blockFrames = defaultBlockFrames;
    bool keepGoing = false;
    std::string path;
};

int fail(const std::string& message, int status) {
    std::fprintf(stderr, "%s: %s\n", programName, message.c_str());
    return status;
}

std::optional<std::size_t> parseFrames(std::string_view text) {
    std::size_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    if (value < 1 || value > maximumBlockFrames) return std::nullopt;
    return value;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    bool havePath = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(usage, stdout);
            return 0;
        }
        if (arg == "--keep-going") {
            options.keepGoing = true;
        } else if (arg == "--block") {
            if (i + 1 >= argc) return fail("--block needs a number of frames (try --help)", 2);
            const auto frames = parseFrames(argv[++i]);
            if (!frames) return fail("--block takes a whole number of frames from 1 to 48000 (one second)", 2);
            options.blockFrames = *frames;
        } else if (arg.size() > 1 && arg.front() == '-') {
            return fail("unknown option '" + std::string(arg) + "' (try --help)", 2);
        } else if (havePath) {
            return fail("only one audio file can be analysed at a time (try --help)", 2);
        } else {
            options.path = arg;
            havePath = true;
        }
    }
    if (!havePath) return fail("no audio file given (try --help)", 2);

    auto opened = RecordingReader::open(options.path);
    if (!opened.reader) return fail(opened.error, 1);
    // Said before anything large is allocated.
    if (!opened.notice.empty()) std::fprintf(stderr, "%s: %s\n", programName, opened.notice.c_str());
    RecordingReader& reader = *opened.reader;

    static char outputBuffer[1 << 20];
    std::setvbuf(stdout, outputBuffer, _IOFBF, sizeof outputBuffer);
    FrameJsonWriter writer(stdout);

    AudioAnalyzer analyzer;
    analyzer.beginRun(clockStart);
    const auto channels = static_cast<std::size_t>(reader.channels());
    // Read many blocks at a time: a read per 10 ms block would spend more time in the kernel than
    // in the analysis. The chunk is a whole number of blocks, so no block straddles two chunks.
    const std::size_t blocksPerChunk = std::max<std::size_t>(1, chunkFrames / options.blockFrames);
    std::vector<float> chunk(blocksPerChunk * options.blockFrames * channels);
    std::uint64_t framesRead = 0;
    SampleBlock block;
    block.format = SampleFormat::float32;
    block.channelsPerFrame = reader.channels();
    block.interleaved = true;

    bool running = true;
    while (running) {
        const std::size_t chunkRead = reader.read(chunk.data(), blocksPerChunk * options.blockFrames);
        if (chunkRead == 0) break;
        for (std::size_t first = 0; first < chunkRead && running; first += options.blockFrames) {
            const std::size_t frames = std::min(options.blockFrames, chunkRead - first);
            framesRead += frames;
            // From the frame count, not by repeated addition, so the clock does not drift over hours.
            const double now = clockStart + static_cast<double>(framesRead) / AudioAnalyzer::sampleRate;
            block.buffers = {std::as_bytes(std::span<const float>(chunk.data() + first * channels, frames * channels))};
            const auto result = analyzer.process(block, now);
            if (result.outcome == AudioAnalyzer::Outcome::frame) {
                writer.writeFrame(now, result.frame);
            } else if (result.outcome == AudioAnalyzer::Outcome::silenceFailure) {
                writer.writeFailure(now, AudioCaptureFailure::silentOrProtectedAudio);
                if (!options.keepGoing) running = false;
                analyzer.reset();
                analyzer.beginRun(now);
            }
        }
        if (chunkRead < blocksPerChunk * options.blockFrames) break;  // the end of the file
    }
    if (framesRead == 0) return fail("'" + options.path + "' holds no audio frames", 1);
    if (!writer.finish()) return fail("cannot write the frames: " + std::string(std::strerror(errno)), 1);
    if (reader.nonFiniteSamples() > 0) {
        std::fprintf(stderr, "%s: %llu samples of '%s' were not finite numbers and were read as silence\n",
                     programName, static_cast<unsigned long long>(reader.nonFiniteSamples()), options.path.c_str());
    }
    return 0;
}
