#pragma once
// The program's one connection to the sound server: libpulse's threaded main loop on one thread
// ("lorvane-pulse") and one context, shared by capture and the output volume so the two always see
// the same server and the same default sink.
//
// It connects while at least one user needs it (the output volume always, capture during a run) and,
// while needed, tries again quietly every `reconnectSeconds` when the server is absent or goes away.
// A user that newly needs it while it waits for that retry gets an attempt at once. Once connected it
// subscribes to server and sink events and follows the default sink: its name, index, monitor source
// and volume. Users observe it through callbacks that run on the loop's thread with the loop's lock
// held; everything else that touches the connection's state takes that lock (Lock below).

#include <pulse/def.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

struct pa_threaded_mainloop;
struct pa_context;
struct pa_stream;
struct pa_server_info;
struct pa_sink_info;
struct pa_mainloop_api;
struct pa_time_event;
struct timeval;

namespace lorvane {

class PulseConnection {
public:
    static constexpr const char* threadName = "lorvane-pulse";

    enum class State { idle, connecting, ready, waitingToRetry };

    // What the connection knows of the default sink.
    enum class SinkKnowledge {
        unknown,  // not connected, or the server has not answered yet
        none,     // the server has no default sink (or it vanished while asked about)
        known,
    };

    struct DefaultSink {
        std::string name;
        std::uint32_t index = PA_INVALID_INDEX;
        std::string monitorSource;
        // The average over channels divided by the normal volume, not clamped; mute is not counted.
        double volume = 1.0;
    };

    // What one announcement of the default sink changed.
    struct SinkChange {
        bool appeared = false;  // known again after being unknown or none (a (re)connection, a first sink)
        bool sink = false;      // another sink (or none) is the default now
        bool volume = false;
    };

    // How a connection ended: refused by the server, never reached, or lost after it was accepted; or
    // libpulse could not even make one.
    struct Ending {
        bool refused = false;
        bool wasAccepted = false;
        bool couldNotStart = false;
    };

    struct Observer {
        // An attempt failed or the connection was lost (not when it ends because nobody needs it).
        std::function<void(Ending)> didDisconnect;
        std::function<void(SinkChange)> defaultSinkDidChange;
    };
    using ObserverId = std::uint64_t;

    explicit PulseConnection(double reconnectSeconds = 1.0);
    // Ends the loop's thread: the last reference must be dropped on another thread, after every
    // observer has been removed.
    ~PulseConnection();
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    // False when the loop's thread could not be started: nothing here then does anything.
    bool running() const { return loopRunning_; }

    // Holds the loop's lock, unless already on the loop's thread (which holds it in every callback).
    class Lock {
    public:
        explicit Lock(const PulseConnection& connection);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        const PulseConnection& connection_;
        bool locked_ = false;
    };

    // Any thread. Observers are called on the loop's thread; once removeObserver() returns, the
    // observer is not running and is never called again, and its posted work is dropped.
    ObserverId addObserver(Observer observer);
    void removeObserver(ObserverId id);
    // Any thread: whether this observer needs the connection up.
    void setNeeded(ObserverId id, bool needed);
    // Any thread: runs `work` on the loop's thread soon, unless the observer is removed first.
    void post(ObserverId id, std::function<void()> work);

    // With the lock held (or on the loop's thread):
    bool inLoopThread() const;
    State state() const { return state_; }
    SinkKnowledge sinkKnowledge() const { return sinkKnowledge_; }
    const DefaultSink& defaultSink() const { return defaultSink_; }
    // The live context while ready, else null. Streams made on it belong to the user that made them.
    pa_context* context() const { return state_ == State::ready ? context_ : nullptr; }
    // Asks the server again which sink is the default; observers hear of what changed.
    void refreshDefaultSink();
    // Disconnects and unrefs a stream now, or just after the current callback when on the loop's thread
    // (where it may be the stream whose callback is running).
    void releaseStream(pa_stream* stream);

    // Any thread, no lock: whether the connection is up.
    bool connected() const { return connected_.load(); }

private:
    struct Entry {
        ObserverId id = 0;
        Observer observer;
        bool needed = false;
        bool removed = false;
    };
    struct Posted {
        ObserverId id = 0;
        std::function<void()> work;
    };

    static void onDeferred(pa_mainloop_api* api, void* self);
    static void onRetry(pa_mainloop_api* api, pa_time_event* event, const struct timeval* time, void* self);
    static void onContextState(pa_context* context, void* self);
    static void onEvent(pa_context* context, pa_subscription_event_type_t event, std::uint32_t index, void* self);
    static void onServerInfo(pa_context* context, const pa_server_info* info, void* self);
    static void onSinkInfo(pa_context* context, const pa_sink_info* info, int eol, void* self);

    // On the loop's thread:
    void runDeferred();
    void reconsider();
    void connect();
    void disconnect();
    void lost(Ending ending);
    void scheduleRetry();
    void cancelRetry();
    void setSinkNone();
    void announce(SinkChange change);
    bool needed() const;
    template <typename Call>
    void forEachObserver(Call call);

    // Any thread, lock held:
    void wake();

    double reconnectSeconds_;
    pa_threaded_mainloop* loop_ = nullptr;
    bool loopRunning_ = false;
    State state_ = State::idle;
    pa_context* context_ = nullptr;
    pa_time_event* retry_ = nullptr;
    bool reachedReady_ = false;
    bool attemptNow_ = false;
    int pendingServerInfo_ = 0;  // questions about the default sink still unanswered
    SinkKnowledge sinkKnowledge_ = SinkKnowledge::unknown;
    DefaultSink defaultSink_;
    std::string askedSink_;  // the default sink named by the server's latest answer
    std::vector<std::shared_ptr<Entry>> observers_;
    ObserverId nextId_ = 1;
    std::vector<Posted> posted_;
    bool deferredQueued_ = false;
    bool reconsiderQueued_ = false;
    // Contexts and streams ended on the loop's thread are released a moment later, outside the
    // libpulse callback that ended them.
    std::vector<pa_context*> deadContexts_;
    std::vector<pa_stream*> deadStreams_;
    std::atomic<bool> connected_{false};
};

}  // namespace lorvane
