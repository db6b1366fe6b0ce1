#include "platform/linux/LinuxPlaybackMonitor.h"

#include <utility>

#include "platform/linux/LinuxRunningApplications.h"
#include "platform/linux/MprisNowPlayingSource.h"
#include "platform/linux/MprisPlayerRegistry.h"
#include "platform/linux/MprisPlayerStateQuery.h"
#include "platform/linux/ProcessTable.h"

namespace lorvane {

PlaybackServices makeLinuxPlaybackServices(MainQueue& mainQueue, const LinuxPlaybackEnvironment& environment) {
    const QDBusConnection bus = environment.bus ? *environment.bus : QDBusConnection::sessionBus();
    auto registry = MprisPlayerRegistry::make(bus);
    auto processes = std::make_shared<ProcessTable>(environment.procRoot);
    PlaybackServices services;
    services.nowPlayingSource = MprisNowPlayingSource::make(registry, mainQueue);
    services.runningApplications = std::make_shared<LinuxRunningApplications>(registry, processes);
    services.playerStateQuery = std::make_shared<MprisPlayerStateQuery>(registry, processes);
    return services;
}

std::unique_ptr<MusicPlaybackMonitor> makeLinuxPlaybackMonitor(
    std::function<MusicPlayerSet()> enabledPlayers, std::function<void(const MusicPlaybackSnapshot&)> snapshotDidChange,
    OutputVolume& outputVolume, MainQueue& mainQueue, const LinuxPlaybackEnvironment& environment) {
    return std::make_unique<MusicPlaybackMonitor>(std::move(enabledPlayers), std::move(snapshotDidChange),
                                                  makeLinuxPlaybackServices(mainQueue, environment), outputVolume,
                                                  mainQueue);
}

}  // namespace lorvane
