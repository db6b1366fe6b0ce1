#include "core/render/WaveAnimation.h"

#include <algorithm>

namespace lorvane {

const WavePhase& WaveAnimation::advance(double motion) {
    const double now = clock_.now();
    if (started_) phase_.advance(std::clamp(now - last_, 0.0, longestStep), motion);
    started_ = true;
    last_ = now;
    return phase_;
}

}  // namespace lorvane
