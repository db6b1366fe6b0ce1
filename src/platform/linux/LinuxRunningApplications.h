#pragma once
// The running applications on Linux: one per process, from what an MPRIS player says about
// itself (DesktopEntry as identifier, Identity as name) completed by what /proc says about its
// process (Flatpak id or snap name as identifier, process name as name), plus every other
// process of the user.

#include <memory>

#include "core/playback/PlaybackServices.h"
#include "platform/linux/MprisPlayerRegistry.h"
#include "platform/linux/ProcessTable.h"

namespace lorvane {

class LinuxRunningApplications final : public RunningApplications {
public:
    // The registry is absent when there is no session bus.
    LinuxRunningApplications(std::shared_ptr<MprisPlayerRegistry> registry, std::shared_ptr<ProcessTable> processes);

    std::vector<RunningApplication> runningApplications() override;
    // Reads at most this one process from /proc, and nothing when its player names itself fully.
    std::optional<RunningApplication> runningApplication(std::int32_t processIdentifier) override;

private:
    std::shared_ptr<MprisPlayerRegistry> registry_;
    std::shared_ptr<ProcessTable> processes_;
};

}  // namespace lorvane
