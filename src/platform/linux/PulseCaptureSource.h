#pragma once
// System-audio capture from the sound server: a record stream on the monitor source of the default
// sink, 48000 Hz, stereo, float32, in blocks of about 20 ms, read and analysed on one thread
// ("lorvane-samples", libpulse's threaded main loop) that sleeps between blocks. Works with PulseAudio
// and with PipeWire's PulseAudio server. When the user picks another output device, the stream follows
// the new default sink's monitor without a failure.
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
#include <vector>

#include "core/Clock.h"
#include "core/MainQueue.h"
#include "core/capture/CaptureSource.h"
#include "core/capture/SystemAudioLevelMonitor.h"

struct pa_threaded_mainloop;
struct pa_context;
struct pa_stream;
struct pa_server_info;
struct pa_sink_info;
struct pa_mainloop_api;

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
    static constexpr const char* threadName = "lorvane-samples";

    // `fragmentSeconds` is how much sound each block holds (and how often the server wakes for us).
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
    static void onBegin(pa_mainloop_api* api, void* self);
    static void onContextState(pa_context* context, void* self);
    static void onServerEvent(pa_context* context, pa_subscription_event_type_t event, std::uint32_t index, void* self);
    static void onServerInfo(pa_context* context, const pa_server_info* info, void* self);
    static void onSinkInfo(pa_context* context, const pa_sink_info* info, int eol, void* self);
    static void onMoved(pa_context* context, int success, void* self);
    static void onStreamState(pa_stream* stream, void* self);
    static void onStreamMoved(pa_stream* stream, void* self);
    static void onRead(pa_stream* stream, std::size_t bytes, void* self);
    static void onBury(pa_mainloop_api* api, void* self);

    // With the loop's lock held (or on the loop's thread):
    void openStream(const std::string& monitorSource);
    void followDefaultSink();
    void failRun(AudioCaptureFailureReport failure);
    AudioCaptureFailureReport lostOrFailed() const;
    void endRun();
    void detachStream();
    void bury();

    double fragmentSeconds_;
    pa_threaded_mainloop* loop_ = nullptr;
    bool loopRunning_ = false;
    bool running_ = false;          // a run is live: from start() until stop() or its failure
    std::uint64_t run_ = 0;         // moves on every start and end, so late work of an old run is dropped
    bool reachedReady_ = false;     // the connection was accepted at least once in this run
    bool streamReady_ = false;
    pa_context* context_ = nullptr;
    pa_stream* stream_ = nullptr;
    std::string defaultSink_;       // the default sink that the stream follows
    std::string recordedSource_;
    std::string moveTarget_;        // where a requested move takes the stream
    Handlers handlers_;
    // Connections and streams ended on the loop's own thread are released a moment later, outside
    // the libpulse callback that ended them.
    std::vector<std::pair<pa_context*, pa_stream*>> graveyard_;
};

// Whether a Flatpak sandbox hides the sound server from this program (no audio socket was granted):
// this counts as refused permission rather than a missing server. `root` is "/" outside tests.
bool sandboxHidesSoundServer(const std::filesystem::path& root, const char* pulseServer, const char* runtimeDirectory);

// The level monitor on the desktop's sound server.
std::unique_ptr<SystemAudioLevelMonitor> makePulseAudioLevelMonitor(
    std::function<void(const AudioVisualizationFrame&)> frameDidChange,
    std::function<void(AudioCaptureFailureReport)> captureDidFail, MainQueue& mainQueue, const Clock& clock,
    double fragmentSeconds = PulseCaptureSource::defaultFragmentSeconds);

}  // namespace lorvane
