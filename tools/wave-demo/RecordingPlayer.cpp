#include "RecordingPlayer.h"

#include <span>

namespace lorvane::tools {

namespace {
constexpr int blockFrames = 480;  // 10 ms, like the capture stream's buffers
// The analysis clock starts above 0: a last beat time of 0 means "no beat yet".
constexpr double clockStart = 1.0;
}  // namespace

std::unique_ptr<RecordingPlayer> RecordingPlayer::open(const std::string& path, Callbacks callbacks,
                                                       std::string& error) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) {
        error = "cannot read '" + path + "' as audio: " + sf_strerror(nullptr);
        return nullptr;
    }
    if (info.channels < 1 || info.frames <= 0) {
        sf_close(file);
        error = "'" + path + "' holds no audio";
        return nullptr;
    }
    if (info.samplerate != static_cast<int>(AudioAnalyzer::sampleRate)) {
        sf_close(file);
        error = "'" + path + "' is sampled at " + std::to_string(info.samplerate) +
                " Hz; the analysis needs 48000 Hz (resample it first, for example with 'sox IN -r 48000 OUT')";
        return nullptr;
    }
    sf_command(file, SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);
    const double duration = static_cast<double>(info.frames) / info.samplerate;
    return std::unique_ptr<RecordingPlayer>(new RecordingPlayer(file, info.channels, duration, std::move(callbacks)));
}

RecordingPlayer::RecordingPlayer(SNDFILE* file, int channels, double duration, Callbacks callbacks)
    : file_(file),
      channels_(channels),
      duration_(duration),
      callbacks_(std::move(callbacks)),
      block_(static_cast<std::size_t>(blockFrames * channels)) {
    analyzer_.beginRun(clockStart);
}

RecordingPlayer::~RecordingPlayer() { sf_close(file_); }

double RecordingPlayer::position() const { return static_cast<double>(framesRead_) / AudioAnalyzer::sampleRate; }

bool RecordingPlayer::advanceTo(double seconds) {
    while (!ended_ && position() + blockFrames / AudioAnalyzer::sampleRate <= seconds) {
        const sf_count_t got = sf_readf_float(file_, block_.data(), blockFrames);
        if (got <= 0) {
            ended_ = true;
            break;
        }
        framesRead_ += got;
        SampleBlock block;
        block.format = SampleFormat::float32;
        block.channelsPerFrame = channels_;
        block.interleaved = true;
        block.buffers = {std::as_bytes(std::span<const float>(block_.data(), static_cast<std::size_t>(got * channels_)))};
        const double now = clockStart + position();
        const auto result = analyzer_.process(block, now);
        if (result.outcome == AudioAnalyzer::Outcome::frame) {
            if (callbacks_.frameDidChange) callbacks_.frameDidChange(result.frame);
        } else if (result.outcome == AudioAnalyzer::Outcome::silenceFailure) {
            if (callbacks_.captureDidFail) callbacks_.captureDidFail(AudioCaptureFailure::silentOrProtectedAudio);
            // As the program would after its retry: a fresh run on the same stream.
            analyzer_.reset();
            analyzer_.beginRun(now);
        }
        if (got < blockFrames) ended_ = true;
    }
    return !ended_;
}

void RecordingPlayer::rewind() {
    sf_seek(file_, 0, SEEK_SET);
    framesRead_ = 0;
    ended_ = false;
    analyzer_.reset();
    analyzer_.beginRun(clockStart);
}

}  // namespace lorvane::tools
