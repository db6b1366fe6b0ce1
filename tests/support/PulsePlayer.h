#pragma once
// Plays generated sound into a sink of the (private, see PulseServer) PulseAudio server, the way a
// music player would: a libpulse playback stream at 48000 Hz, float32, stereo, fed on its own thread
// from a generator function. The buffer is kept short (about 20 ms) so what is written is heard soon.
//
//   PulsePlayer player(PulsePlayer::sine(1000, 0.447));   // -10 dBFS RMS
//   ASSERT_TRUE(player.waitUntilPlaying(std::chrono::seconds(5))) << player.why();

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

struct pa_threaded_mainloop;
struct pa_context;
struct pa_stream;

namespace lorvane::test {

class PulsePlayer {
public:
    // Fills `frames` interleaved stereo frames; runs on the player's thread. The second argument is the
    // number of frames generated before this call.
    using Generator = std::function<void(float* interleaved, std::size_t frames, std::uint64_t position)>;

    static constexpr int sampleRate = 48000;

    // An empty sink name plays into the default sink.
    explicit PulsePlayer(Generator generator, std::string sink = {}, double bufferSeconds = 0.02);
    ~PulsePlayer();
    PulsePlayer(const PulsePlayer&) = delete;
    PulsePlayer& operator=(const PulsePlayer&) = delete;

    // Waits until the stream runs; false on failure or when the bound passes.
    bool waitUntilPlaying(std::chrono::milliseconds bound);
    bool failed() const { return failed_.load(); }
    std::string why() const;

    // A sine of `frequency` Hz with peak `amplitude` on both channels (RMS = amplitude / sqrt 2).
    static Generator sine(double frequency, double amplitude);
    static Generator silence();
    // Something like music: a bass drum every 0.5 s, a bass line and a few chords with noise on top.
    static Generator musicLike();

private:
    static void onContextState(pa_context* context, void* self);
    static void onStreamState(pa_stream* stream, void* self);
    static void onWrite(pa_stream* stream, std::size_t bytes, void* self);

    Generator generator_;
    std::string sink_;
    double bufferSeconds_;
    std::uint64_t position_ = 0;
    pa_threaded_mainloop* loop_ = nullptr;
    pa_context* context_ = nullptr;
    pa_stream* stream_ = nullptr;
    std::atomic<bool> playing_{false};
    std::atomic<bool> failed_{false};
    mutable std::mutex whyMutex_;
    std::string why_;
};

}  // namespace lorvane::test
