#pragma once
// The playback monitor on Linux: follows the MPRIS players on the session bus through their own
// signals and reports a snapshot, decided by the core's choice among the readings, whenever it changes.
// Nothing polls and no D-Bus call waits: a player that hangs or vanishes mid-call never delays the
// caller's thread.

#include <QDBusConnection>
#include <functional>
#include <memory>
#include <optional>

#include "core/Clock.h"
#include "core/Monitoring.h"
#include "core/MusicPlayer.h"

namespace lorvane {

class MprisPlayerRegistry;

class LinuxPlaybackMonitor final : public PlaybackMonitoring {
public:
    struct Callbacks {
        std::function<EnabledPlayers()> enabledPlayers;  // asked afresh at every decision
        std::function<void(const MusicPlaybackSnapshot&)> snapshotDidChange;
        std::function<void(const PlaybackPlayer&)> playerSeen;  // may be empty
    };

    // Main thread, with a Qt event loop. `bus` is the session bus when absent; without a bus every
    // decision gives the no-player snapshot.
    LinuxPlaybackMonitor(Callbacks callbacks, OutputVolume& outputVolume, std::optional<QDBusConnection> bus = {});
    ~LinuxPlaybackMonitor() override;
    LinuxPlaybackMonitor(const LinuxPlaybackMonitor&) = delete;
    LinuxPlaybackMonitor& operator=(const LinuxPlaybackMonitor&) = delete;

    void start() override;
    void stop() override;

    bool isStarted() const { return started_; }
    const std::optional<MusicPlaybackSnapshot>& lastSnapshot() const { return lastSnapshot_; }
    // For tests and benchmarks: the registry while started.
    const MprisPlayerRegistry* registry() const { return registry_.get(); }

private:
    void decide();

    Callbacks callbacks_;
    OutputVolume& outputVolume_;
    std::optional<QDBusConnection> bus_;
    SteadyClock clock_;
    std::unique_ptr<MprisPlayerRegistry> registry_;
    std::optional<MusicPlaybackSnapshot> lastSnapshot_;
    bool started_ = false;
};

}  // namespace lorvane
