#include "ui/FrameTicker.h"

#include <algorithm>
#include <cmath>

namespace lorvane {

FrameTicker::FrameTicker(std::function<void()> tick) : tick_(std::move(tick)) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer_, &QTimer::timeout, [this] { fire(); });
    clock_.start();
}

double FrameTicker::nextDue(double due, double now) {
    const double next = due + minimumInterval;
    return next < now ? now + minimumInterval : next;
}

int FrameTicker::delayMilliseconds(double due, double now) {
    return std::max(0, static_cast<int>(std::ceil((due - now) * 1000.0 - 1e-9)));
}

double FrameTicker::now() const { return static_cast<double>(clock_.nsecsElapsed()) / 1e9; }

void FrameTicker::start() {
    if (running_) return;
    running_ = true;
    // Whoever starts the ticker has just drawn a frame; the next one is an interval away.
    due_ = now() + minimumInterval;
    arm();
}

void FrameTicker::stop() {
    running_ = false;
    timer_.stop();
}

void FrameTicker::arm() { timer_.start(delayMilliseconds(due_, now())); }

void FrameTicker::fire() {
    if (!running_) return;
    const double current = now();
    if (current < due_) {  // a timer that came early waits for the rest
        arm();
        return;
    }
    ++ticks_;
    due_ = nextDue(due_, current);
    tick_();
    if (running_) arm();
}

}  // namespace lorvane
