#pragma once
// Time sources, injected so tests can drive time by hand.

#include <atomic>

namespace lorvane {

// Seconds as a 64-bit float.
class Clock {
public:
    virtual ~Clock() = default;
    virtual double now() const = 0;
};

// Monotonic seconds (the steady clock); never 0 after start-up, since 0 means "never" to the analysis.
class SteadyClock final : public Clock {
public:
    double now() const override;
};

// Wall-clock seconds since 1 January 2001 UTC (the reference date of the wave's time and of back-off dates).
class ReferenceDateClock final : public Clock {
public:
    double now() const override;
};

// A clock that only moves when told to; safe to read from another thread.
class ManualClock final : public Clock {
public:
    explicit ManualClock(double start = 1000.0) : now_(start) {}
    double now() const override { return now_.load(); }
    void set(double seconds) { now_.store(seconds); }
    void advance(double seconds) { now_.store(now_.load() + seconds); }

private:
    std::atomic<double> now_;
};

}  // namespace lorvane
