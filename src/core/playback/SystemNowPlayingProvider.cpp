#include "core/playback/SystemNowPlayingProvider.h"

#include <utility>

namespace lorvane {

std::unique_ptr<SystemNowPlayingProvider> SystemNowPlayingProvider::make(std::shared_ptr<NowPlayingSource> source,
                                                                         MainQueue& mainQueue) {
    if (!source) return nullptr;
    return std::unique_ptr<SystemNowPlayingProvider>(new SystemNowPlayingProvider(std::move(source), mainQueue));
}

SystemNowPlayingProvider::SystemNowPlayingProvider(std::shared_ptr<NowPlayingSource> source, MainQueue& mainQueue)
    : source_(std::move(source)), mainQueue_(mainQueue) {}

void SystemNowPlayingProvider::fetch(SystemNowPlayingCompletion completion) {
    auto request = std::make_shared<SystemNowPlayingRequest>();
    request->completion = std::move(completion);

    // Whichever value arrives second completes the request; a value that arrives after completion
    // is still stored but changes nothing.
    source_->getApplicationProcessIdentifier([request](std::int32_t processIdentifier) {
        request->processIdentifier = processIdentifier;
        if (!request->isCompleted && request->isPlaying) {
            request->isCompleted = true;
            request->completion(SystemNowPlayingSnapshot{*request->processIdentifier, *request->isPlaying});
        }
    });
    source_->getApplicationIsPlaying([request](bool isPlaying) {
        request->isPlaying = isPlaying;
        if (!request->isCompleted && request->processIdentifier) {
            request->isCompleted = true;
            request->completion(SystemNowPlayingSnapshot{*request->processIdentifier, *request->isPlaying});
        }
    });
    mainQueue_.postAfter(answerTimeLimit, [request] {
        if (request->isCompleted) return;
        request->isCompleted = true;
        request->completion(std::nullopt);
    });
}

}  // namespace lorvane
