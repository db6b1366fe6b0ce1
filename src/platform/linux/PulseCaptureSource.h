#pragma once
// System-audio capture from the sound server: a record stream on the monitor source of the default
// sink, 48000 Hz, stereo, float32, in blocks of about 20 ms, read and analysed on the sound-server
// connection's thread (PulseConnection), which sleeps between blocks. Works with PulseAudio and with
// PipeWire's PulseAudio server. The stream records the monitor of the default sink that the connection
// follows, so capture and the output volume never disagree about the output device; when the user
// picks another one, the stream moves to its monitor without a failure.
//
// Failures: a server that refuses the connection for lack of access (or a sandbox that hides the
// server) is permissionRequired; anything else (no server, connection lost, no default sink, the stream
// cannot be made or fails, the server dies) is unavailable.

#include <pulse/def.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "core/Clock.h"
#include "core/MainQueue.h"
#include "core/capture/CaptureSource.h"
#include "core/capture/SystemAudioLevelMonitor.h"
#include "platform/linux/PulseConnection.h"

struct pa_context;
struct pa_stream;
struct pa_operation;

namespace lorvane {

class PulseCaptureSource final : public CaptureSource {
public:
    static constexpr std::uint32_t sampleRate = 48000;
    static constexpr std::uint8_t channelCount = 2;
    // 20 ms, not less: each fragment wakes the sound server (and makes the sink render at that pace),
    // so 10 ms blocks cost the server about half as much again, and more than a whole cava at its own
    // defaults. They bring frames no sooner when the player itself keeps a short buffer, and 10-30 ms
    // sooner behind a music player's long one. See bench/CaptureLatencyBenchmark.cpp and
    // bench/capture_cpu.sh.
    static constexpr double defaultFragmentSeconds = 0.020;

    // `fragmentSeconds` is how much sound each block holds (and how often the server wakes for us).
    // Capture over the program's shared connection:
    explicit PulseCaptureSource(std::shared_ptr<PulseConnection> connection,
                                double fragmentSeconds = defaultFragmentSeconds);
    // Capture over a connection of its own, up only during a run:
    explicit PulseCaptureSource(double fragmentSeconds = defaultFragmentSeconds);
    ~PulseCaptureSource() override;
    PulseCaptureSource(const PulseCaptureSource&) = delete;
    PulseCaptureSource& operator=(const PulseCaptureSource&) = delete;

    bool accessGranted() override;
    void start(Handlers handlers) override;
    void stop() override;

    // The source the stream reads (the default sink's monitor), empty before the stream exists.
    std::string recordedSource() const;

private:
    static void onMoved(pa_context* context, int success, void* self);
    static void onStreamState(pa_stream* stream, void* self);
    static void onStreamMoved(pa_stream* stream, void* self);
    static void onRead(pa_stream* stream, std::size_t bytes, void* self);

    // With the connection's lock held (or on its thread):
    void begin(std::uint64_t run);
    void follow();
    void openStream(const std::string& monitorSource);
    void connectionDidEnd(PulseConnection::Ending ending);
    void failRun(AudioCaptureFailureReport failure);
    AudioCaptureFailureReport lostOrFailed() const;
    void endRun();
    void cancelMove();
    void detachStream();

    std::shared_ptr<PulseConnection> connection_;
    PulseConnection::ObserverId observer_ = 0;
    double fragmentSeconds_;
    bool running_ = false;          // a run is live: from start() until stop() or its failure
    std::uint64_t run_ = 0;         // moves on every start and end, so late work of an old run is dropped
    bool streamReady_ = false;
    pa_stream* stream_ = nullptr;
    std::string recordedSource_;
    pa_operation* move_ = nullptr;  // a move of the stream asked of the server and not yet answered
    std::string moveTarget_;        // where that move takes the stream
    Handlers handlers_;
};

// Whether a Flatpak sandbox hides the sound server from this program (no audio socket was granted):
// this counts as refused permission rather than a missing server. `root` is "/" outside tests.
bool sandboxHidesSoundServer(const std::filesystem::path& root, const char* pulseServer, const char* runtimeDirectory);

// The level monitor on the desktop's sound server.
std::unique_ptr<SystemAudioLevelMonitor> makePulseAudioLevelMonitor(
    std::function<void(const AudioVisualizationFrame&)> frameDidChange,
    std::function<void(AudioCaptureFailureReport)> captureDidFail, MainQueue& mainQueue, const Clock& clock,
    double fragmentSeconds = PulseCaptureSource::defaultFragmentSeconds);
// The same over the program's shared connection to the sound server.
std::unique_ptr<SystemAudioLevelMonitor> makePulseAudioLevelMonitor(
    std::function<void(const AudioVisualizationFrame&)> frameDidChange,
    std::function<void(AudioCaptureFailureReport)> captureDidFail, MainQueue& mainQueue, const Clock& clock,
    std::shared_ptr<PulseConnection> connection, double fragmentSeconds = PulseCaptureSource::defaultFragmentSeconds);

}  // namespace lorvane
