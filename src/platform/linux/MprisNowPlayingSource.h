#pragma once
// The now-playing service over MPRIS: the now-playing player is chosen from what the registry
// has learnt; its process comes from the bus, and its playing flag is read afresh from the player
// on every question, so a player that hangs or refuses simply leaves the question unanswered.

#include <QObject>
#include <memory>

#include "core/MainQueue.h"
#include "core/playback/SystemNowPlayingProvider.h"
#include "platform/linux/MprisPlayerRegistry.h"

namespace lorvane {

class MprisNowPlayingSource final : public NowPlayingSource {
public:
    // A player that has not answered by then never will, as far as this source cares.
    static constexpr int answerTimeLimitMilliseconds = 350;

    // No source without a registry (no session bus).
    static std::shared_ptr<MprisNowPlayingSource> make(std::shared_ptr<MprisPlayerRegistry> registry,
                                                       MainQueue& mainQueue);

    // Process identifier 0 and "not playing" when no player plays or is paused.
    void getApplicationProcessIdentifier(std::function<void(std::int32_t)> callback) override;
    void getApplicationIsPlaying(std::function<void(bool)> callback) override;

private:
    MprisNowPlayingSource(std::shared_ptr<MprisPlayerRegistry> registry, MainQueue& mainQueue);

    std::shared_ptr<MprisPlayerRegistry> registry_;
    MainQueue& mainQueue_;
    std::unique_ptr<QObject> pendingCalls_;  // outstanding calls die with the source
};

}  // namespace lorvane
