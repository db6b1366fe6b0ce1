#include "support/PulsePlayer.h"

#include <pulse/pulseaudio.h>

#include <cmath>
#include <numbers>
#include <random>
#include <thread>
#include <vector>

namespace lorvane::test {

PulsePlayer::PulsePlayer(Generator generator, std::string sink, double bufferSeconds)
    : generator_(std::move(generator)), sink_(std::move(sink)), bufferSeconds_(bufferSeconds) {
    loop_ = pa_threaded_mainloop_new();
    if (!loop_) {
        failed_ = true;
        why_ = "no main loop";
        return;
    }
    pa_threaded_mainloop_set_name(loop_, "test-player");
    pa_threaded_mainloop_lock(loop_);
    context_ = pa_context_new(pa_threaded_mainloop_get_api(loop_), "Lorvane test player");
    pa_context_set_state_callback(context_, &PulsePlayer::onContextState, this);
    if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        failed_ = true;
        why_ = std::string("connect: ") + pa_strerror(pa_context_errno(context_));
    }
    pa_threaded_mainloop_unlock(loop_);
    pa_threaded_mainloop_start(loop_);
}

PulsePlayer::~PulsePlayer() {
    if (!loop_) return;
    pa_threaded_mainloop_stop(loop_);
    if (stream_) {
        pa_stream_set_state_callback(stream_, nullptr, nullptr);
        pa_stream_set_write_callback(stream_, nullptr, nullptr);
        pa_stream_disconnect(stream_);
        pa_stream_unref(stream_);
    }
    if (context_) {
        pa_context_set_state_callback(context_, nullptr, nullptr);
        pa_context_disconnect(context_);
        pa_context_unref(context_);
    }
    pa_threaded_mainloop_free(loop_);
}

bool PulsePlayer::waitUntilPlaying(std::chrono::milliseconds bound) {
    // The player thread sets the flags; polling them here keeps this helper free of condition plumbing.
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!playing_ && !failed_ && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return playing_ && !failed_;
}

std::string PulsePlayer::why() const {
    std::lock_guard lock(whyMutex_);
    return why_;
}

void PulsePlayer::onContextState(pa_context* context, void* opaque) {
    auto* self = static_cast<PulsePlayer*>(opaque);
    switch (pa_context_get_state(context)) {
        case PA_CONTEXT_READY: {
            const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, sampleRate, 2};
            self->stream_ = pa_stream_new(context, "test tone", &spec, nullptr);
            if (!self->stream_) {
                self->failed_ = true;
                return;
            }
            pa_stream_set_state_callback(self->stream_, &PulsePlayer::onStreamState, self);
            pa_stream_set_write_callback(self->stream_, &PulsePlayer::onWrite, self);
            const auto bytes = static_cast<std::uint32_t>(self->bufferSeconds_ * sampleRate) * 8;
            pa_buffer_attr attr{};
            attr.maxlength = static_cast<std::uint32_t>(-1);
            attr.tlength = bytes;
            attr.prebuf = static_cast<std::uint32_t>(-1);
            attr.minreq = static_cast<std::uint32_t>(-1);
            attr.fragsize = static_cast<std::uint32_t>(-1);
            const char* device = self->sink_.empty() ? nullptr : self->sink_.c_str();
            if (pa_stream_connect_playback(self->stream_, device, &attr, PA_STREAM_ADJUST_LATENCY, nullptr,
                                           nullptr) < 0) {
                std::lock_guard lock(self->whyMutex_);
                self->why_ = std::string("playback: ") + pa_strerror(pa_context_errno(context));
                self->failed_ = true;
            }
            break;
        }
        case PA_CONTEXT_FAILED:
        case PA_CONTEXT_TERMINATED: {
            std::lock_guard lock(self->whyMutex_);
            self->why_ = std::string("context: ") + pa_strerror(pa_context_errno(context));
            self->failed_ = true;
            break;
        }
        default:
            break;
    }
}

void PulsePlayer::onStreamState(pa_stream* stream, void* opaque) {
    auto* self = static_cast<PulsePlayer*>(opaque);
    switch (pa_stream_get_state(stream)) {
        case PA_STREAM_READY:
            self->playing_ = true;
            break;
        case PA_STREAM_FAILED:
        case PA_STREAM_TERMINATED:
            self->failed_ = true;
            break;
        default:
            break;
    }
}

void PulsePlayer::onWrite(pa_stream* stream, std::size_t bytes, void* opaque) {
    auto* self = static_cast<PulsePlayer*>(opaque);
    const std::size_t frames = bytes / 8;
    if (frames == 0) return;
    std::vector<float> data(frames * 2);
    self->generator_(data.data(), frames, self->position_);
    self->position_ += frames;
    pa_stream_write(stream, data.data(), frames * 8, nullptr, 0, PA_SEEK_RELATIVE);
}

PulsePlayer::Generator PulsePlayer::sine(double frequency, double amplitude) {
    return [frequency, amplitude](float* out, std::size_t frames, std::uint64_t position) {
        for (std::size_t i = 0; i < frames; ++i) {
            const double t = static_cast<double>(position + i) / sampleRate;
            const auto value = static_cast<float>(amplitude * std::sin(2 * std::numbers::pi * frequency * t));
            out[2 * i] = value;
            out[2 * i + 1] = value;
        }
    };
}

PulsePlayer::Generator PulsePlayer::silence() {
    return [](float* out, std::size_t frames, std::uint64_t) { std::fill(out, out + 2 * frames, 0.0f); };
}

PulsePlayer::Generator PulsePlayer::musicLike() {
    auto noise = std::make_shared<std::minstd_rand>(7);
    return [noise](float* out, std::size_t frames, std::uint64_t position) {
        constexpr double pi = std::numbers::pi;
        static constexpr double chords[4][3] = {
            {261.63, 329.63, 392.00}, {220.00, 261.63, 329.63}, {174.61, 220.00, 261.63}, {196.00, 246.94, 293.66}};
        std::uniform_real_distribution<float> white(-1.0f, 1.0f);
        for (std::size_t i = 0; i < frames; ++i) {
            const double t = static_cast<double>(position + i) / sampleRate;
            const double beat = std::fmod(t, 0.5);
            const double kick = std::exp(-beat * 18) * std::sin(2 * pi * (50 + 60 * std::exp(-beat * 30)) * beat);
            const int bar = static_cast<int>(t / 2) % 4;
            double chord = 0;
            for (double f : chords[bar]) chord += std::sin(2 * pi * f * t);
            const double bass = std::sin(2 * pi * chords[bar][0] / 4 * t);
            const double hat = std::fmod(t, 0.25) < 0.03 ? white(*noise) * 0.5 : 0.0;
            const double left = 0.45 * kick + 0.12 * chord + 0.2 * bass + 0.08 * hat;
            const double right = 0.45 * kick + 0.10 * chord + 0.2 * bass + 0.10 * hat;
            out[2 * i] = static_cast<float>(left);
            out[2 * i + 1] = static_cast<float>(right);
        }
    };
}

}  // namespace lorvane::test
