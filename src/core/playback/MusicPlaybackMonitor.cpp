#include "core/playback/MusicPlaybackMonitor.h"

#include <exception>
#include <limits>
#include <utility>
#include <vector>

#include "core/StringEnum.h"
#include "core/playback/PlayerStateReading.h"

namespace lorvane {

MusicPlaybackMonitor::MusicPlaybackMonitor(std::function<MusicPlayerSet()> enabledPlayers,
                                           std::function<void(const MusicPlaybackSnapshot&)> snapshotDidChange,
                                           PlaybackServices services, OutputVolume& outputVolume,
                                           MainQueue& mainQueue)
    : enabledPlayers_(std::move(enabledPlayers)),
      snapshotDidChange_(std::move(snapshotDidChange)),
      systemNowPlayingProvider_(SystemNowPlayingProvider::make(std::move(services.nowPlayingSource), mainQueue)),
      runningApplications_(std::move(services.runningApplications)),
      playerStateQuery_(std::move(services.playerStateQuery)),
      outputVolume_(outputVolume),
      mainQueue_(mainQueue) {}

MusicPlaybackMonitor::~MusicPlaybackMonitor() = default;

void MusicPlaybackMonitor::start() {
    stop();
    advanceGeneration();
    checkPlaybackState();
    timer_ = mainQueue_.startRepeating(pollInterval, [this, alive = lifetime_.weak()] {
        if (alive.expired()) return;
        checkPlaybackState();
    });
}

void MusicPlaybackMonitor::stop() {
    timer_.reset();
    advanceGeneration();
    queryIsInFlight_ = false;
}

void MusicPlaybackMonitor::advanceGeneration() {
    // Wrapping round would make a stale answer look fresh again.
    if (queryGeneration_ == std::numeric_limits<std::int64_t>::max()) std::terminate();
    ++queryGeneration_;
}

void MusicPlaybackMonitor::checkPlaybackState() {
    if (queryIsInFlight_) return;

    if (enabledPlayers_().empty()) {
        report(MusicPlaybackSnapshot::noPlayer());
        return;
    }

    if (!systemNowPlayingProvider_) {
        checkPlayerFallbacks();
        return;
    }

    queryIsInFlight_ = true;
    const std::int64_t generation = queryGeneration_;
    systemNowPlayingProvider_->fetch(
        [this, alive = lifetime_.weak(), generation](std::optional<SystemNowPlayingSnapshot> answer) {
            if (alive.expired()) return;
            handleNowPlayingAnswer(generation, answer);
        });
}

void MusicPlaybackMonitor::handleNowPlayingAnswer(std::int64_t generation,
                                                  const std::optional<SystemNowPlayingSnapshot>& answer) {
    // A start or stop since the question already cleared the in-flight flag; leave it alone.
    if (generation != queryGeneration_) return;
    queryIsInFlight_ = false;

    if (answer && answer->processIdentifier >= 1) {
        if (const auto application = runningApplications_->runningApplication(answer->processIdentifier)) {
            const auto player = resolveMusicPlayer(application->bundleIdentifier, application->localizedName);
            if (player && enabledPlayers_().contains(*player)) {
                report({*player, answer->isPlaying ? MusicPlaybackState::playing : MusicPlaybackState::paused,
                        systemOutputVolume()});
                return;
            }
        }
    }
    checkPlayerFallbacks();
}

void MusicPlaybackMonitor::checkPlayerFallbacks() {
    const MusicPlayerSet enabled = enabledPlayers_();
    MusicPlayerSet running;
    for (const auto& application : runningApplications_->runningApplications()) {
        const auto player = resolve(application);
        if (player && enabled.contains(*player)) running.insert(*player);
    }

    if (running.empty()) {
        report(MusicPlaybackSnapshot::noPlayer());
        return;
    }

    std::vector<MusicPlaybackSnapshot> candidates;
    for (const MusicPlayer player : allCases<MusicPlayer>()) {
        if (!running.contains(player)) continue;
        if (player == MusicPlayer::qqMusic || player == MusicPlayer::netEaseMusic) {
            // These players cannot be asked; one the now-playing service did not name counts as paused.
            candidates.push_back({player, MusicPlaybackState::paused, systemOutputVolume()});
            continue;
        }
        const MusicPlaybackSnapshot reading = scriptSnapshot(player);
        if (reading.state == MusicPlaybackState::playing) {
            report(reading);
            return;
        }
        candidates.push_back(reading);
    }

    // A paused player beats one that refused to answer, which beats any other state.
    const MusicPlaybackSnapshot* chosen = nullptr;
    for (const MusicPlaybackState wanted : {MusicPlaybackState::paused, MusicPlaybackState::permissionDenied}) {
        for (const auto& candidate : candidates) {
            if (candidate.state == wanted) {
                chosen = &candidate;
                break;
            }
        }
        if (chosen) break;
    }
    if (!chosen && !candidates.empty()) chosen = &candidates.front();
    if (chosen) report(*chosen);
}

MusicPlaybackSnapshot MusicPlaybackMonitor::scriptSnapshot(MusicPlayer player) {
    if (player == MusicPlayer::qqMusic || player == MusicPlayer::netEaseMusic) {
        return {player, MusicPlaybackState::unknown, systemOutputVolume()};
    }
    const PlayerStateReply reply = playerStateQuery_->queryState(player);
    return playerStateReading(player, reply, systemOutputVolume());
}

double MusicPlaybackMonitor::systemOutputVolume() const {
    double volume = outputVolume_.systemOutputVolume();
    if (volume <= 0) volume = 0;
    if (volume > 1) volume = 1;
    return volume;
}

std::optional<MusicPlayer> MusicPlaybackMonitor::resolve(const RunningApplication& application) {
    // Absent and empty inputs resolve alike, so one key serves both.
    std::string key = application.bundleIdentifier.value_or(std::string());
    key += '\0';
    key += application.localizedName.value_or(std::string());
    if (const auto found = resolved_.find(key); found != resolved_.end()) return found->second;
    const auto player = resolveMusicPlayer(application.bundleIdentifier, application.localizedName);
    if (resolved_.size() >= 4096) resolved_.clear();  // stays small on any real system
    resolved_.emplace(std::move(key), player);
    return player;
}

void MusicPlaybackMonitor::report(const MusicPlaybackSnapshot& snapshot) {
    if (lastSnapshot_ && *lastSnapshot_ == snapshot) return;
    lastSnapshot_ = snapshot;
    snapshotDidChange_(snapshot);
}

}  // namespace lorvane
