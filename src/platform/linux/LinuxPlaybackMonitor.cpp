#include "platform/linux/LinuxPlaybackMonitor.h"

#include <utility>

#include "core/playback/PlaybackChoice.h"
#include "platform/linux/MprisPlayerRegistry.h"

namespace lorvane {

LinuxPlaybackMonitor::LinuxPlaybackMonitor(Callbacks callbacks, OutputVolume& outputVolume,
                                           std::optional<QDBusConnection> bus)
    : callbacks_(std::move(callbacks)), outputVolume_(outputVolume), bus_(std::move(bus)) {}

LinuxPlaybackMonitor::~LinuxPlaybackMonitor() = default;

void LinuxPlaybackMonitor::start() {
    if (!started_) {
        started_ = true;
        registry_ = MprisPlayerRegistry::make(bus_ ? *bus_ : QDBusConnection::sessionBus(), clock_);
        if (registry_) {
            registry_->didChange = [this] { decide(); };
            registry_->playerIdentified = [this](const PlaybackPlayer& player) {
                if (callbacks_.playerSeen) callbacks_.playerSeen(player);
            };
        }
    }
    decide();
}

void LinuxPlaybackMonitor::stop() {
    started_ = false;
    // Outstanding calls die with the registry; their answers reach nobody.
    registry_.reset();
}

void LinuxPlaybackMonitor::decide() {
    if (!started_) return;
    const EnabledPlayers enabled = callbacks_.enabledPlayers ? callbacks_.enabledPlayers() : EnabledPlayers{};
    MusicPlaybackSnapshot snapshot = MusicPlaybackSnapshot::noPlayer();
    if (registry_ && !enabled.empty()) {
        snapshot = playbackSnapshot(registry_->readings(), enabled, outputVolume_.systemOutputVolume());
    }
    if (lastSnapshot_ && *lastSnapshot_ == snapshot) return;
    lastSnapshot_ = snapshot;
    if (callbacks_.snapshotDidChange) callbacks_.snapshotDidChange(snapshot);
}

}  // namespace lorvane
