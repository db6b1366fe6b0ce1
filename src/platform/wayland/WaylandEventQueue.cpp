#include "platform/wayland/WaylandEventQueue.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <wayland-client.h>

#include <QMetaObject>

#include "core/Logging.h"

namespace lorvane {

WaylandEventQueue::WaylandEventQueue(wl_display* display)
    : display_(display), queue_(wl_display_create_queue(display)) {
    if (::pipe2(wakeup_, O_CLOEXEC | O_NONBLOCK) != 0) wakeup_[0] = wakeup_[1] = -1;
}

WaylandEventQueue::~WaylandEventQueue() {
    if (reader_.joinable()) {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        dispatched_.notify_all();
        if (wakeup_[1] >= 0) (void)!::write(wakeup_[1], "x", 1);
        reader_.join();
    }
    // Events still queued for destroyed proxies are dropped with the queue.
    wl_event_queue_destroy(queue_);
    for (int fd : wakeup_)
        if (fd >= 0) ::close(fd);
}

void WaylandEventQueue::flush() { wl_display_flush(display_); }

bool WaylandEventQueue::roundtrip() { return wl_display_roundtrip_queue(display_, queue_) >= 0; }

void WaylandEventQueue::start() {
    if (reader_.joinable() || wakeup_[0] < 0) return;
    reader_ = std::thread([this] { read(); });
}

void WaylandEventQueue::read() {
    const int fd = wl_display_get_fd(display_);
    while (!stopping_) {
        if (wl_display_prepare_read_queue(display_, queue_) != 0) {
            // Events are waiting: the GUI thread dispatches them, and we read again once it has.
            std::unique_lock lock(mutex_);
            if (!dispatchPending_) {
                dispatchPending_ = true;
                QMetaObject::invokeMethod(&context_, [this] { dispatch(); }, Qt::QueuedConnection);
            }
            dispatched_.wait(lock, [this] { return !dispatchPending_ || stopping_; });
            continue;
        }
        wl_display_flush(display_);
        pollfd fds[2] = {{fd, POLLIN, 0}, {wakeup_[0], POLLIN, 0}};
        const int ready = ::poll(fds, 2, -1);
        if (ready > 0 && (fds[0].revents & POLLIN) && !stopping_) {
            if (wl_display_read_events(display_) < 0) {
                qCWarning(lcOverlay, "The Wayland connection broke; the overlay stops drawing");
                return;
            }
        } else {
            wl_display_cancel_read(display_);
            if (ready > 0 && (fds[0].revents & (POLLERR | POLLHUP))) return;
        }
    }
}

void WaylandEventQueue::dispatch() {
    wl_display_dispatch_queue_pending(display_, queue_);
    wl_display_flush(display_);
    {
        std::lock_guard lock(mutex_);
        dispatchPending_ = false;
    }
    dispatched_.notify_all();
}

}  // namespace lorvane
