#pragma once
// A capture source driven by the test, for the situations a real sound server cannot be made to
// produce on demand. Like the real one it has a thread of its own: connecting and every block and
// failure happen there, in the order the test asks for them, and handlers run under a lock that
// stop() takes, so that stop() from another thread returns only once no handler is running.

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "core/capture/CaptureSource.h"

namespace lorvane::test {

class TestCaptureSource final : public CaptureSource {
public:
    // What the test can still read after the monitor has destroyed the source.
    struct Record {
        std::atomic<int> startCalls{0};
        std::atomic<int> stopCalls{0};
        std::atomic<int> streamsCreated{0};
        std::atomic<bool> streamLive{false};
        std::atomic<bool> destroyed{false};
        std::atomic<std::thread::id> captureThread{};
    };

    explicit TestCaptureSource(std::shared_ptr<Record> record, bool accessGranted = true)
        : record_(std::move(record)), accessGranted_(accessGranted), thread_([this] { work(); }) {}

    ~TestCaptureSource() override {
        stop();
        {
            std::lock_guard lock(queueMutex_);
            quitting_ = true;
        }
        queueChanged_.notify_all();
        thread_.join();
        record_->destroyed = true;
    }

    bool accessGranted() override { return accessGranted_; }

    // Every call launches a connection, like a start task would; the stream is made only when the
    // test calls connect(). (Not idempotent on purpose: that is the monitor's business.)
    void start(Handlers handlers) override {
        ++record_->startCalls;
        std::lock_guard lock(handlerMutex_);
        running_ = true;
        ++pendingConnections_;
        handlers_ = std::move(handlers);
    }

    void stop() override {
        ++record_->stopCalls;
        // From outside the capture thread this waits for a running handler to return.
        std::lock_guard lock(handlerMutex_);
        running_ = false;
        pendingConnections_ = 0;
        record_->streamLive = false;
    }

    // The pending connections complete: each makes a stream if the run is still live.
    void connect() {
        perform([this] {
            if (!running_) return;
            for (; pendingConnections_ > 1; --pendingConnections_) ++record_->streamsCreated;
            if (pendingConnections_ == 0) return;
            pendingConnections_ = 0;
            ++record_->streamsCreated;
            record_->streamLive = true;
        });
    }

    // Delivers interleaved stereo float samples as one block, and waits until it has been handled.
    void deliver(std::vector<float> interleaved, int channels = 2, SampleFormat format = SampleFormat::float32) {
        perform([this, samples = std::move(interleaved), channels, format] {
            if (!running_ || !record_->streamLive) return;
            handlers_.blockDidArrive(blockOf(samples, channels, format));
        });
    }

    // The stream stops with an error, as the server would report it.
    void failStream(AudioCaptureFailure failure) {
        perform([this, failure] {
            if (!running_) return;
            running_ = false;
            record_->streamLive = false;
            handlers_.didFail(failure);
        });
    }

    // A misbehaving or late platform answer: calls the run's failure handler even when the run is over.
    void lateFailure(AudioCaptureFailure failure) {
        perform([this, failure] {
            if (handlers_.didFail) handlers_.didFail(failure);
        });
    }

    // Like deliver(), but also when the run is over (a block already in flight).
    void lateBlock(std::vector<float> interleaved) {
        perform([this, samples = std::move(interleaved)] {
            if (handlers_.blockDidArrive) handlers_.blockDidArrive(blockOf(samples, 2));
        });
    }

    // Calls the run's failure handler on the calling thread, racing whatever the capture thread does.
    void failHere(AudioCaptureFailure failure) {
        Handlers handlers;
        {
            std::lock_guard lock(handlerMutex_);
            handlers = handlers_;
        }
        handlers.didFail(failure);
    }

private:
    static SampleBlock blockOf(const std::vector<float>& samples, int channels,
                               SampleFormat format = SampleFormat::float32) {
        SampleBlock block;
        block.format = format;
        block.channelsPerFrame = channels;
        block.interleaved = true;
        block.buffers.emplace_back(reinterpret_cast<const std::byte*>(samples.data()), samples.size() * sizeof(float));
        return block;
    }

    // Runs `job` on the capture thread, holding the handler lock, and waits for it.
    void perform(std::function<void()> job) {
        std::promise<void> done;
        auto finished = done.get_future();
        {
            std::lock_guard lock(queueMutex_);
            jobs_.push_back([this, job = std::move(job), &done] {
                {
                    std::lock_guard handlerLock(handlerMutex_);
                    job();
                }
                done.set_value();
            });
        }
        queueChanged_.notify_all();
        finished.wait();
    }

    void work() {
        pthread_setname_np(pthread_self(), "test-capture");
        record_->captureThread = std::this_thread::get_id();
        for (;;) {
            std::function<void()> job;
            {
                std::unique_lock lock(queueMutex_);
                queueChanged_.wait(lock, [this] { return quitting_ || !jobs_.empty(); });
                if (jobs_.empty()) return;
                job = std::move(jobs_.front());
                jobs_.pop_front();
            }
            job();
        }
    }

    std::shared_ptr<Record> record_;
    bool accessGranted_;
    std::recursive_mutex handlerMutex_;  // recursive: a handler may call stop() on this thread
    bool running_ = false;
    int pendingConnections_ = 0;
    Handlers handlers_;
    std::mutex queueMutex_;
    std::condition_variable queueChanged_;
    std::deque<std::function<void()>> jobs_;
    bool quitting_ = false;
    std::thread thread_;  // last: starts once everything above exists
};

}  // namespace lorvane::test
