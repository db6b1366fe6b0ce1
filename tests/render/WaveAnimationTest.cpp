// The wave's phases integrate the motion over steady time: a change of motion changes the ripple's
// speed, never its place.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "core/Clock.h"
#include "core/render/WaveAnimation.h"
#include "core/render/WaveLayout.h"

using namespace lorvane;

namespace {

constexpr SizeF bandCanvas{1920, 138};
constexpr double frameInterval = 1.0 / 30;

WaveInputs live(double motion, const std::vector<double>& spectrum) {
    WaveInputs in;
    in.audioLevel = 0.7;
    in.motionRate = motion;
    in.beatPulse = 0.2;
    in.spectrum = spectrum;
    return in;
}

std::vector<double> musicSpectrum() {
    std::vector<double> spectrum(96);
    for (std::size_t band = 0; band < spectrum.size(); ++band) spectrum[band] = 0.9 * std::exp(-double(band) / 35.0);
    return spectrum;
}

// The angle from `from` to `to`, within half a turn.
double turned(double from, double to) { return std::remainder(to - from, 2 * std::numbers::pi); }

}  // namespace

TEST(WaveAnimation, AChangeOfMotionMovesNoBarByMoreThanOnePercent) {
    const auto spectrum = musicSpectrum();
    // A steady clock far from zero, as after days of uptime.
    ManualClock steady(800000000.0);
    WaveAnimation animation(steady);
    animation.advance(1.00);
    steady.advance(0.4);
    const WaveLayout first = layoutWave(live(1.00, spectrum), bandCanvas, animation.advance(1.00));
    steady.advance(frameInterval);
    const WaveLayout second = layoutWave(live(1.01, spectrum), bandCanvas, animation.advance(1.01));
    ASSERT_EQ(first.bars.size(), second.bars.size());
    double worst = 0;
    for (std::size_t i = 0; i < first.bars.size(); ++i) {
        worst = std::max(worst, std::fabs(second.bars[i].halfHeight - first.bars[i].halfHeight));
    }
    EXPECT_LT(worst, 0.01 * first.maxHalfHeight);
    // The frames did move: the ripple travelled.
    EXPECT_GT(worst, 0.0);
}

TEST(WaveAnimation, WithMotionFixedTheRippleMovesByTheTimeTimesMotionTimes2Point15) {
    ManualClock steady(5000.0);
    WaveAnimation animation(steady);
    for (const double motion : {0.62, 1.0, 1.37, 2.64}) {
        SCOPED_TRACE(motion);
        const WavePhase before = animation.advance(motion);
        for (const double dt : {frameInterval, 0.02, 0.04, 0.1}) {
            const WavePhase previous = animation.phase();
            const double start = steady.now();
            steady.advance(dt);
            const WavePhase after = animation.advance(motion);
            // dt as the clock counts it (5000 + dt rounds in the last bit).
            const double elapsed = steady.now() - start;
            EXPECT_NEAR(elapsed, dt, 1e-11);
            EXPECT_NEAR(turned(previous.ripple, after.ripple), elapsed * motion * WavePhase::rippleSpeed, 1e-13);
            EXPECT_NEAR(turned(previous.shimmer, after.shimmer), elapsed * motion * WavePhase::shimmerSpeed, 1e-13);
        }
        // And the layout draws with exactly that ripple.
        const auto spectrum = musicSpectrum();
        const WaveLayout layout = layoutWave(live(motion, spectrum), bandCanvas, animation.phase());
        EXPECT_DOUBLE_EQ(layout.phase, animation.phase().ripple);
        EXPECT_DOUBLE_EQ(layout.shimmer, std::sin(animation.phase().shimmer) * 0.025);
        EXPECT_NE(before.ripple, animation.phase().ripple);
    }
}

TEST(WaveAnimation, ALongPauseResumesWithoutALeap) {
    ManualClock steady(100.0);
    WaveAnimation animation(steady);
    animation.advance(1.0);
    steady.advance(3600);
    const WavePhase previous = animation.phase();
    animation.advance(2.0);
    EXPECT_NEAR(turned(previous.ripple, animation.phase().ripple),
                WaveAnimation::longestStep * 2.0 * WavePhase::rippleSpeed, 1e-12);
    // Paused (hidden): the next frame draws where the last one was.
    animation.pause();
    steady.advance(0.2);
    const WavePhase hidden = animation.phase();
    EXPECT_DOUBLE_EQ(animation.advance(1.0).ripple, hidden.ripple);
    // A clock that went backwards never runs the ripple in reverse.
    steady.advance(-1.0);
    EXPECT_DOUBLE_EQ(animation.advance(1.0).ripple, hidden.ripple);
}

TEST(WaveAnimation, AConstantMotionFromTimeZeroIsTheOldTimeFormula) {
    const WavePhase phase = WavePhase::atTime(250.0, 1.4);
    EXPECT_DOUBLE_EQ(phase.ripple, 250.0 * 1.4 * 2.15);
    EXPECT_DOUBLE_EQ(phase.shimmer, 250.0 * 1.4 * 1.25);
}
