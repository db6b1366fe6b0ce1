#include "platform/linux/PulseCaptureSource.h"

#include <pulse/pulseaudio.h>

#include <cstdlib>
#include <cstring>
#include <span>
#include <utility>

namespace lorvane {
namespace {

constexpr const char* applicationName = "Lorvane";
constexpr const char* applicationId = "com.tarnhollow.Lorvane";

pa_proplist* applicationProperties() {
    pa_proplist* properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, applicationName);
    pa_proplist_sets(properties, PA_PROP_APPLICATION_ID, applicationId);
    return properties;
}

AudioCaptureFailureReport unavailable(AudioCaptureReason reason) { return {AudioCaptureFailure::unavailable, reason}; }

// A connection that ended: refused by the server, never reached, or lost after it was accepted.
AudioCaptureFailureReport connectionFailure(bool refused, bool wasAccepted) {
    if (refused) return {AudioCaptureFailure::permissionRequired, AudioCaptureReason::refused};
    return {AudioCaptureFailure::unavailable,
            wasAccepted ? AudioCaptureReason::serverStopped : AudioCaptureReason::noSoundServer};
}

}  // namespace

bool sandboxHidesSoundServer(const std::filesystem::path& root, const char* pulseServer, const char* runtimeDirectory) {
    std::error_code ignored;
    if (!std::filesystem::exists(root / ".flatpak-info", ignored)) return false;
    if (pulseServer && *pulseServer) return false;
    if (!runtimeDirectory || !*runtimeDirectory) return true;
    return !std::filesystem::exists(std::filesystem::path(runtimeDirectory) / "pulse" / "native", ignored);
}

PulseCaptureSource::PulseCaptureSource(double fragmentSeconds)
    : PulseCaptureSource(std::make_shared<PulseConnection>(), fragmentSeconds) {}

PulseCaptureSource::PulseCaptureSource(std::shared_ptr<PulseConnection> connection, double fragmentSeconds)
    : connection_(std::move(connection)), fragmentSeconds_(fragmentSeconds) {
    PulseConnection::Observer observer;
    observer.didDisconnect = [this](PulseConnection::Ending ending) { connectionDidEnd(ending); };
    observer.defaultSinkDidChange = [this](PulseConnection::SinkChange change) {
        if (change.sink) follow();
    };
    observer_ = connection_->addObserver(std::move(observer));
}

PulseCaptureSource::~PulseCaptureSource() {
    stop();
    // Once removed, none of this source's callbacks or posted work runs any more.
    connection_->removeObserver(observer_);
}

bool PulseCaptureSource::accessGranted() {
    return !sandboxHidesSoundServer("/", std::getenv("PULSE_SERVER"), std::getenv("XDG_RUNTIME_DIR"));
}

void PulseCaptureSource::start(Handlers handlers) {
    if (!connection_->running()) {
        // Without its thread this source can do nothing; say so the way every other failure is said.
        if (handlers.didFail) handlers.didFail(unavailable(AudioCaptureReason::cannotStart));
        return;
    }
    PulseConnection::Lock lock(*connection_);
    if (running_) return;
    running_ = true;
    ++run_;
    handlers_ = std::move(handlers);
    // A connection that waits to retry tries at once; the stream is opened on the connection's
    // thread, so every failure is reported from there.
    connection_->setNeeded(observer_, true);
    connection_->post(observer_, [this, run = run_] { begin(run); });
}

void PulseCaptureSource::stop() {
    if (!connection_->running()) return;
    PulseConnection::Lock lock(*connection_);
    if (running_) endRun();
}

std::string PulseCaptureSource::recordedSource() const {
    PulseConnection::Lock lock(*connection_);
    return recordedSource_;
}

void PulseCaptureSource::begin(std::uint64_t run) {
    // A stop (and perhaps a new start, with its own begin posted) may have come first.
    if (run != run_ || !running_) return;
    follow();
}

void PulseCaptureSource::connectionDidEnd(PulseConnection::Ending ending) {
    if (!running_) return;
    failRun(ending.couldNotStart ? unavailable(AudioCaptureReason::cannotStart)
                                 : connectionFailure(ending.refused, ending.wasAccepted));
}

