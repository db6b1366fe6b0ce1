#include "platform/linux/PulseOutputVolume.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <utility>

namespace lorvane {
namespace {

double normalisedVolume(const pa_cvolume& volume) {
    if (!pa_cvolume_valid(&volume)) return 1.0;
    const double value = static_cast<double>(pa_cvolume_avg(&volume)) / PA_VOLUME_NORM;
    if (value <= 0) return 0.0;
    return std::min(value, 1.0);
}

}  // namespace

PulseOutputVolume::PulseOutputVolume(double reconnectSeconds, std::function<void()> serverDidAppear)
    : reconnectSeconds_(reconnectSeconds), serverDidAppear_(std::move(serverDidAppear)) {
    loop_ = pa_threaded_mainloop_new();
    if (!loop_) return;
    pa_threaded_mainloop_set_name(loop_, threadName);
    pa_mainloop_api_once(pa_threaded_mainloop_get_api(loop_), &PulseOutputVolume::onConnect, this);
    loopRunning_ = pa_threaded_mainloop_start(loop_) == 0;
}

PulseOutputVolume::~PulseOutputVolume() {
    if (!loop_) return;
    // After the loop's thread has ended nothing else touches these.
    if (loopRunning_) pa_threaded_mainloop_stop(loop_);
    pa_mainloop_api* api = pa_threaded_mainloop_get_api(loop_);
    if (retry_) api->time_free(retry_);
    if (context_) {
        pa_context_set_state_callback(context_, nullptr, nullptr);
        pa_context_set_subscribe_callback(context_, nullptr, nullptr);
        pa_context_disconnect(context_);
        pa_context_unref(context_);
    }
    pa_threaded_mainloop_free(loop_);
}

void PulseOutputVolume::onConnect(pa_mainloop_api*, void* opaque) { static_cast<PulseOutputVolume*>(opaque)->connect(); }

void PulseOutputVolume::onRetry(pa_mainloop_api* api, pa_time_event* event, const struct timeval*, void* opaque) {
    auto* self = static_cast<PulseOutputVolume*>(opaque);
    api->time_free(event);
    self->retry_ = nullptr;
    self->connect();
}

void PulseOutputVolume::connect() {
    if (context_) {
        // The previous connection failed earlier; it is released here, outside its own callbacks.
        pa_context_set_state_callback(context_, nullptr, nullptr);
        pa_context_set_subscribe_callback(context_, nullptr, nullptr);
        pa_context_disconnect(context_);
        pa_context_unref(context_);
        context_ = nullptr;
    }
    pa_proplist* properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, "Lorvane");
    pa_proplist_sets(properties, PA_PROP_APPLICATION_ID, "com.tarnhollow.Lorvane");
    context_ = pa_context_new_with_proplist(pa_threaded_mainloop_get_api(loop_), "Lorvane", properties);
    pa_proplist_free(properties);
    if (!context_) {
        connectionLost();
        return;
    }
    pa_context_set_state_callback(context_, &PulseOutputVolume::onContextState, this);
    if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) connectionLost();
}

void PulseOutputVolume::connectionLost() {
    connected_ = false;
    volume_.store(1.0, std::memory_order_relaxed);
    defaultSink_.clear();
    defaultSinkIndex_ = PA_INVALID_INDEX;
    if (retry_) return;
    timeval when{};
    pa_gettimeofday(&when);
    pa_timeval_add(&when, static_cast<pa_usec_t>(reconnectSeconds_ * PA_USEC_PER_SEC));
    pa_mainloop_api* api = pa_threaded_mainloop_get_api(loop_);
    retry_ = api->time_new(api, &when, &PulseOutputVolume::onRetry, this);
}

void PulseOutputVolume::onContextState(pa_context* context, void* opaque) {
    auto* self = static_cast<PulseOutputVolume*>(opaque);
    if (context != self->context_) return;
    switch (pa_context_get_state(context)) {
        case PA_CONTEXT_READY: {
            self->connected_ = true;
            pa_context_set_subscribe_callback(context, &PulseOutputVolume::onEvent, self);
            const auto mask = static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SERVER | PA_SUBSCRIPTION_MASK_SINK);
            if (pa_operation* operation = pa_context_subscribe(context, mask, nullptr, nullptr)) {
                pa_operation_unref(operation);
            }
            self->refresh();
            break;
        }
        case PA_CONTEXT_FAILED:
        case PA_CONTEXT_TERMINATED:
            self->connectionLost();
            break;
        default:
            break;
    }
}

void PulseOutputVolume::refresh() {
    if (pa_operation* operation = pa_context_get_server_info(context_, &PulseOutputVolume::onServerInfo, this)) {
        pa_operation_unref(operation);
    }
}

void PulseOutputVolume::onEvent(pa_context* context, pa_subscription_event_type_t event, std::uint32_t index, void* opaque) {
    auto* self = static_cast<PulseOutputVolume*>(opaque);
    if (context != self->context_) return;
    const int facility = event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const int type = event & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
    if (facility == PA_SUBSCRIPTION_EVENT_SERVER) {
        self->refresh();  // perhaps another default sink
    } else if (facility == PA_SUBSCRIPTION_EVENT_SINK) {
        if (type != PA_SUBSCRIPTION_EVENT_CHANGE) {
            self->refresh();  // a sink came or went
        } else if (index == self->defaultSinkIndex_) {
            if (pa_operation* operation =
                    pa_context_get_sink_info_by_index(context, index, &PulseOutputVolume::onSinkInfo, self)) {
                pa_operation_unref(operation);
            }
        }
    }
}

void PulseOutputVolume::onServerInfo(pa_context* context, const pa_server_info* info, void* opaque) {
    auto* self = static_cast<PulseOutputVolume*>(opaque);
    if (context != self->context_) return;
    if (!info || !info->default_sink_name || !*info->default_sink_name) {
        self->defaultSink_.clear();
        self->defaultSinkIndex_ = PA_INVALID_INDEX;
        self->volume_.store(1.0, std::memory_order_relaxed);
        return;
    }
    self->defaultSink_ = info->default_sink_name;
    if (pa_operation* operation = pa_context_get_sink_info_by_name(context, info->default_sink_name,
                                                                   &PulseOutputVolume::onSinkInfo, self)) {
        pa_operation_unref(operation);
    }
}

void PulseOutputVolume::onSinkInfo(pa_context* context, const pa_sink_info* info, int eol, void* opaque) {
    auto* self = static_cast<PulseOutputVolume*>(opaque);
    if (context != self->context_ || eol > 0) return;
    if (eol < 0 || !info) {
        // The default sink vanished between the two questions; the server event that follows asks again.
        self->volume_.store(1.0, std::memory_order_relaxed);
        return;
    }
    if (!info->name || self->defaultSink_ != info->name) return;  // overtaken by a newer default sink
    // A server that answers with an output to record: after a (re)connection, or once a default sink
    // shows up on a server that had none.
    const bool appeared = self->defaultSinkIndex_ == PA_INVALID_INDEX;
    self->defaultSinkIndex_ = info->index;
    self->volume_.store(normalisedVolume(info->volume), std::memory_order_relaxed);
    if (appeared && self->serverDidAppear_) self->serverDidAppear_();
}

}  // namespace lorvane
