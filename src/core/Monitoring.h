#pragma once
// The faces of the two monitors as the application controller sees them, and the system output
// volume that the playback monitor reads. Tests replace them; the real ones live in playback/ and capture/.

#include <cstdint>

namespace lorvane {

// Polls the players every half second and reports changed playback snapshots.
class PlaybackMonitoring {
public:
    virtual ~PlaybackMonitoring() = default;
    virtual void start() = 0;
    virtual void stop() = 0;
    virtual void checkPlaybackState() = 0;
    // Moving the generation makes any outstanding now-playing answer stale.
    virtual std::int64_t queryGeneration() const = 0;
    virtual void setQueryGeneration(std::int64_t generation) = 0;
    virtual bool queryIsInFlight() const = 0;
    virtual void setQueryIsInFlight(bool inFlight) = 0;
};

// One capture run of system audio: frames and at most one failure arrive on the main thread
// through the callbacks given at construction.
class AudioLevelMonitoring {
public:
    virtual ~AudioLevelMonitoring() = default;
    virtual void start() = 0;
    virtual void stop() = 0;
};

// The default output device's volume, 0...1; any failure answers 1.0. Main thread; never blocks.
class OutputVolume {
public:
    virtual ~OutputVolume() = default;
    virtual double systemOutputVolume() const = 0;
};

}  // namespace lorvane
