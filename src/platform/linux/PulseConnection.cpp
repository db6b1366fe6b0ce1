#include "platform/linux/PulseConnection.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <utility>

namespace lorvane {
namespace {

constexpr const char* applicationName = "Lorvane";
constexpr const char* applicationId = "com.tarnhollow.Lorvane";

double averageVolume(const pa_cvolume& volume) {
    if (!pa_cvolume_valid(&volume)) return 1.0;
    return static_cast<double>(pa_cvolume_avg(&volume)) / PA_VOLUME_NORM;
}

void releaseContext(pa_context* context) {
    pa_context_set_state_callback(context, nullptr, nullptr);
    pa_context_set_subscribe_callback(context, nullptr, nullptr);
    pa_context_disconnect(context);
    pa_context_unref(context);
}

void releaseStreamNow(pa_stream* stream) {
    pa_stream_disconnect(stream);  // fails harmlessly once the connection is gone
    pa_stream_unref(stream);
}

}  // namespace

PulseConnection::PulseConnection(double reconnectSeconds) : reconnectSeconds_(reconnectSeconds) {
    loop_ = pa_threaded_mainloop_new();
    if (!loop_) return;
    pa_threaded_mainloop_set_name(loop_, threadName);
    loopRunning_ = pa_threaded_mainloop_start(loop_) == 0;
}

PulseConnection::~PulseConnection() {
    if (!loop_) return;
    // After the loop's thread has ended nothing else touches these.
    if (loopRunning_) pa_threaded_mainloop_stop(loop_);
    if (retry_) pa_threaded_mainloop_get_api(loop_)->time_free(retry_);
    for (pa_stream* stream : deadStreams_) releaseStreamNow(stream);
    for (pa_context* context : deadContexts_) releaseContext(context);
    if (context_) releaseContext(context_);
    pa_threaded_mainloop_free(loop_);
}

PulseConnection::Lock::Lock(const PulseConnection& connection) : connection_(connection) {
    if (connection_.loop_ && !connection_.inLoopThread()) {
        pa_threaded_mainloop_lock(connection_.loop_);
        locked_ = true;
    }
}

PulseConnection::Lock::~Lock() {
    if (locked_) pa_threaded_mainloop_unlock(connection_.loop_);
}

bool PulseConnection::inLoopThread() const { return loop_ && pa_threaded_mainloop_in_thread(loop_); }

PulseConnection::ObserverId PulseConnection::addObserver(Observer observer) {
    Lock lock(*this);
    auto entry = std::make_shared<Entry>();
    entry->id = nextId_++;
    entry->observer = std::move(observer);
    observers_.push_back(entry);
    return entry->id;
}

void PulseConnection::removeObserver(ObserverId id) {
    Lock lock(*this);
    const auto found = std::find_if(observers_.begin(), observers_.end(), [&](const auto& entry) { return entry->id == id; });
    if (found == observers_.end()) return;
    (*found)->removed = true;
    const bool wasNeeded = (*found)->needed;
    observers_.erase(found);
    std::erase_if(posted_, [&](const Posted& posted) { return posted.id == id; });
    if (wasNeeded) {
        reconsiderQueued_ = true;
        wake();
    }
}

void PulseConnection::setNeeded(ObserverId id, bool needed) {
    Lock lock(*this);
    for (auto& entry : observers_) {
        if (entry->id != id || entry->needed == needed) continue;
        entry->needed = needed;
        // A user that newly needs the connection wants an answer now, not at the next retry.
        if (needed) attemptNow_ = true;
        reconsiderQueued_ = true;
        wake();
    }
}

void PulseConnection::post(ObserverId id, std::function<void()> work) {
    Lock lock(*this);
    posted_.push_back({id, std::move(work)});
    wake();
}

void PulseConnection::wake() {
    if (deferredQueued_ || !loopRunning_) return;
    deferredQueued_ = true;
    pa_mainloop_api_once(pa_threaded_mainloop_get_api(loop_), &PulseConnection::onDeferred, this);
}

void PulseConnection::onDeferred(pa_mainloop_api*, void* opaque) { static_cast<PulseConnection*>(opaque)->runDeferred(); }

void PulseConnection::runDeferred() {
    deferredQueued_ = false;
    auto streams = std::exchange(deadStreams_, {});
    for (pa_stream* stream : streams) releaseStreamNow(stream);
    auto contexts = std::exchange(deadContexts_, {});
    for (pa_context* context : contexts) releaseContext(context);
    if (reconsiderQueued_) {
        reconsiderQueued_ = false;
        reconsider();
    }
    auto posted = std::exchange(posted_, {});
    for (auto& item : posted) {
        // Work of an observer removed by earlier work in this batch is dropped.
        const bool present = std::any_of(observers_.begin(), observers_.end(),
                                         [&](const auto& entry) { return entry->id == item.id; });
        if (present) item.work();
    }
}

bool PulseConnection::needed() const {
    return std::any_of(observers_.begin(), observers_.end(), [](const auto& entry) { return entry->needed; });
}

void PulseConnection::reconsider() {
    const bool attemptNow = std::exchange(attemptNow_, false);
    if (!needed()) {
        if (state_ != State::idle) disconnect();
        return;
    }
    if (state_ == State::idle || (state_ == State::waitingToRetry && attemptNow)) connect();
}

void PulseConnection::connect() {
    cancelRetry();
    pa_proplist* properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, applicationName);
    pa_proplist_sets(properties, PA_PROP_APPLICATION_ID, applicationId);
    context_ = pa_context_new_with_proplist(pa_threaded_mainloop_get_api(loop_), applicationName, properties);
    pa_proplist_free(properties);
    state_ = State::connecting;
    reachedReady_ = false;
    if (!context_) {
        lost({.couldNotStart = true});
        return;
    }
    pa_context_set_state_callback(context_, &PulseConnection::onContextState, this);
    if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0 && context_) {
        lost({.refused = pa_context_errno(context_) == PA_ERR_ACCESS});
    }
}

