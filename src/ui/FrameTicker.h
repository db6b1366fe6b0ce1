#pragma once
// The wave's frame source: calls `tick` at most 30 times a second while running, and not at all
// (no timer, no wake-ups) while stopped.

#include <QElapsedTimer>
#include <QTimer>
#include <functional>

namespace lorvane {

class FrameTicker {
public:
    static constexpr double minimumInterval = 1.0 / 30;

    explicit FrameTicker(std::function<void()> tick);
    void start();
    void stop();
    bool isRunning() const { return running_; }
    long long ticks() const { return ticks_; }

    // The time of the frame after one due at `due`, with the clock now at `now`: one interval later,
    // or one interval from now after a stall (no burst of catch-up frames).
    static double nextDue(double due, double now);
    // The timer delay in whole milliseconds for a frame due at `due`, rounded up so it is never early.
    static int delayMilliseconds(double due, double now);

private:
    void fire();
    void arm();
    double now() const;

    std::function<void()> tick_;
    QTimer timer_;
    QElapsedTimer clock_;
    double due_ = 0;
    bool running_ = false;
    long long ticks_ = 0;
};

}  // namespace lorvane
