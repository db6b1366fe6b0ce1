#pragma once
// The wave's running phases. Every drawn frame advances them by the steady time since the previous
// frame at the motion of the moment, so the ripple travels smoothly whatever the motion does.

#include "core/Clock.h"
#include "core/render/WaveLayout.h"

namespace lorvane {

class WaveAnimation {
public:
    // A step longer than this (the wave was hidden, or the machine stalled) counts as this long, so
    // the ripple resumes where it stopped instead of leaping.
    static constexpr double longestStep = 0.25;

    // `steady` must be a monotonic clock that outlives the animation.
    explicit WaveAnimation(const Clock& steady) : clock_(steady) {}

    // The phases for a frame drawn now, after moving them on at `motion`.
    const WavePhase& advance(double motion);
    const WavePhase& phase() const { return phase_; }
    // The next frame does not advance (the wave is coming back on screen).
    void pause() { started_ = false; }

private:
    const Clock& clock_;
    WavePhase phase_;
    double last_ = 0;
    bool started_ = false;
};

}  // namespace lorvane
