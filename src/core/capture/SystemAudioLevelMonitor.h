#pragma once
// One capture run of the system's audio output at a time: blocks from a capture source are analysed on
// the source's thread, frames and at most one failure per run reach the main thread through the
// callbacks. Everything but the analysis is decided on the main thread; failures from any thread pass
// through the single guard in reportFailure().

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

#include "core/AudioCaptureFailure.h"
#include "core/AudioVisualizationFrame.h"
#include "core/Clock.h"
#include "core/MainQueue.h"
#include "core/Monitoring.h"
#include "core/analysis/AudioAnalyzer.h"
#include "core/capture/CaptureSource.h"

namespace lorvane {

class SystemAudioLevelMonitor final : public AudioLevelMonitoring {
public:
    SystemAudioLevelMonitor(std::function<void(const AudioVisualizationFrame&)> frameDidChange,
                            std::function<void(AudioCaptureFailureReport)> captureDidFail,
                            std::unique_ptr<CaptureSource> source, MainQueue& mainQueue, const Clock& clock);
    // Ends any run through the source's destructor; nothing is called afterwards.
    ~SystemAudioLevelMonitor() override;
    SystemAudioLevelMonitor(const SystemAudioLevelMonitor&) = delete;
    SystemAudioLevelMonitor& operator=(const SystemAudioLevelMonitor&) = delete;

    // Main thread. Begins a capture run; does nothing while one is requested.
    void start() override;
    // Main thread. Ends the run silently and resets the analysis (the learnt tempo stays).
    void stop() override;

    // True from start() until stop() or the run's first failure.
    bool captureRequested() const { return captureRequested_.load(); }
    // For tests and tools; safe from the main thread.
    double tempoFactor() const;
    double smoothedLevel() const;
    // NaN and infinite samples read as silence since construction.
    std::size_t nonFiniteSampleCount() const;

private:
    void handleBlock(const SampleBlock& block);      // capture thread
    void reportFailure(AudioCaptureFailureReport failure);  // any thread; the single exit for failures

    std::function<void(const AudioVisualizationFrame&)> frameDidChange_;
    std::function<void(AudioCaptureFailureReport)> captureDidFail_;
    MainQueue& mainQueue_;
    const Clock& clock_;
    std::atomic<bool> captureRequested_{false};
    // The analysis runs on the capture thread; the main thread only touches it at start and stop.
    // The mutex makes those rare crossings safe; it is never contended while blocks flow.
    mutable std::mutex analysisMutex_;
    AudioAnalyzer analyzer_;
    bool nonFiniteWarned_ = false;  // capture thread: said once per run, never per block
    LifetimeToken lifetime_;
    std::unique_ptr<CaptureSource> source_;  // last: destroyed first, so its thread ends before the rest
};

}  // namespace lorvane