void PulseConnection::disconnect() {
    // Nobody needs the connection: it ends quietly.
    cancelRetry();
    if (context_) {
        pa_context_set_state_callback(context_, nullptr, nullptr);
        pa_context_set_subscribe_callback(context_, nullptr, nullptr);
        deadContexts_.push_back(std::exchange(context_, nullptr));
        wake();
    }
    state_ = State::idle;
    connected_ = false;
    sinkKnowledge_ = SinkKnowledge::unknown;
    defaultSink_ = {};
    askedSink_.clear();
    pendingServerInfo_ = 0;
}

void PulseConnection::lost(Ending ending) {
    disconnect();
    if (needed()) {
        state_ = State::waitingToRetry;
        scheduleRetry();
    }
    forEachObserver([&](const Observer& observer) {
        if (observer.didDisconnect) observer.didDisconnect(ending);
    });
}

void PulseConnection::scheduleRetry() {
    if (retry_) return;
    timeval when{};
    pa_gettimeofday(&when);
    pa_timeval_add(&when, static_cast<pa_usec_t>(reconnectSeconds_ * PA_USEC_PER_SEC));
    pa_mainloop_api* api = pa_threaded_mainloop_get_api(loop_);
    retry_ = api->time_new(api, &when, &PulseConnection::onRetry, this);
}

void PulseConnection::cancelRetry() {
    if (!retry_) return;
    pa_threaded_mainloop_get_api(loop_)->time_free(retry_);
    retry_ = nullptr;
}

void PulseConnection::onRetry(pa_mainloop_api* api, pa_time_event* event, const struct timeval*, void* opaque) {
    auto* self = static_cast<PulseConnection*>(opaque);
    api->time_free(event);
    self->retry_ = nullptr;
    if (self->state_ != State::waitingToRetry) return;
    if (self->needed()) {
        self->connect();
    } else {
        self->state_ = State::idle;
    }
}

void PulseConnection::onContextState(pa_context* context, void* opaque) {
    auto* self = static_cast<PulseConnection*>(opaque);
    if (context != self->context_) return;
    switch (pa_context_get_state(context)) {
        case PA_CONTEXT_READY: {
            self->state_ = State::ready;
            self->reachedReady_ = true;
            self->connected_ = true;
            pa_context_set_subscribe_callback(context, &PulseConnection::onEvent, self);
            // One subscription for everyone: a new default sink shows up as a change of the server, a
            // volume as a change of its sink.
            const auto mask = static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SERVER | PA_SUBSCRIPTION_MASK_SINK);
            if (pa_operation* operation = pa_context_subscribe(context, mask, nullptr, nullptr)) {
                pa_operation_unref(operation);
            }
            self->refreshDefaultSink();
            break;
        }
        case PA_CONTEXT_FAILED:
        case PA_CONTEXT_TERMINATED: {
            // Only the server's answer to our credentials means "not allowed"; losing an accepted
            // connection later is just the server going away.
            const bool refused = !self->reachedReady_ && pa_context_errno(context) == PA_ERR_ACCESS;
            self->lost({.refused = refused, .wasAccepted = self->reachedReady_});
            break;
        }
        default:
            break;
    }
}

