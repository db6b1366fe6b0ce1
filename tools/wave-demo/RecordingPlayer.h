#pragma once
// Plays a recording's analysis in real time: reads the file in 10 ms blocks as the playback clock
// advances, runs each block through the audio analysis and hands every published frame (or a
// silence failure) to its callbacks, as the live capture would.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/AudioCaptureFailure.h"
#include "core/AudioVisualizationFrame.h"
#include "core/analysis/AudioAnalyzer.h"
#include "RecordingReader.h"

namespace lorvane::tools {

class RecordingPlayer {
public:
    struct Callbacks {
        std::function<void(const AudioVisualizationFrame&)> frameDidChange;
        std::function<void(AudioCaptureFailure)> captureDidFail;
    };

    // Nothing (and `error` set) when the file cannot be read. Any rate is resampled to 48000 Hz;
    // `notice` says when the audio is changed on the way (more than two channels mixed down).
    static std::unique_ptr<RecordingPlayer> open(const std::string& path, Callbacks callbacks, std::string& error,
                                                 std::string* notice = nullptr);
    ~RecordingPlayer();

    // Analyses everything up to `seconds` of playback. False once the recording has ended.
    bool advanceTo(double seconds);
    // Back to the start (for looping); the learnt tempo is kept, as after a capture restart.
    void rewind();
    double duration() const { return duration_; }
    double position() const;

private:
    RecordingPlayer(std::unique_ptr<RecordingReader> reader, double duration, Callbacks callbacks);

    std::unique_ptr<RecordingReader> reader_;
    double duration_;
    Callbacks callbacks_;
    AudioAnalyzer analyzer_;
    std::vector<float> block_;
    long long framesRead_ = 0;
    bool ended_ = false;
};

}  // namespace lorvane::tools
