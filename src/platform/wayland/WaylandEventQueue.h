#pragma once
// A Wayland event queue of our own on Qt's connection, so Qt's dispatching never sees our objects'
// events. A reader thread waits on the connection (taking part in libwayland's shared reading) and
// asks the GUI thread to dispatch whenever the queue holds events; every listener runs on the GUI
// thread.

#include <QObject>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

struct wl_display;
struct wl_event_queue;

namespace lorvane {

class WaylandEventQueue {
public:
    explicit WaylandEventQueue(wl_display* display);
    ~WaylandEventQueue();  // stops the reader; destroy every proxy on the queue first
    WaylandEventQueue(const WaylandEventQueue&) = delete;
    WaylandEventQueue& operator=(const WaylandEventQueue&) = delete;

    wl_display* display() const { return display_; }
    wl_event_queue* queue() const { return queue_; }
    // Sends what was asked so far.
    void flush();
    // A round trip on this queue only (at set-up, before the reader runs). False on a broken connection.
    bool roundtrip();
    // Starts the reader thread.
    void start();

private:
    void read();
    void dispatch();

    wl_display* display_;
    wl_event_queue* queue_;
    QObject context_;  // queued dispatch requests die with it
    std::thread reader_;
    std::mutex mutex_;
    std::condition_variable dispatched_;
    bool dispatchPending_ = false;
    std::atomic<bool> stopping_{false};
    int wakeup_[2] = {-1, -1};
};

}  // namespace lorvane
