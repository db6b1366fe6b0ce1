#include "RecordingReader.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>

namespace lorvane::tools {

namespace {

// Floats read from the file at a time, whatever its channel count: keeps memory flat for 1,024 channels.
constexpr std::size_t sourceChunkSamples = 1 << 14;
// Rates libsoxr is asked to convert; beyond these a header is more likely broken than real.
constexpr int lowestRate = 1000;
constexpr int highestRate = 768000;

}  // namespace

RecordingReader::Opened RecordingReader::open(const std::string& path) {
    auto opened = AudioFileReader::open(path);
    if (!opened.reader) return {nullptr, opened.error, {}};
    const int rate = opened.reader->sampleRate();
    if (rate < lowestRate || rate > highestRate) {
        return {nullptr,
                "'" + path + "' is sampled at " + std::to_string(rate) + " Hz; only " + std::to_string(lowestRate) +
                    " to " + std::to_string(highestRate) + " Hz can be resampled to 48000 Hz",
                {}};
    }
    const int fileChannels = opened.reader->channels();
    std::string notice;
    if (fileChannels > 2) {
        notice = "'" + path + "' has " + std::to_string(fileChannels) +
                 " channels; they are mixed down to one for the analysis";
    }
    const std::int64_t frames = opened.reader->frames();
    std::unique_ptr<RecordingReader> reader(
        new RecordingReader(std::move(opened.reader), fileChannels > 2 ? 1 : fileChannels, frames));
    if (rate != outputRate) {
        const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
        const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
        // One thread: the same output on every machine, and no threads left idling.
        const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
        soxr_error_t error = nullptr;
        reader->resampler_ = soxr_create(rate, outputRate, static_cast<unsigned>(reader->channels_), &error, &io,
                                         &quality, &runtime);
        if (reader->resampler_ == nullptr || error != nullptr) {
            return {nullptr,
                    "cannot resample '" + path + "' from " + std::to_string(rate) +
                        " Hz: " + (error != nullptr ? error : "libsoxr failed"),
                    {}};
        }
        reader->input_.resize(sourceChunkSamples / static_cast<std::size_t>(reader->channels_) *
                              static_cast<std::size_t>(reader->channels_));
    }
    if (fileChannels > 2) {
        reader->wide_.resize(std::max<std::size_t>(1, sourceChunkSamples / static_cast<std::size_t>(fileChannels)) *
                             static_cast<std::size_t>(fileChannels));
    }
    return {std::move(reader), {}, notice};
}

RecordingReader::RecordingReader(std::unique_ptr<AudioFileReader> file, int channels, std::int64_t fileFrames)
    : file_(std::move(file)), channels_(channels), fileFrames_(fileFrames) {}

RecordingReader::~RecordingReader() {
    if (resampler_ != nullptr) soxr_delete(resampler_);
}

double RecordingReader::duration() const {
    return fileFrames_ > 0 ? static_cast<double>(fileFrames_) / file_->sampleRate() : 0.0;
}

void RecordingReader::clean(float* samples, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (!std::isfinite(samples[i])) {
            samples[i] = 0.0f;
            ++nonFinite_;
        }
    }
}

std::size_t RecordingReader::readSource(float* out, std::size_t frames) {
    const auto fileChannels = static_cast<std::size_t>(file_->channels());
    std::size_t done = 0;
    if (fileChannels <= 2) {
        while (done < frames) {
            const std::size_t got = file_->read(out + done * fileChannels, frames - done);
            if (got == 0) break;
            clean(out + done * fileChannels, got * fileChannels);
            done += got;
        }
        return done;
    }
    const std::size_t wideFrames = wide_.size() / fileChannels;
    while (done < frames) {
        const std::size_t got = file_->read(wide_.data(), std::min(wideFrames, frames - done));
        if (got == 0) break;
        clean(wide_.data(), got * fileChannels);
        for (std::size_t f = 0; f < got; ++f) {
            const float* frame = wide_.data() + f * fileChannels;
            float sum = 0.0f;
            for (std::size_t c = 0; c < fileChannels; ++c) sum += frame[c];
            out[done + f] = sum / static_cast<float>(fileChannels);
        }
        done += got;
    }
    return done;
}

std::size_t RecordingReader::readResampled(float* out, std::size_t frames) {
    const auto channels = static_cast<std::size_t>(channels_);
    std::size_t done = 0;
    while (done < frames && !flushed_) {
        if (inputStart_ == inputEnd_ && !sourceEnded_) {
            inputStart_ = 0;
            inputEnd_ = readSource(input_.data(), input_.size() / channels);
            sourceEnded_ = inputEnd_ == 0;
        }
        std::size_t produced = 0;
        soxr_error_t error = nullptr;
        if (inputStart_ < inputEnd_) {
            std::size_t consumed = 0;
            error = soxr_process(resampler_, input_.data() + inputStart_ * channels, inputEnd_ - inputStart_, &consumed,
                                 out + done * channels, frames - done, &produced);
            inputStart_ += consumed;
        } else {
            // The end of the source: what the filter still holds.
            error = soxr_process(resampler_, nullptr, 0, nullptr, out + done * channels, frames - done, &produced);
            if (produced == 0) flushed_ = true;
        }
        if (error != nullptr) flushed_ = true;  // a read error: the recording ends here
        done += produced;
    }
    return done;
}

std::size_t RecordingReader::read(float* out, std::size_t frames) {
    return resampler_ != nullptr ? readResampled(out, frames) : readSource(out, frames);
}

bool RecordingReader::rewind() {
    if (!file_->rewind()) return false;
    if (resampler_ != nullptr && soxr_clear(resampler_) != nullptr) return false;
    inputStart_ = inputEnd_ = 0;
    sourceEnded_ = flushed_ = false;
    return true;
}

}  // namespace lorvane::tools
