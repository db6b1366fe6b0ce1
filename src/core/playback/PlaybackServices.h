#pragma once
// The platform services the playback monitor decides from, besides the now-playing source:
// the running applications, and the player state query (the automation script on other systems).

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/MusicPlayer.h"
#include "core/playback/SystemNowPlayingProvider.h"

namespace lorvane {

struct RunningApplication {
    std::int32_t processIdentifier = 0;  // 0 or less when unknown
    std::optional<std::string> bundleIdentifier;
    std::optional<std::string> localizedName;

    friend bool operator==(const RunningApplication&, const RunningApplication&) = default;
};

class RunningApplications {
public:
    virtual ~RunningApplications() = default;
    // Every running application of the user. Main thread.
    virtual std::vector<RunningApplication> runningApplications() = 0;
    // The application with that process identifier, if it runs. Main thread; no full scan.
    virtual std::optional<RunningApplication> runningApplication(std::int32_t processIdentifier) = 0;
};

// The player's answer: state and its own volume (0...100) joined by "|", e.g. "playing|65".
// Absent text counts as no pieces at all.
struct PlayerStateAnswer {
    std::optional<std::string> text;
};

// The query failed; the number says why (absent when there is none).
struct PlayerStateError {
    std::optional<int> number;
};

using PlayerStateReply = std::variant<PlayerStateAnswer, PlayerStateError>;

// Error numbers that mean the user has not allowed the query.
inline constexpr int playerQueryNotPermittedError = -1743;
inline constexpr int playerQueryPrivilegeViolationError = -10004;

// Asks a player directly for its state and volume. Synchronous on the main thread, with a short
// time limit of the implementation's own; only Apple Music and Spotify are ever asked.
class PlayerStateQuery {
public:
    virtual ~PlayerStateQuery() = default;
    virtual PlayerStateReply queryState(MusicPlayer player) = 0;
};

// What a monitor is built from; a missing now-playing source means there is no now-playing service.
struct PlaybackServices {
    std::shared_ptr<NowPlayingSource> nowPlayingSource;
    std::shared_ptr<RunningApplications> runningApplications;
    std::shared_ptr<PlayerStateQuery> playerStateQuery;
};

}  // namespace lorvane
