#pragma once
// A main queue driven by hand, on virtual time. Work may be posted from any thread; it runs only
// inside runPending() / advance() on the calling ("main") thread.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "core/Clock.h"
#include "core/MainQueue.h"

namespace lorvane::test {

class ManualMainQueue final : public MainQueue {
public:
    explicit ManualMainQueue(ManualClock* clock = nullptr) : clock_(clock) {}

    void post(std::function<void()> work) override {
        {
            std::lock_guard lock(mutex_);
            posted_.push_back(std::move(work));
        }
        arrived_.notify_all();
    }

    void postAfter(double seconds, std::function<void()> work) override {
        std::lock_guard lock(mutex_);
        delayed_.emplace(now_ + seconds, std::move(work));
    }

    std::unique_ptr<RepeatingTimer> startRepeating(double interval, std::function<void()> tick) override {
        auto timer = std::make_unique<Timer>();
        timer->interval = interval;
        timer->next = now_ + interval;
        timer->tick = std::move(tick);
        timers_.push_back(timer.get());
        timer->owner = this;
        return timer;
    }

    // Runs everything posted so far (and what that posts in turn). Returns how many items ran.
    int runPending() {
        int ran = 0;
        for (;;) {
            std::function<void()> work;
            {
                std::lock_guard lock(mutex_);
                if (posted_.empty()) return ran;
                work = std::move(posted_.front());
                posted_.erase(posted_.begin());
            }
            work();
            ++ran;
        }
    }

    // Moves virtual time forward, firing delayed work and timer ticks in time order
    // (delayed work first when both fall due at the same instant).
    void advance(double seconds) {
        const double target = now_ + seconds;
        for (;;) {
            runPending();
            double dueDelayed = target + 1;
            {
                std::lock_guard lock(mutex_);
                if (!delayed_.empty()) dueDelayed = delayed_.begin()->first;
            }
            Timer* dueTimer = nullptr;
            for (Timer* timer : timers_) {
                if (!dueTimer || timer->next < dueTimer->next) dueTimer = timer;
            }
            const double dueTick = dueTimer ? dueTimer->next : target + 1;
            const double due = std::min(dueDelayed, dueTick);
            if (due > target) break;
            setNow(std::max(due, now_));
            if (dueDelayed <= dueTick) {
                std::function<void()> work;
                {
                    std::lock_guard lock(mutex_);
                    work = std::move(delayed_.begin()->second);
                    delayed_.erase(delayed_.begin());
                }
                work();
            } else {
                dueTimer->next += dueTimer->interval;
                dueTimer->tick();
            }
        }
        setNow(target);
        runPending();
    }

    // Waits (really) until posted work arrives from another thread or the bound passes, then runs it.
    // Returns true when `done` became true within the bound.
    bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds bound) {
        const auto deadline = std::chrono::steady_clock::now() + bound;
        while (!done()) {
            {
                std::unique_lock lock(mutex_);
                if (!arrived_.wait_until(lock, deadline, [&] { return !posted_.empty(); })) return done();
            }
            runPending();
        }
        return true;
    }

    double now() const { return now_; }
    std::size_t activeTimers() const { return timers_.size(); }
    std::size_t delayedCount() const {
        std::lock_guard lock(mutex_);
        return delayed_.size();
    }
    // Work posted and not yet run; only runPending() on the calling thread takes it away.
    std::size_t pendingCount() const {
        std::lock_guard lock(mutex_);
        return posted_.size();
    }

private:
    struct Timer final : RepeatingTimer {
        ~Timer() override { std::erase(owner->timers_, this); }
        ManualMainQueue* owner = nullptr;
        double interval = 0;
        double next = 0;
        std::function<void()> tick;
    };

    void setNow(double value) {
        if (clock_) clock_->advance(value - now_);
        now_ = value;
    }

    ManualClock* clock_;
    double now_ = 0;
    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<std::function<void()>> posted_;
    std::multimap<double, std::function<void()>> delayed_;
    std::vector<Timer*> timers_;
};

}  // namespace lorvane::test
