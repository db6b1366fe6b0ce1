#pragma once
// Builds the playback monitor with its Linux services: the MPRIS players on the session bus and
// the user's processes in /proc.

#include <QDBusConnection>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "core/MainQueue.h"
#include "core/Monitoring.h"
#include "core/OverlayPreferences.h"
#include "core/playback/MusicPlaybackMonitor.h"
#include "core/playback/PlaybackServices.h"

namespace lorvane {

struct LinuxPlaybackEnvironment {
    std::optional<QDBusConnection> bus;  // the session bus when absent
    std::string procRoot = "/proc";
};

// Main thread, with a Qt event loop. Without a session bus there is no now-playing service and
// the monitor relies on the process scan alone.
PlaybackServices makeLinuxPlaybackServices(MainQueue& mainQueue, const LinuxPlaybackEnvironment& environment = {});

std::unique_ptr<MusicPlaybackMonitor> makeLinuxPlaybackMonitor(
    std::function<MusicPlayerSet()> enabledPlayers, std::function<void(const MusicPlaybackSnapshot&)> snapshotDidChange,
    OutputVolume& outputVolume, MainQueue& mainQueue, const LinuxPlaybackEnvironment& environment = {});

}  // namespace lorvane