void PulseConnection::refreshDefaultSink() {
    if (state_ != State::ready) return;
    if (pa_operation* operation = pa_context_get_server_info(context_, &PulseConnection::onServerInfo, this)) {
        pa_operation_unref(operation);
        ++pendingServerInfo_;
    }
}

void PulseConnection::onEvent(pa_context* context, pa_subscription_event_type_t event, std::uint32_t index, void* opaque) {
    auto* self = static_cast<PulseConnection*>(opaque);
    if (context != self->context_) return;
    const int facility = event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const int type = event & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
    if (facility == PA_SUBSCRIPTION_EVENT_SERVER) {
        self->refreshDefaultSink();  // perhaps another default sink
    } else if (facility == PA_SUBSCRIPTION_EVENT_SINK) {
        if (type != PA_SUBSCRIPTION_EVENT_CHANGE) {
            self->refreshDefaultSink();  // a sink came or went
        } else if (self->sinkKnowledge_ == SinkKnowledge::known && index == self->defaultSink_.index) {
            if (pa_operation* operation =
                    pa_context_get_sink_info_by_index(context, index, &PulseConnection::onSinkInfo, self)) {
                pa_operation_unref(operation);
            }
        }
    }
}

void PulseConnection::onServerInfo(pa_context* context, const pa_server_info* info, void* opaque) {
    auto* self = static_cast<PulseConnection*>(opaque);
    if (context != self->context_) return;
    if (self->pendingServerInfo_ > 0) --self->pendingServerInfo_;
    if (!info || !info->default_sink_name || !*info->default_sink_name) {
        self->askedSink_.clear();
        self->setSinkNone();
        return;
    }
    self->askedSink_ = info->default_sink_name;
    if (pa_operation* operation =
            pa_context_get_sink_info_by_name(context, info->default_sink_name, &PulseConnection::onSinkInfo, self)) {
        pa_operation_unref(operation);
    }
}

void PulseConnection::onSinkInfo(pa_context* context, const pa_sink_info* info, int eol, void* opaque) {
    auto* self = static_cast<PulseConnection*>(opaque);
    if (context != self->context_ || eol > 0) return;
    if (eol < 0 || !info) {
        // The sink vanished between the two questions. When a newer answer is on its way it says
        // what the default is now; otherwise the server event that follows asks again.
        if (self->pendingServerInfo_ == 0) self->setSinkNone();
        return;
    }
    if (!info->name || self->askedSink_ != info->name) return;  // overtaken by a newer default sink
    DefaultSink next;
    next.name = info->name;
    next.index = info->index;
    if (info->monitor_source_name) next.monitorSource = info->monitor_source_name;
    next.volume = averageVolume(info->volume);
    SinkChange change;
    change.appeared = self->sinkKnowledge_ != SinkKnowledge::known;
    change.sink = change.appeared || next.name != self->defaultSink_.name ||
                  next.monitorSource != self->defaultSink_.monitorSource || next.index != self->defaultSink_.index;
    change.volume = change.appeared || next.volume != self->defaultSink_.volume;
    self->sinkKnowledge_ = SinkKnowledge::known;
    self->defaultSink_ = std::move(next);
    if (change.sink || change.volume) self->announce(change);
}

void PulseConnection::setSinkNone() {
    if (sinkKnowledge_ == SinkKnowledge::none) return;
    sinkKnowledge_ = SinkKnowledge::none;
    defaultSink_ = {};
    announce({.sink = true, .volume = true});
}

void PulseConnection::announce(SinkChange change) {
    forEachObserver([&](const Observer& observer) {
        if (observer.defaultSinkDidChange) observer.defaultSinkDidChange(change);
    });
}

template <typename Call>
void PulseConnection::forEachObserver(Call call) {
    // An observer may remove itself or another one while being told.
    const auto entries = observers_;
    for (const auto& entry : entries) {
        if (!entry->removed) call(entry->observer);
    }
}

void PulseConnection::releaseStream(pa_stream* stream) {
    if (!stream) return;
    if (inLoopThread()) {
        // This may be the stream whose callback is running.
        deadStreams_.push_back(stream);
        wake();
    } else {
        releaseStreamNow(stream);
    }
}

}  // namespace lorvane
