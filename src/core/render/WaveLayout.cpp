#include "core/render/WaveLayout.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <numbers>

namespace lorvane {

int waveBarCount(double canvasWidth) {
    const double quotient = std::trunc(canvasWidth / 5.2);
    // 2^63: beyond it the conversion to a 64-bit integer is undefined.
    if (!std::isfinite(quotient) || std::fabs(quotient) >= 9223372036854775808.0) std::abort();
    const auto count = static_cast<long long>(quotient);
    return static_cast<int>(std::clamp<long long>(count, minimumBarCount, maximumBarCount));
}

double spectrumValue(std::span<const double> spectrum, int index, int barCount) {
    const double p = static_cast<double>(index) / static_cast<double>(std::max(barCount - 1, 1));
    const auto count = static_cast<long long>(spectrum.size());
    if (count == 0) {
        const double x = p * std::numbers::pi;
        return 0.38 + 0.22 * std::sin(13 * x) + 0.12 * std::sin(31 * x + 0.8);
    }
    const double mirrored = std::fabs(2 * p - 1);
    // std::round rounds halves away from zero.
    const auto centre = std::clamp(static_cast<long long>(std::round(mirrored * static_cast<double>(count - 1))), 0LL,
                                   count - 1);
    const long long lo = std::max(centre - 3, 0LL);
    const long long hi = std::min(centre + 3, count - 1);
    double sum = 0;
    for (long long band = lo; band <= hi; ++band) sum += spectrum[static_cast<std::size_t>(band)];
    return sum / static_cast<double>(hi - lo + 1);
}

SizeF waveSize(SizeF available, OverlayDisplayMode mode) {
    const double width = std::max(available.width, 1.0);
    if (mode == OverlayDisplayMode::fullscreenFog) return {width, std::min(available.height * 0.38, 420.0)};
    return {width, std::max(available.height - 12, 1.0)};
}

namespace {
double computeSparkleHash(int index) {
    const double k = 19.0 + 43.0 * index;
    const double v = std::sin(12.9898 * k + 78.233) * 43758.5453;
    return v - std::trunc(v);
}
}  // namespace

double sparkleHash(int index) {
    // A pure function of the index over at most 640 bars: worked out once instead of twice per bar and
    // frame (the sine of a large argument is the costliest call of the bar loop).
    static const auto table = [] {
        std::array<double, maximumBarCount> values{};
        for (int i = 0; i < maximumBarCount; ++i) values[static_cast<std::size_t>(i)] = computeSparkleHash(i);
        return values;
    }();
    if (index >= 0 && index < maximumBarCount) return table[static_cast<std::size_t>(index)];
    return computeSparkleHash(index);
}

double glowRadius(OverlayDisplayMode mode) { return mode == OverlayDisplayMode::fullscreenFog ? 5.5 : 4.0; }

WavePhase WavePhase::atTime(double time, double motion) {
    return {time * motion * rippleSpeed, time * motion * shimmerSpeed};
}

void WavePhase::advance(double seconds, double motion) {
    const double turn = 2 * std::numbers::pi;
    ripple = std::remainder(ripple + seconds * motion * rippleSpeed, turn);
    shimmer = std::remainder(shimmer + seconds * motion * shimmerSpeed, turn);
}

double effectiveMotion(const WaveInputs& inputs) { return inputs.audioResponsive ? inputs.motionRate : 1.0; }

WaveLayout layoutWave(const WaveInputs& inputs, SizeF canvas, double time) {
    return layoutWave(inputs, canvas, WavePhase::atTime(time, effectiveMotion(inputs)));
}

WaveLayout layoutWave(const WaveInputs& inputs, SizeF canvas, const WavePhase& wavePhase) {
    WaveLayout layout;
    layout.canvas = canvas;
    const double width = canvas.width;
    const double height = canvas.height;
    const int barCount = waveBarCount(width);
    layout.barCount = barCount;

    layout.level = inputs.audioResponsive ? inputs.audioLevel : 0.48;
    layout.motion = effectiveMotion(inputs);
    layout.pulse = inputs.audioResponsive ? inputs.beatPulse : 0.16;
    const double level = layout.level, pulse = layout.pulse;

    layout.spacing = width / barCount;
    const double w = std::clamp(layout.spacing * 0.26, 1.0, 2.2);
    layout.barWidth = w;
    layout.dashOn = std::max(w * 0.72, 1.0);
    layout.dashOff = std::max(w * 1.35, 1.7);
    layout.firstX = layout.spacing * 0.5;
    layout.midY = height * 0.5;
    layout.maxHalfHeight = height * 0.42;
    layout.phase = wavePhase.ripple;
    layout.shimmer = std::sin(wavePhase.shimmer) * 0.025;
    layout.gain = level * 1.02 + 0.14;
    layout.baselineOpacity = level * 0.16 + 0.16;
    layout.dotDiameter = w * (1.1 + 0.7 * pulse);
    layout.sparkleDiameter = std::max(w * 0.62, 0.8);
    layout.glowRadius = glowRadius(inputs.displayMode);
    layout.glowLineWidth = w * 3.2;

    const auto palette = colors(inputs.color);
    if (palette.size() == 1) {
        layout.baselineStops.push_back({0, palette[0].withAlpha(layout.baselineOpacity)});
    } else {
        const double last = static_cast<double>(palette.size() - 1);
        for (std::size_t k = 0; k < palette.size(); ++k) {
            layout.baselineStops.push_back({static_cast<double>(k) / last, palette[k].withAlpha(layout.baselineOpacity)});
        }
    }

    const double pi = std::numbers::pi;
    // A phase given by a large time (about 2e9 radians for seconds since 2001) is reduced once here,
    // so each bar's sine gets a small argument instead of paying for an exact reduction of a huge one.
    const double phase = std::remainder(layout.phase, 2 * pi);
    const double barDenominator = static_cast<double>(barCount - 1);
    const double glowDenominator = static_cast<double>(std::max(barCount, 2) - 1);
    layout.bars.resize(static_cast<std::size_t>(barCount));
    for (int i = 0; i < barCount; ++i) {
        WaveBar& bar = layout.bars[static_cast<std::size_t>(i)];
        const double s = spectrumValue(inputs.spectrum, i, barCount);
        const double p = i / barDenominator;
        const double x = p * pi;
        const double c = 1 - 0.18 * std::fabs(2 * p - 1);
        const double raw = layout.gain * (0.22 + 0.78 * s) * (0.74 + 0.13 * std::cos(6 * x) + 0.07 * std::cos(14 * x)) *
                           (0.92 + layout.shimmer + 0.055 * std::sin(phase - 4 * x)) *
                           (1 + pulse * (0.18 + 0.14 * c));
        double halfHeight = layout.maxHalfHeight * std::pow(std::max(raw, 0.0), 1.16);
        halfHeight = std::max(halfHeight, w * 0.72);
        halfHeight = std::min(halfHeight, layout.maxHalfHeight);

        bar.x = layout.firstX + layout.spacing * i;
        bar.halfHeight = halfHeight;
        bar.spectrum = s;
        bar.intensity = std::clamp(0.38 + 0.5 * s + 0.16 * pulse * c, 0.0, 1.0);
        bar.color = colorAt(inputs.color, i / barDenominator);
        // The two denominators only differ below two bars, which the bar count never is.
        bar.glowColor = glowDenominator == barDenominator ? bar.color : colorAt(inputs.color, i / glowDenominator);
        bar.strokeOpacity = bar.intensity * WaveOpacity::stroke;
        bar.glowOpacity = bar.intensity * WaveOpacity::glow;
        bar.dotOpacity = std::min(bar.intensity + WaveOpacity::dotBoost, 1.0);
        bar.sparkleOpacity = bar.intensity * WaveOpacity::sparkle;
        const double r = sparkleHash(i);
        if (r > 0.9 && halfHeight > 4 * w) bar.sparkleReach = halfHeight * (1.08 + 1.2 * (r - 0.9));
    }
    return layout;
}

}  // namespace lorvane