void PulseCaptureSource::follow() {
    if (!running_) return;
    // Until the connection is up and knows the default sink there is nothing to record; its end, or
    // its word on the sink, comes through the observer.
    if (!connection_->context()) return;
    const auto knowledge = connection_->sinkKnowledge();
    if (knowledge == PulseConnection::SinkKnowledge::unknown) return;
    const std::string monitor = knowledge == PulseConnection::SinkKnowledge::known
                                    ? connection_->defaultSink().monitorSource
                                    : std::string();
    if (monitor.empty()) {
        // Without a default sink there is nothing to record; a running stream is left to the server,
        // which moves it when its sink goes away.
        if (!stream_) failRun(unavailable(AudioCaptureReason::noOutputDevice));
        return;
    }
    if (!stream_) {
        openStream(monitor);
        return;
    }
    if (monitor == recordedSource_ || monitor == moveTarget_) return;
    if (streamReady_) {
        // Moving keeps the stream and its latency setting; the wave keeps moving.
        cancelMove();
        move_ = pa_context_move_source_output_by_name(connection_->context(), pa_stream_get_index(stream_),
                                                      monitor.c_str(), &PulseCaptureSource::onMoved, this);
        if (move_) {
            moveTarget_ = monitor;
            return;
        }
    }
    detachStream();
    openStream(monitor);
}

void PulseCaptureSource::onMoved(pa_context*, int success, void* opaque) {
    auto* self = static_cast<PulseCaptureSource*>(opaque);
    // A move still asked for is cancelled whenever its stream goes, so the stream is still this one.
    if (self->move_) pa_operation_unref(std::exchange(self->move_, nullptr));
    const std::string target = std::exchange(self->moveTarget_, {});
    if (!self->running_ || !self->stream_) return;
    if (success) {
        self->recordedSource_ = target;
        return;
    }
    // The server would not move it: record the default monitor with a fresh stream instead.
    self->detachStream();
    self->follow();
}

void PulseCaptureSource::openStream(const std::string& monitorSource) {
    pa_context* context = connection_->context();
    if (!context) {
        failRun(lostOrFailed());
        return;
    }
    const pa_sample_spec spec{PA_SAMPLE_FLOAT32NE, sampleRate, channelCount};
    pa_channel_map map;
    pa_channel_map_init_stereo(&map);
    pa_proplist* properties = applicationProperties();
    pa_proplist_sets(properties, PA_PROP_MEDIA_NAME, "System audio level");
    stream_ = pa_stream_new_with_proplist(context, "System audio level", &spec, &map, properties);
    pa_proplist_free(properties);
    if (!stream_) {
        failRun(unavailable(AudioCaptureReason::recordingFailed));
        return;
    }
    streamReady_ = false;
    recordedSource_ = monitorSource;
    pa_stream_set_state_callback(stream_, &PulseCaptureSource::onStreamState, this);
    pa_stream_set_read_callback(stream_, &PulseCaptureSource::onRead, this);
    pa_stream_set_moved_callback(stream_, &PulseCaptureSource::onStreamMoved, this);
    // Small fragments so the wave follows the music closely; ADJUST_LATENCY makes the server (and an
    // otherwise idle sink) run at that pace instead of in seconds-long blocks.
    pa_buffer_attr attributes{};
    attributes.maxlength = static_cast<std::uint32_t>(-1);
    attributes.tlength = static_cast<std::uint32_t>(-1);
    attributes.prebuf = static_cast<std::uint32_t>(-1);
    attributes.minreq = static_cast<std::uint32_t>(-1);
    attributes.fragsize = static_cast<std::uint32_t>(pa_usec_to_bytes(
        static_cast<pa_usec_t>(fragmentSeconds_ * PA_USEC_PER_SEC), &spec));
    if (pa_stream_connect_record(stream_, monitorSource.c_str(), &attributes, PA_STREAM_ADJUST_LATENCY) < 0) {
        failRun(lostOrFailed());
    }
}

void PulseCaptureSource::onStreamState(pa_stream* stream, void* opaque) {
    auto* self = static_cast<PulseCaptureSource*>(opaque);
    if (stream != self->stream_ || !self->running_) return;
    switch (pa_stream_get_state(stream)) {
        case PA_STREAM_READY:
            self->streamReady_ = true;
            if (const char* device = pa_stream_get_device_name(stream)) self->recordedSource_ = device;
            // The default sink may have changed while the stream was being made.
            self->follow();
            break;
        case PA_STREAM_FAILED:
        case PA_STREAM_TERMINATED:
            self->failRun(self->lostOrFailed());
            break;
        default:
            break;
    }
}

