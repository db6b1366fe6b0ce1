#include "platform/linux/PulseCaptureSource.h"

#include <pulse/pulseaudio.h>

#include <cstdlib>
#include <cstring>
#include <span>

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

void release(pa_context* context, pa_stream* stream) {
    if (stream) {
        pa_stream_disconnect(stream);  // fails harmlessly once the connection is gone
        pa_stream_unref(stream);
    }
    if (context) {
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
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

PulseCaptureSource::PulseCaptureSource(double fragmentSeconds) : fragmentSeconds_(fragmentSeconds) {
    loop_ = pa_threaded_mainloop_new();
    if (!loop_) return;
    pa_threaded_mainloop_set_name(loop_, threadName);
    loopRunning_ = pa_threaded_mainloop_start(loop_) == 0;
}

PulseCaptureSource::~PulseCaptureSource() {
    if (!loop_) return;
    stop();
    if (loopRunning_) pa_threaded_mainloop_stop(loop_);
    bury();
    pa_threaded_mainloop_free(loop_);
}

bool PulseCaptureSource::accessGranted() {
    return !sandboxHidesSoundServer("/", std::getenv("PULSE_SERVER"), std::getenv("XDG_RUNTIME_DIR"));
}

void PulseCaptureSource::start(Handlers handlers) {
    if (!loopRunning_) {
        // Without its thread this source can do nothing; say so the way every other failure is said.
        if (handlers.didFail) handlers.didFail(unavailable(AudioCaptureReason::cannotStart));
        return;
    }
    pa_threaded_mainloop_lock(loop_);
    if (!running_) {
        running_ = true;
        ++run_;
        reachedReady_ = false;
        handlers_ = std::move(handlers);
        // Connecting happens on the loop's thread, so every failure is reported from there.
        pa_mainloop_api_once(pa_threaded_mainloop_get_api(loop_), &PulseCaptureSource::onBegin, this);
    }
    pa_threaded_mainloop_unlock(loop_);
}

void PulseCaptureSource::stop() {
    if (!loopRunning_) return;
    if (pa_threaded_mainloop_in_thread(loop_)) {
        endRun();
        return;
    }
    pa_threaded_mainloop_lock(loop_);
    endRun();
    pa_threaded_mainloop_unlock(loop_);
}

std::string PulseCaptureSource::recordedSource() const {
    if (!loopRunning_) return {};
    pa_threaded_mainloop_lock(loop_);
    std::string name = recordedSource_;
    pa_threaded_mainloop_unlock(loop_);
    return name;
}

void PulseCaptureSource::onBegin(pa_mainloop_api* api, void* opaque) {
    auto* self = static_cast<PulseCaptureSource*>(opaque);
    // A stop (and perhaps a new start, with its own begin queued) may have come first.
    if (!self->running_ || self->context_) return;
    pa_proplist* properties = applicationProperties();
    pa_context* context = pa_context_new_with_proplist(api, applicationName, properties);
    pa_proplist_free(properties);
    if (!context) {
        self->failRun(unavailable(AudioCaptureReason::cannotStart));
        return;
    }
    self->context_ = context;
    pa_context_set_state_callback(context, &PulseCaptureSource::onContextState, self);
    if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0 && self->context_ == context) {
        const bool refused = pa_context_errno(context) == PA_ERR_ACCESS;
        self->failRun(connectionFailure(refused, false));
    }
}

void PulseCaptureSource::onContextState(pa_context* context, void* opaque) {
    auto* self = static_cast<PulseCaptureSource*>(opaque);
    if (context != self->context_ || !self->running_) return;
    switch (pa_context_get_state(context)) {
        case PA_CONTEXT_READY: {
            self->reachedReady_ = true;
            pa_context_set_subscribe_callback(context, &PulseCaptureSource::onServerEvent, self);
            // A new default sink shows up as a change of the server.
            if (pa_operation* operation = pa_context_subscribe(context, PA_SUBSCRIPTION_MASK_SERVER, nullptr, nullptr)) {
                pa_operation_unref(operation);
            }
            self->followDefaultSink();
            break;
        }
        case PA_CONTEXT_FAILED:
        case PA_CONTEXT_TERMINATED: {
            // Only the server's answer to our credentials means "not allowed"; losing an accepted
            // connection later is just the server going away.
            const bool refused = !self->reachedReady_ && pa_context_errno(context) == PA_ERR_ACCESS;
            self->failRun(connectionFailure(refused, self->reachedReady_));
            break;
        }
        default:
            break;
    }
}

void PulseCaptureSource::onServerEvent(pa_context* context, pa_subscription_event_type_t event, std::uint32_t, void* opaque) {
    auto* self = static_cast<PulseCaptureSource*>(opaque);
    if (context != self->context_ || !self->running_) return;
    if ((event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) == PA_SUBSCRIPTION_EVENT_SERVER) self->followDefaultSink();
}

void PulseCaptureSource::followDefaultSink() {
    pa_operation* operation = pa_context_get_server_info(context_, &PulseCaptureSource::onServerInfo, this);
    if (operation) {
        pa_operation_unref(operation);
    } else if (!stream_) {
        failRun(lostOrFailed());
    }
}

void PulseCaptureSource::onServerInfo(pa_context* context, const pa_server_info* info, void* opaque) {
    auto* self = static_cast<PulseCaptureSource*>(opaque);
    if (context != self->context_ || !self->running_) return;
    if (!info || !info->default_sink_name || !*info->default_sink_name) {
        // Without a default sink there is nothing to record; a running stream is left to the server,
        // which moves it when its sink goes away.
        if (!self->stream_) self->failRun(unavailable(AudioCaptureReason::noOutputDevice));
        return;
    }
    if (self->stream_ && self->defaultSink_ == info->default_sink_name) return;
    self->defaultSink_ = info->default_sink_name;
    pa_operation* operation = pa_context_get_sink_info_by_name(context, info->default_sink_name,
                                                               &PulseCaptureSource::onSinkInfo, self);
    if (operation) {
        pa_operation_unref(operation);
    } else if (!self->stream_) {
        self->failRun(self->lostOrFailed());
    }
}

void PulseCaptureSource::onSinkInfo(pa_context* context, const pa_sink_info* info, int eol, void* opaque) {
    auto* self = static_cast<PulseCaptureSource*>(opaque);
    if (context != self->context_ || !self->running_ || eol > 0) return;
    if (eol < 0 || !info || !info->monitor_source_name || !*info->monitor_source_name) {
        if (!self->stream_) self->failRun(unavailable(AudioCaptureReason::noOutputDevice));
        return;
    }
    // An answer overtaken by another change of the default sink is dropped; the newer one follows.
    if (self->defaultSink_ != info->name) return;
    const std::string monitor = info->monitor_source_name;
    if (!self->stream_) {
        self->openStream(monitor);
    } else if (monitor != self->recordedSource_) {
        if (self->streamReady_) {
            // Moving keeps the stream and its latency setting; the wave keeps moving.
            self->moveTarget_ = monitor;
            pa_operation* operation = pa_context_move_source_output_by_name(
                context, pa_stream_get_index(self->stream_), monitor.c_str(), &PulseCaptureSource::onMoved, self);
            if (operation) {
                pa_operation_unref(operation);
                return;
            }
        }
        self->detachStream();
        self->openStream(monitor);
    }
}

void PulseCaptureSource::onMoved(pa_context* context, int success, void* opaque) {
    auto* self = static_cast<PulseCaptureSource*>(opaque);
    if (context != self->context_ || !self->running_ || !self->stream_) return;
    if (success) {
        self->recordedSource_ = self->moveTarget_;
        return;
    }
    // The server would not move it: record the new monitor with a fresh stream instead.
    const std::string target = self->moveTarget_;
    self->detachStream();
    self->openStream(target);
}

void PulseCaptureSource::openStream(const std::string& monitorSource) {
    const pa_sample_spec spec{PA_SAMPLE_FLOAT32NE, sampleRate, channelCount};
    pa_channel_map map;
    pa_channel_map_init_stereo(&map);
    pa_proplist* properties = applicationProperties();
    pa_proplist_sets(properties, PA_PROP_MEDIA_NAME, "System audio level");
    stream_ = pa_stream_new_with_proplist(context_, "System audio level", &spec, &map, properties);
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
    // The server moved it by itself (its source went away): make sure it ends on the default monitor.
    self->defaultSink_.clear();
    self->followDefaultSink();
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
    const bool connectionUp = context_ && pa_context_get_state(context_) == PA_CONTEXT_READY;
    return {AudioCaptureFailure::unavailable,
            connectionUp ? AudioCaptureReason::recordingFailed : AudioCaptureReason::serverStopped};
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
    if (context_) {
        pa_context_set_state_callback(context_, nullptr, nullptr);
        pa_context_set_subscribe_callback(context_, nullptr, nullptr);
        if (pa_threaded_mainloop_in_thread(loop_)) {
            graveyard_.emplace_back(context_, nullptr);
            pa_mainloop_api_once(pa_threaded_mainloop_get_api(loop_), &PulseCaptureSource::onBury, this);
        } else {
            release(context_, nullptr);
        }
        context_ = nullptr;
    }
    defaultSink_.clear();
    recordedSource_.clear();
    moveTarget_.clear();
}

void PulseCaptureSource::detachStream() {
    if (!stream_) return;
    pa_stream_set_state_callback(stream_, nullptr, nullptr);
    pa_stream_set_read_callback(stream_, nullptr, nullptr);
    pa_stream_set_moved_callback(stream_, nullptr, nullptr);
    if (pa_threaded_mainloop_in_thread(loop_)) {
        // We may be inside one of this stream's own callbacks: release it a moment later.
        graveyard_.emplace_back(nullptr, stream_);
        pa_mainloop_api_once(pa_threaded_mainloop_get_api(loop_), &PulseCaptureSource::onBury, this);
    } else {
        release(nullptr, stream_);
    }
    stream_ = nullptr;
    streamReady_ = false;
}

void PulseCaptureSource::onBury(pa_mainloop_api*, void* opaque) { static_cast<PulseCaptureSource*>(opaque)->bury(); }

void PulseCaptureSource::bury() {
    auto graves = std::move(graveyard_);
    graveyard_.clear();
    for (auto [context, stream] : graves) release(context, stream);
}

std::unique_ptr<SystemAudioLevelMonitor> makePulseAudioLevelMonitor(
    std::function<void(const AudioVisualizationFrame&)> frameDidChange,
    std::function<void(AudioCaptureFailureReport)> captureDidFail, MainQueue& mainQueue, const Clock& clock,
    double fragmentSeconds) {
    return std::make_unique<SystemAudioLevelMonitor>(std::move(frameDidChange), std::move(captureDidFail),
                                                     std::make_unique<PulseCaptureSource>(fragmentSeconds),
                                                     mainQueue, clock);
}

}  // namespace lorvane
