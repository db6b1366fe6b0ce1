#include "RecordingPlayer.h"

#include <span>

namespace lorvane::tools {

namespace {
constexpr int blockFrames = 480;  // 10 ms, like the capture stream's buffers
// The analysis clock starts above 0: a last beat time of 0 means "no beat yet".
constexpr double clockStart = 1.0;
}  // namespace

std::unique_ptr<RecordingPlayer> RecordingPlayer::open(const std::string& path, Callbacks callbacks,
                                                       std::string& error, std::string* notice) {
    auto opened = RecordingReader::open(path);
    if (!opened.reader) {
        error = opened.error;
        return nullptr;
    }
    const double duration = opened.reader->duration();
    if (!(duration > 0)) {
        error = "'" + path + "' holds no audio";
        return nullptr;
    }
    if (notice != nullptr) *notice = opened.notice;
    return std::unique_ptr<RecordingPlayer>(
        new RecordingPlayer(std::move(opened.reader), duration, std::move(callbacks)));
}

RecordingPlayer::RecordingPlayer(std::unique_ptr<RecordingReader> reader, double duration, Callbacks callbacks)
    : reader_(std::move(reader)),
      duration_(duration),
      callbacks_(std::move(callbacks)),
      block_(static_cast<std::size_t>(blockFrames * reader_->channels())) {
    analyzer_.beginRun(clockStart);
}

RecordingPlayer::~RecordingPlayer() = default;

double RecordingPlayer::position() const { return static_cast<double>(framesRead_) / AudioAnalyzer::sampleRate; }

bool RecordingPlayer::advanceTo(double seconds) {
    while (!ended_ && position() + blockFrames / AudioAnalyzer::sampleRate <= seconds) {
        const auto got = static_cast<long long>(reader_->read(block_.data(), blockFrames));
        if (got <= 0) {
            ended_ = true;
            break;
        }
        framesRead_ += got;
        SampleBlock block;
        block.format = SampleFormat::float32;
        block.channelsPerFrame = reader_->channels();
        block.interleaved = true;
        block.buffers = {std::as_bytes(std::span<const float>(block_.data(), static_cast<std::size_t>(got * reader_->channels())))};
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
    if (!reader_->rewind()) {
        ended_ = true;
        return;
    }
    framesRead_ = 0;
    ended_ = false;
    analyzer_.reset();
    analyzer_.beginRun(clockStart);
}

}  // namespace lorvane::tools
