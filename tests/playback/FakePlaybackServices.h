#pragma once
// Stand-ins for the platform's playback services, driven by the tests: answers arrive exactly
// when and in the order a test chooses.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "core/MainQueue.h"
#include "core/Monitoring.h"
#include "core/playback/PlaybackServices.h"

namespace lorvane::test {

class FakeNowPlayingSource final : public NowPlayingSource {
public:
    // Without an automatic answer, callbacks wait here until the test delivers them.
    void getApplicationProcessIdentifier(std::function<void(std::int32_t)> callback) override {
        ++processIdentifierQuestions;
        if (automaticAnswer && queue) {
            queue->post([callback, pid = automaticAnswer->processIdentifier] { callback(pid); });
            return;
        }
        pendingProcessIdentifiers.push_back(std::move(callback));
    }
    void getApplicationIsPlaying(std::function<void(bool)> callback) override {
        ++isPlayingQuestions;
        if (automaticAnswer && queue) {
            queue->post([callback, playing = automaticAnswer->isPlaying] { callback(playing); });
            return;
        }
        pendingIsPlaying.push_back(std::move(callback));
    }

    void deliverProcessIdentifier(std::size_t question, std::int32_t pid) { pendingProcessIdentifiers.at(question)(pid); }
    void deliverIsPlaying(std::size_t question, bool playing) { pendingIsPlaying.at(question)(playing); }

    // When set (with a queue), every question is answered by work posted to the queue.
    std::optional<SystemNowPlayingSnapshot> automaticAnswer;
    MainQueue* queue = nullptr;

    int processIdentifierQuestions = 0;
    int isPlayingQuestions = 0;
    std::vector<std::function<void(std::int32_t)>> pendingProcessIdentifiers;
    std::vector<std::function<void(bool)>> pendingIsPlaying;
};

class FakeRunningApplications final : public RunningApplications {
public:
    std::vector<RunningApplication> runningApplications() override {
        ++scans;
        return applications;
    }
    std::optional<RunningApplication> runningApplication(std::int32_t pid) override {
        ++lookups;
        for (const auto& application : applications) {
            if (application.processIdentifier == pid) return application;
        }
        return std::nullopt;
    }

    std::vector<RunningApplication> applications;
    int scans = 0;
    int lookups = 0;
};

class FakePlayerStateQuery final : public PlayerStateQuery {
public:
    PlayerStateReply queryState(MusicPlayer player) override {
        asked.push_back(player);
        const auto found = replies.find(player);
        if (found == replies.end()) return PlayerStateError{-600};
        return found->second;
    }

    std::map<MusicPlayer, PlayerStateReply> replies;
    std::vector<MusicPlayer> asked;
};

class FakeOutputVolume final : public OutputVolume {
public:
    explicit FakeOutputVolume(double volume = 1.0) : volume(volume) {}
    double systemOutputVolume() const override {
        ++reads;
        return volume;
    }
    double volume;
    mutable int reads = 0;
};

}  // namespace lorvane::test
