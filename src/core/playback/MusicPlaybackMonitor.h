#pragma once
// Decides twice a second which enabled music player to follow and whether it plays, and reports
// each changed reading. Asks the now-playing service first; without a usable answer it scans the
// running applications and asks Apple Music and Spotify directly.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "core/MainQueue.h"
#include "core/Monitoring.h"
#include "core/MusicPlayer.h"
#include "core/OverlayPreferences.h"
#include "core/playback/PlaybackServices.h"
#include "core/playback/SystemNowPlayingProvider.h"

namespace lorvane {

class MusicPlaybackMonitor final : public PlaybackMonitoring {
public:
    static constexpr double pollInterval = 0.5;  // seconds

    // Everything runs on the main thread of `mainQueue`. `enabledPlayers` is called afresh on every
    // check; `snapshotDidChange` gets each reading that differs from the last one reported.
    MusicPlaybackMonitor(std::function<MusicPlayerSet()> enabledPlayers,
                         std::function<void(const MusicPlaybackSnapshot&)> snapshotDidChange,
                         PlaybackServices services, OutputVolume& outputVolume, MainQueue& mainQueue);
    ~MusicPlaybackMonitor() override;

    MusicPlaybackMonitor(const MusicPlaybackMonitor&) = delete;
    MusicPlaybackMonitor& operator=(const MusicPlaybackMonitor&) = delete;

    // Restarts when already started; never leaves two timers.
    void start() override;
    // Ends polling and makes any outstanding now-playing answer stale. The last reading is kept.
    void stop() override;
    void checkPlaybackState() override;

    std::int64_t queryGeneration() const override { return queryGeneration_; }
    void setQueryGeneration(std::int64_t generation) override { queryGeneration_ = generation; }
    bool queryIsInFlight() const override { return queryIsInFlight_; }
    void setQueryIsInFlight(bool inFlight) override { queryIsInFlight_ = inFlight; }

    const std::optional<MusicPlaybackSnapshot>& lastSnapshot() const { return lastSnapshot_; }
    bool hasSystemNowPlayingProvider() const { return systemNowPlayingProvider_ != nullptr; }
    bool isStarted() const { return timer_ != nullptr; }

private:
    void handleNowPlayingAnswer(std::int64_t generation, const std::optional<SystemNowPlayingSnapshot>& answer);
    void checkPlayerFallbacks();
    MusicPlaybackSnapshot scriptSnapshot(MusicPlayer player);
    double systemOutputVolume() const;
    void advanceGeneration();
    void report(const MusicPlaybackSnapshot& snapshot);
    std::optional<MusicPlayer> resolve(const RunningApplication& application);

    std::function<MusicPlayerSet()> enabledPlayers_;
    std::function<void(const MusicPlaybackSnapshot&)> snapshotDidChange_;
    std::unique_ptr<SystemNowPlayingProvider> systemNowPlayingProvider_;
    std::unique_ptr<RepeatingTimer> timer_;
    std::optional<MusicPlaybackSnapshot> lastSnapshot_;
    std::int64_t queryGeneration_ = 0;
    bool queryIsInFlight_ = false;

    std::shared_ptr<RunningApplications> runningApplications_;
    std::shared_ptr<PlayerStateQuery> playerStateQuery_;
    OutputVolume& outputVolume_;
    MainQueue& mainQueue_;
    // Recognising a name is a pure function, and the scan meets the same few hundred names every
    // half second: remember the outcomes.
    std::unordered_map<std::string, std::optional<MusicPlayer>> resolved_;
    LifetimeToken lifetime_;
};

}  // namespace lorvane
