#pragma once
// Asks a player over MPRIS for its playback status and volume, synchronously with a short time
// limit, and words the answer the way the monitor expects ("playing|65": status in lower case,
// volume × 100), or gives an error number.

#include <memory>

#include "core/playback/PlaybackServices.h"
#include "platform/linux/MprisPlayerRegistry.h"
#include "platform/linux/ProcessTable.h"

namespace lorvane {

class MprisPlayerStateQuery final : public PlayerStateQuery {
public:
    static constexpr int timeLimitMilliseconds = 250;
    // Error numbers besides "not permitted" (D-Bus access denied).
    static constexpr int playerNotFoundError = -600;
    static constexpr int timedOutError = -1712;
    static constexpr int failedError = -1708;

    // Without a registry (no session bus) no player can be asked.
    MprisPlayerStateQuery(std::shared_ptr<MprisPlayerRegistry> registry, std::shared_ptr<ProcessTable> processes);

    PlayerStateReply queryState(MusicPlayer player) override;

private:
    const MprisPlayerRegistry::Player* playerFor(MusicPlayer player);

    std::shared_ptr<MprisPlayerRegistry> registry_;
    std::shared_ptr<ProcessTable> processes_;
};

}  // namespace lorvane
