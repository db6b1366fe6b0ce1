#pragma once
// The faces of the two monitors as the application controller sees them, and the system output
// volume that the playback monitor reads. Tests replace them; the real ones live in playback/ and capture/.

#include <cstdint>

namespace lorvane {

// Follows the players and reports each playback snapshot that differs from the last one reported.
class PlaybackMonitoring {
public:
    virtual ~PlaybackMonitoring() = default;
    // Begins following the players. When already started, decides again at once (the enabled
    // players may have changed); readings already known are kept.
    virtual void start() = 0;
    // Ends following; nothing is reported afterwards. The last snapshot reported is kept.
    virtual void stop() = 0;
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