void PulseCaptureSource::onStreamMoved(pa_stream* stream, void* opaque) {
    auto* self = static_cast<PulseCaptureSource*>(opaque);
    if (stream != self->stream_ || !self->running_) return;
    if (const char* device = pa_stream_get_device_name(stream)) self->recordedSource_ = device;
    // The server may have moved it by itself because its source went away. The connection's idea of
    // the default sink can be older than this news, so it asks again; the stream then moves to the
    // default monitor if it is not on it.
    self->connection_->refreshDefaultSink();
}

void PulseCaptureSource::onRead(pa_stream* stream, std::size_t, void* opaque) {
    auto* self = static_cast<PulseCaptureSource*>(opaque);
    for (;;) {
        if (stream != self->stream_ || !self->running_) return;
        const void* data = nullptr;
        std::size_t bytes = 0;
        if (pa_stream_peek(stream, &data, &bytes) < 0) {
            self->failRun(self->lostOrFailed());
            return;
        }
        if (bytes == 0) return;
        if (data) {  // no data with a size is a hole in the recording: skip it
            SampleBlock block;
            block.format = SampleFormat::float32;
            block.channelsPerFrame = channelCount;
            block.interleaved = true;
            block.buffers.emplace_back(static_cast<const std::byte*>(data), bytes);
            const std::uint64_t run = self->run_;
            if (self->handlers_.blockDidArrive) self->handlers_.blockDidArrive(block);
            // The handler may have ended the run (a silence failure); the stream is then gone.
            if (run != self->run_) return;
        }
        pa_stream_drop(stream);
    }
}

AudioCaptureFailureReport PulseCaptureSource::lostOrFailed() const {
    // A stream or request fails with the connection when the server goes away; otherwise the server
    // turned the recording down by itself.
    return {AudioCaptureFailure::unavailable,
            connection_->context() ? AudioCaptureReason::recordingFailed : AudioCaptureReason::serverStopped};
}

void PulseCaptureSource::failRun(AudioCaptureFailureReport failure) {
    auto didFail = handlers_.didFail;
    endRun();
    if (didFail) didFail(failure);
}

void PulseCaptureSource::endRun() {
    running_ = false;
    ++run_;
    detachStream();
    recordedSource_.clear();
    connection_->setNeeded(observer_, false);
}

void PulseCaptureSource::cancelMove() {
    if (move_) {
        // The shared connection outlives this source: its answer must not come here.
        pa_operation_cancel(move_);
        pa_operation_unref(std::exchange(move_, nullptr));
    }
    moveTarget_.clear();
}

void PulseCaptureSource::detachStream() {
    cancelMove();
    if (!stream_) return;
    pa_stream_set_state_callback(stream_, nullptr, nullptr);
    pa_stream_set_read_callback(stream_, nullptr, nullptr);
    pa_stream_set_moved_callback(stream_, nullptr, nullptr);
    connection_->releaseStream(std::exchange(stream_, nullptr));
    streamReady_ = false;
}

std::unique_ptr<SystemAudioLevelMonitor> makePulseAudioLevelMonitor(
    std::function<void(const AudioVisualizationFrame&)> frameDidChange,
    std::function<void(AudioCaptureFailureReport)> captureDidFail, MainQueue& mainQueue, const Clock& clock,
    double fragmentSeconds) {
    return std::make_unique<SystemAudioLevelMonitor>(std::move(frameDidChange), std::move(captureDidFail),
                                                     std::make_unique<PulseCaptureSource>(fragmentSeconds),
                                                     mainQueue, clock);
}

std::unique_ptr<SystemAudioLevelMonitor> makePulseAudioLevelMonitor(
    std::function<void(const AudioVisualizationFrame&)> frameDidChange,
    std::function<void(AudioCaptureFailureReport)> captureDidFail, MainQueue& mainQueue, const Clock& clock,
    std::shared_ptr<PulseConnection> connection, double fragmentSeconds) {
    return std::make_unique<SystemAudioLevelMonitor>(
        std::move(frameDidChange), std::move(captureDidFail),
        std::make_unique<PulseCaptureSource>(std::move(connection), fragmentSeconds), mainQueue, clock);
}

}  // namespace lorvane
