#pragma once
// The default sink's volume, kept up to date by one long-lived connection to the sound server that
// subscribes to changes, so systemOutputVolume() answers at once from a cached value and never waits
// for the server. The value is the average over channels divided by the normal volume, clamped to
// 0...1; mute is not taken into account. Without a server, or when it goes away, the answer is 1.0 and
// the connection is tried again quietly every second. The same connection tells when the server
// (re)appears, so a capture that failed for lack of a server can be retried at once.

#include <atomic>
#include <pulse/def.h>

#include <cstdint>
#include <functional>
#include <string>

#include "core/Monitoring.h"

struct pa_threaded_mainloop;
struct pa_context;
struct pa_server_info;
struct pa_sink_info;
struct pa_mainloop_api;
struct pa_time_event;
struct timeval;

namespace lorvane {

class PulseOutputVolume final : public OutputVolume {
public:
    static constexpr const char* threadName = "lorvane-volume";

    // `serverDidAppear` is called on the connection's thread whenever the server is there with a default
    // sink again: after each (re)connection, and when a default sink appears on a server without one.
    explicit PulseOutputVolume(double reconnectSeconds = 1.0, std::function<void()> serverDidAppear = {});
    ~PulseOutputVolume() override;
    PulseOutputVolume(const PulseOutputVolume&) = delete;
    PulseOutputVolume& operator=(const PulseOutputVolume&) = delete;

    // Reads the cached value: no lock, no round trip.
    double systemOutputVolume() const override { return volume_.load(std::memory_order_relaxed); }

    // True while the connection to the server is up (for tests).
    bool connected() const { return connected_.load(); }

private:
    static void onConnect(pa_mainloop_api* api, void* self);
    static void onRetry(pa_mainloop_api* api, pa_time_event* event, const struct timeval* time, void* self);
    static void onContextState(pa_context* context, void* self);
    static void onEvent(pa_context* context, pa_subscription_event_type_t event, std::uint32_t index, void* self);
    static void onServerInfo(pa_context* context, const pa_server_info* info, void* self);
    static void onSinkInfo(pa_context* context, const pa_sink_info* info, int eol, void* self);

    // On the loop's thread:
    void connect();
    void connectionLost();
    void refresh();

    double reconnectSeconds_;
    std::function<void()> serverDidAppear_;
    pa_threaded_mainloop* loop_ = nullptr;
    bool loopRunning_ = false;
    pa_context* context_ = nullptr;
    pa_time_event* retry_ = nullptr;
    std::string defaultSink_;
    std::uint32_t defaultSinkIndex_ = static_cast<std::uint32_t>(-1);
    std::atomic<double> volume_{1.0};
    std::atomic<bool> connected_{false};
};

}  // namespace lorvane
