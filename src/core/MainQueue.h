#pragma once
// The main thread's queue: posting work to it from any thread, delayed work and repeating timers.
// The application runs it on Qt's event loop; tests run it by hand.

#include <functional>
#include <memory>

namespace lorvane {

class RepeatingTimer {
public:
    virtual ~RepeatingTimer() = default;  // destroying the timer stops it
};

class MainQueue {
public:
    virtual ~MainQueue() = default;
    // Thread-safe: runs `work` on the main thread, after what is already queued.
    virtual void post(std::function<void()> work) = 0;
    // Main thread: runs `work` on the main thread after `seconds`.
    virtual void postAfter(double seconds, std::function<void()> work) = 0;
    // Main thread: calls `tick` every `interval` seconds until the returned timer is destroyed.
    virtual std::unique_ptr<RepeatingTimer> startRepeating(double interval, std::function<void()> tick) = 0;
};

// Weak references for posted work and callbacks: an owner holds a LifetimeToken, work captures a
// weak reference to it and does nothing once the owner is gone.
class LifetimeToken {
public:
    LifetimeToken() : alive_(std::make_shared<bool>(true)) {}
    LifetimeToken(const LifetimeToken&) = delete;
    LifetimeToken& operator=(const LifetimeToken&) = delete;
    std::weak_ptr<bool> weak() const { return alive_; }

private:
    std::shared_ptr<bool> alive_;
};

}  // namespace lorvane
