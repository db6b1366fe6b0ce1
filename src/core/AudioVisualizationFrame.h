#pragma once

#include <vector>

namespace lorvane {

// One published analysis frame.
struct AudioVisualizationFrame {
    double level = 0;       // 0...1, smoothed loudness
    double motionRate = 0;  // 0.62...2.64, wave travel speed
    double beatPulse = 0;   // 0...1, 1 on a beat, then decays
    std::vector<double> spectrum;  // 96 bands, lowest first, each 0...1

    friend bool operator==(const AudioVisualizationFrame&, const AudioVisualizationFrame&) = default;
};

}  // namespace lorvane
