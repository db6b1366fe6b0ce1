#pragma once
// The system's answer to "which application is the now-playing one, and does it play?", turned
// from two separate asynchronous answers into one answer delivered once, with a short time limit.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "core/MainQueue.h"

namespace lorvane {

struct SystemNowPlayingSnapshot {
    std::int32_t processIdentifier = 0;  // 0 or less: no now-playing application
    bool isPlaying = false;

    friend bool operator==(const SystemNowPlayingSnapshot&, const SystemNowPlayingSnapshot&) = default;
};

// The platform's now-playing service. Each getter answers at most once, later, on the main
// thread, or never (a service that refuses or hangs simply stays silent).
class NowPlayingSource {
public:
    virtual ~NowPlayingSource() = default;
    virtual void getApplicationProcessIdentifier(std::function<void(std::int32_t)> callback) = 0;
    virtual void getApplicationIsPlaying(std::function<void(bool)> callback) = 0;
};

using SystemNowPlayingCompletion = std::function<void(std::optional<SystemNowPlayingSnapshot>)>;

// One query, shared by the two answers and the time-out; it dies when the last of them has run.
struct SystemNowPlayingRequest {
    std::optional<std::int32_t> processIdentifier;
    std::optional<bool> isPlaying;
    bool isCompleted = false;
    SystemNowPlayingCompletion completion;
};

class SystemNowPlayingProvider {
public:
    static constexpr double answerTimeLimit = 0.35;  // seconds

    // No provider when there is no now-playing service.
    static std::unique_ptr<SystemNowPlayingProvider> make(std::shared_ptr<NowPlayingSource> source,
                                                          MainQueue& mainQueue);

    // Main thread. The completion runs exactly once on the main queue: with both values, or with
    // nothing when either has not arrived within the time limit.
    void fetch(SystemNowPlayingCompletion completion);

private:
    SystemNowPlayingProvider(std::shared_ptr<NowPlayingSource> source, MainQueue& mainQueue);

    std::shared_ptr<NowPlayingSource> source_;
    MainQueue& mainQueue_;
};

}  // namespace lorvane
