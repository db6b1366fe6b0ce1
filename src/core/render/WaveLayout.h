#pragma once
// The wave's frame layout: every number the drawing needs for one frame, computed from the model's
// values, the preferences, the canvas size and the time. Platform-free; the GPU renderer only turns
// this into pixels, so the arithmetic lives (and is tested) here alone.

#include <optional>
#include <span>
#include <vector>

#include "core/OverlayPreferences.h"
#include "core/WaveColor.h"
#include "core/render/Geometry.h"

namespace lorvane {

// The ripple's and the shimmer's phases in radians. They advance by dt x motion x speed on every
// drawn frame, so a change of motion changes how fast the ripple travels, never where it is.
struct WavePhase {
    static constexpr double rippleSpeed = 2.15;
    static constexpr double shimmerSpeed = 1.25;
    double ripple = 0;
    double shimmer = 0;

    // Where a motion held constant from time 0 has taken both phases after `time` seconds.
    static WavePhase atTime(double time, double motion);
    // Moves both phases on by `seconds` at `motion`; only their sines are used, so both are kept
    // within one turn of zero.
    void advance(double seconds, double motion);
};

// What one frame is drawn from.
struct WaveInputs {
    bool audioResponsive = true;
    OverlayDisplayMode displayMode = OverlayDisplayMode::compact;
    WaveColor color = WaveColor::cyan;
    double audioLevel = 0.48;
    double motionRate = 1.0;
    double beatPulse = 0;
    std::span<const double> spectrum;
};

// Opacity rules shared by the layout and the shaders (each scales a bar's intensity).
struct WaveOpacity {
    static constexpr double stroke = 0.88;
    static constexpr double glow = 0.3;
    static constexpr double dotBoost = 0.15;  // dot: min(intensity + 0.15, 1)
    static constexpr double sparkle = 0.42;
};

struct WaveBar {
    double x = 0;           // centre line of the bar
    double halfHeight = 0;  // the bar runs from midY - halfHeight to midY + halfHeight
    double spectrum = 0;    // the spectrum value the bar was drawn from
    double intensity = 0;   // 0...1
    RgbaColor color;        // bar, dot and sparkle colour (opaque)
    RgbaColor glowColor;    // glow colour (opaque); the same position as `color` in practice
    double strokeOpacity = 0;
    double glowOpacity = 0;
    double dotOpacity = 0;
    double sparkleOpacity = 0;
    std::optional<double> sparkleReach;  // distance of both sparkle centres from midY, if the bar has sparkles
};

struct GradientStop {
    double location = 0;  // 0...1 along the baseline
    RgbaColor color;      // alpha = baseline opacity
};

struct WaveLayout {
    SizeF canvas;
    int barCount = 0;
    double level = 0, motion = 0, pulse = 0;
    double spacing = 0;
    double barWidth = 0;
    double dashOn = 0, dashOff = 0;
    double firstX = 0;
    double midY = 0;
    double maxHalfHeight = 0;
    double phase = 0;    // the ripple's phase, radians
    double shimmer = 0;  // sin(shimmer phase) x 0.025
    double gain = 0;
    double dotDiameter = 0;
    double sparkleDiameter = 0;
    // Baseline from (0, midY) to (width, midY), round caps. One stop means a plain colour.
    double baselineOpacity = 0;
    double baselineWidth = 0.7;
    std::vector<GradientStop> baselineStops;
    // Glow: each bar stroked solid (round caps) at glowLineWidth, then blurred with a Gaussian whose
    // standard deviation is glowRadius.
    double glowRadius = 0;
    double glowLineWidth = 0;
    std::vector<WaveBar> bars;
};

constexpr int minimumBarCount = 112;
constexpr int maximumBarCount = 640;

// W / 5.2 truncated, clamped to 112...640. A width that makes the quotient non-finite or too large for
// a 64-bit integer is a programming error and stops the program.
int waveBarCount(double canvasWidth);

// The spectrum level for bar `index` out of `barCount`: the synthetic shape for an empty spectrum,
// otherwise the mean of up to seven bands around the band mirrored about the middle of the wave.
double spectrumValue(std::span<const double> spectrum, int index, int barCount);

// The canvas size for the available size: 38 % of the height (at most 420) in full-screen fog,
// 12 points less than the height in the compact band.
SizeF waveSize(SizeF available, OverlayDisplayMode mode);

// The fixed per-bar hash behind the sparkles: the fractional part (with the sign) of
// sin(12.9898 k + 78.233) x 43758.5453 for k = 19 + 43 i.
double sparkleHash(int index);

// Glow blur radius by mode.
double glowRadius(OverlayDisplayMode mode);

WaveLayout layoutWave(const WaveInputs& inputs, SizeF canvas, const WavePhase& phase);
// The frame at `time` seconds for a motion that never changed (pictures, tools and tests).
WaveLayout layoutWave(const WaveInputs& inputs, SizeF canvas, double time);

// The motion the phases advance at: the model's, or 1 with audio response off.
double effectiveMotion(const WaveInputs& inputs);

}  // namespace lorvane
