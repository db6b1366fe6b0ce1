#include "core/capture/SystemAudioLevelMonitor.h"

#include "core/Logging.h"

namespace lorvane {

SystemAudioLevelMonitor::SystemAudioLevelMonitor(std::function<void(const AudioVisualizationFrame&)> frameDidChange,
                                                 std::function<void(AudioCaptureFailureReport)> captureDidFail,
                                                 std::unique_ptr<CaptureSource> source, MainQueue& mainQueue,
                                                 const Clock& clock)
    : frameDidChange_(std::move(frameDidChange)),
      captureDidFail_(std::move(captureDidFail)),
      mainQueue_(mainQueue),
      clock_(clock),
      source_(std::move(source)) {}

SystemAudioLevelMonitor::~SystemAudioLevelMonitor() {
    // The source's thread calls into this object. Once stop() returns no handler runs or will run,
    // so the source can then go without a handler finding it half destroyed.
    source_->stop();
    source_.reset();
}

void SystemAudioLevelMonitor::start() {
    if (captureRequested_.load()) return;
    captureRequested_.store(true);
    {
        // The silence watch counts from here.
        std::lock_guard lock(analysisMutex_);
        analyzer_.beginRun(clock_.now());
        nonFiniteWarned_ = false;
    }
    if (!source_->accessGranted()) {
        reportFailure({AudioCaptureFailure::permissionRequired, AudioCaptureReason::notAllowed});
        return;
    }
    source_->start({[this](const SampleBlock& block) { handleBlock(block); },
                    [this](AudioCaptureFailureReport failure) { reportFailure(failure); }});
}

void SystemAudioLevelMonitor::stop() {
    captureRequested_.store(false);
    // Stopping the source first means no block is being analysed while the state is reset.
    source_->stop();
    std::lock_guard lock(analysisMutex_);
    analyzer_.reset();
}

void SystemAudioLevelMonitor::handleBlock(const SampleBlock& block) {
    if (!captureRequested_.load()) return;
    AudioAnalyzer::Result result;
    bool firstNonFinite = false;
    {
        std::lock_guard lock(analysisMutex_);
        const std::size_t before = analyzer_.nonFiniteSampleCount();
        result = analyzer_.process(block, clock_.now());
        if (!nonFiniteWarned_ && analyzer_.nonFiniteSampleCount() > before) {
            nonFiniteWarned_ = true;
            firstNonFinite = true;
        }
    }
    if (firstNonFinite) {
        qCWarning(lcCapture) << "The recorded audio holds NaN or infinite samples; they are read as silence";
    }
    switch (result.outcome) {
        case AudioAnalyzer::Outcome::nothing:
            break;
        case AudioAnalyzer::Outcome::frame:
            mainQueue_.post([this, alive = lifetime_.weak(), frame = std::move(result.frame)] {
                if (alive.lock()) frameDidChange_(frame);
            });
            break;
        case AudioAnalyzer::Outcome::silenceFailure:
            reportFailure(AudioCaptureFailure::silentOrProtectedAudio);
            break;
    }
}

void SystemAudioLevelMonitor::reportFailure(AudioCaptureFailureReport failure) {
    // Check and clear in one step: of two failures racing from different threads only one gets through.
    if (!captureRequested_.exchange(false)) return;
    source_->stop();
    mainQueue_.post([this, alive = lifetime_.weak(), failure] {
        if (alive.lock()) captureDidFail_(failure);
    });
}

double SystemAudioLevelMonitor::tempoFactor() const {
    std::lock_guard lock(analysisMutex_);
    return analyzer_.tempoFactor();
}

std::size_t SystemAudioLevelMonitor::nonFiniteSampleCount() const {
    std::lock_guard lock(analysisMutex_);
    return analyzer_.nonFiniteSampleCount();
}

double SystemAudioLevelMonitor::smoothedLevel() const {
    std::lock_guard lock(analysisMutex_);
    return analyzer_.smoothedLevel();
}

}  // namespace lorvane
