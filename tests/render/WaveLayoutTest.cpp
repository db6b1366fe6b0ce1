#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <set>
#include <vector>

#include "core/render/WaveLayout.h"

using namespace lorvane;

namespace {

constexpr SizeF bandCanvas{1920, 138};

WaveInputs live(double level, double motion, double pulse, std::span<const double> spectrum) {
    WaveInputs in;
    in.audioLevel = level;
    in.motionRate = motion;
    in.beatPulse = pulse;
    in.spectrum = spectrum;
    return in;
}

std::set<int> sparkleBars(const WaveLayout& layout) {
    std::set<int> result;
    for (int i = 0; i < layout.barCount; ++i) {
        if (layout.bars[static_cast<std::size_t>(i)].sparkleReach) result.insert(i);
    }
    return result;
}

void expectColor(const RgbaColor& actual, const RgbaColor& expected) {
    EXPECT_NEAR(actual.red, expected.red, 1e-12);
    EXPECT_NEAR(actual.green, expected.green, 1e-12);
    EXPECT_NEAR(actual.blue, expected.blue, 1e-12);
    EXPECT_NEAR(actual.alpha, expected.alpha, 1e-12);
}

}  // namespace

TEST(WaveBarCount, TruncatesWidthOver5Point2AndClampsTo112Through640) {
    EXPECT_EQ(waveBarCount(500), 112);
    EXPECT_EQ(waveBarCount(587), 112);
    EXPECT_EQ(waveBarCount(587.5), 112);
    EXPECT_EQ(waveBarCount(588), 113);
    EXPECT_EQ(waveBarCount(1920), 369);
    EXPECT_EQ(waveBarCount(3327), 639);
    EXPECT_EQ(waveBarCount(3328), 640);
    EXPECT_EQ(waveBarCount(4000), 640);
    EXPECT_EQ(waveBarCount(1), 112);
}

TEST(WaveBarCountDeathTest, NonFiniteWidthStopsTheProgram) {
    EXPECT_DEATH(waveBarCount(std::nan("")), "");
    EXPECT_DEATH(waveBarCount(1e300), "");
}

TEST(WaveLayout, BarCountSpacingAndPositionsFollowTheCanvasWidth) {
    for (double width : {500.0, 587.0, 588.0, 1920.0, 3328.0, 4000.0}) {
        const WaveLayout layout = layoutWave({}, {width, 138}, 100);
        ASSERT_EQ(layout.barCount, waveBarCount(width));
        ASSERT_EQ(layout.bars.size(), static_cast<std::size_t>(layout.barCount));
        EXPECT_DOUBLE_EQ(layout.spacing, width / layout.barCount);
        EXPECT_DOUBLE_EQ(layout.firstX, layout.spacing * 0.5);
        for (int i = 0; i < layout.barCount; ++i) {
            EXPECT_DOUBLE_EQ(layout.bars[static_cast<std::size_t>(i)].x, layout.firstX + layout.spacing * i);
        }
        // The last bar sits half a spacing from the right edge.
        EXPECT_NEAR(layout.bars.back().x, width - layout.spacing * 0.5, 1e-9);
    }
}

TEST(WaveLayout, DerivedQuantitiesOfA1920By138Band) {
    const std::vector<double> spectrum(96, 0.5);
    const WaveLayout layout = layoutWave(live(0.6, 1.4, 0.3, spectrum), bandCanvas, 250.0);
    EXPECT_EQ(layout.barCount, 369);
    EXPECT_DOUBLE_EQ(layout.spacing, 1920.0 / 369);
    EXPECT_NEAR(layout.barWidth, 1.3528455284552845, 1e-15);
    EXPECT_DOUBLE_EQ(layout.dashOn, 1.0);  // w x 0.72 = 0.974 is raised to 1
    EXPECT_DOUBLE_EQ(layout.dashOff, layout.barWidth * 1.35);
    EXPECT_DOUBLE_EQ(layout.midY, 69);
    EXPECT_DOUBLE_EQ(layout.maxHalfHeight, 138 * 0.42);
    EXPECT_DOUBLE_EQ(layout.phase, 250.0 * 1.4 * 2.15);
    EXPECT_DOUBLE_EQ(layout.shimmer, std::sin(250.0 * 1.4 * 1.25) * 0.025);
    EXPECT_DOUBLE_EQ(layout.gain, 0.6 * 1.02 + 0.14);
    EXPECT_DOUBLE_EQ(layout.baselineOpacity, 0.6 * 0.16 + 0.16);
    EXPECT_DOUBLE_EQ(layout.dotDiameter, layout.barWidth * (1.1 + 0.7 * 0.3));
    EXPECT_DOUBLE_EQ(layout.sparkleDiameter, std::max(layout.barWidth * 0.62, 0.8));
    EXPECT_DOUBLE_EQ(layout.glowLineWidth, layout.barWidth * 3.2);
    EXPECT_DOUBLE_EQ(layout.glowRadius, 4.0);
    EXPECT_DOUBLE_EQ(layout.baselineWidth, 0.7);
}

TEST(WaveLayout, BarWidthAndDashesAreClampedForWideAndNarrowSpacing) {
    // 500 points over 112 bars: spacing 4.46, w = 1.16.
    const WaveLayout narrow = layoutWave({}, {500, 138}, 0);
    EXPECT_DOUBLE_EQ(narrow.barWidth, 500.0 / 112 * 0.26);
    EXPECT_DOUBLE_EQ(narrow.dashOff, 1.7);  // w x 1.35 = 1.567 is raised to 1.7
    // 300 points: spacing 2.68, w would be 0.70 and is raised to 1.
    const WaveLayout tiny = layoutWave({}, {300, 138}, 0);
    EXPECT_DOUBLE_EQ(tiny.barWidth, 1.0);
    EXPECT_DOUBLE_EQ(tiny.sparkleDiameter, 0.8);
    // 6000 points over 640 bars: spacing 9.375, w would be 2.44 and is lowered to 2.2.
    const WaveLayout wide = layoutWave({}, {6000, 420}, 0);
    EXPECT_DOUBLE_EQ(wide.barWidth, 2.2);
    EXPECT_DOUBLE_EQ(wide.dashOn, 2.2 * 0.72);
    EXPECT_DOUBLE_EQ(wide.dashOff, 2.2 * 1.35);
}

TEST(WaveLayout, HandWorkedBarsOfTheSyntheticShape) {
    // Level 0.5, motion 1, pulse 0, empty spectrum, t = 0 (values from an independent calculation).
    const WaveLayout layout = layoutWave(live(0.5, 1, 0, {}), bandCanvas, 0);
    EXPECT_NEAR(layout.bars[0].spectrum, 0.4660827309079427, 1e-12);
    EXPECT_NEAR(layout.bars[0].halfHeight, 15.90654664423908, 1e-9);
    EXPECT_NEAR(layout.bars[0].intensity, 0.6130413654539714, 1e-12);
    EXPECT_NEAR(layout.bars[100].spectrum, 0.26276240371854054, 1e-12);
    EXPECT_NEAR(layout.bars[100].halfHeight, 9.96692042167662, 1e-9);
    EXPECT_NEAR(layout.bars[100].intensity, 0.5113812018592703, 1e-12);
    EXPECT_NEAR(layout.bars[368].halfHeight, 11.74417120528507, 1e-9);
    EXPECT_NEAR(layout.bars[368].intensity, 0.5269586345460289, 1e-12);
}

TEST(WaveLayout, HandWorkedBarOfALiveSpectrum) {
    std::vector<double> spectrum(96);
    for (int band = 0; band < 96; ++band) spectrum[static_cast<std::size_t>(band)] = band / 95.0;
    const WaveLayout layout = layoutWave(live(0.7, 1.6, 0.4, spectrum), bandCanvas, 12.5);
    // Bar 57 of 369 mirrors to band 66 and averages bands 63...69.
    EXPECT_NEAR(layout.bars[57].spectrum, 0.6947368421052632, 1e-12);
    EXPECT_NEAR(layout.bars[57].halfHeight, 22.640493728710904, 1e-9);
    EXPECT_NEAR(layout.bars[57].intensity, 0.7834171167048056, 1e-12);
}

TEST(WaveLayout, OpacitiesFollowTheIntensity) {
    const std::vector<double> spectrum(96, 1.0);
    const WaveLayout layout = layoutWave(live(0.8, 1, 1, spectrum), bandCanvas, 3);
    for (const WaveBar& bar : layout.bars) {
        EXPECT_DOUBLE_EQ(bar.strokeOpacity, bar.intensity * 0.88);
        EXPECT_DOUBLE_EQ(bar.glowOpacity, bar.intensity * 0.3);
        EXPECT_DOUBLE_EQ(bar.dotOpacity, std::min(bar.intensity + 0.15, 1.0));
        EXPECT_DOUBLE_EQ(bar.sparkleOpacity, bar.intensity * 0.42);
        EXPECT_LE(bar.intensity, 1.0);
    }
    // 0.38 + 0.5 + 0.16 x c exceeds 1 in the middle and is clamped.
    EXPECT_DOUBLE_EQ(layout.bars[184].intensity, 1.0);
    EXPECT_DOUBLE_EQ(layout.bars[184].dotOpacity, 1.0);
}

TEST(WaveLayout, HalfHeightNeverExceedsFortyTwoPercentOfTheHeight) {
    const std::vector<double> full(96, 1.0);
    for (double height : {138.0, 420.0, 410.4, 60.0}) {
        bool reachedCeiling = false;
        for (double t : {0.0, 0.37, 1.9, 77.7, 781234567.25}) {
            const WaveLayout layout = layoutWave(live(1, 2.8, 1, full), {1920, height}, t);
            for (const WaveBar& bar : layout.bars) {
                EXPECT_LE(bar.halfHeight, height * 0.42);
                if (bar.halfHeight == height * 0.42) reachedCeiling = true;
            }
        }
        EXPECT_TRUE(reachedCeiling) << "level 1, pulse 1 and a full spectrum overshoot, so the ceiling applies";
    }
}

TEST(WaveLayout, SilentLiveModelStillDrawsBarsOfAtLeastTheFloor) {
    const std::vector<double> silent(96, 0.0);
    const double t = 5000.125;
    const WaveLayout layout = layoutWave(live(0, 1, 0, silent), {1920, 420}, t);
    const double w = layout.barWidth;
    for (int i = 0; i < layout.barCount; ++i) {
        const WaveBar& bar = layout.bars[static_cast<std::size_t>(i)];
        const double x = static_cast<double>(i) / (layout.barCount - 1) * std::numbers::pi;
        const double raw = 0.14 * 0.22 * (0.74 + 0.13 * std::cos(6 * x) + 0.07 * std::cos(14 * x)) *
                           (0.92 + layout.shimmer + 0.055 * std::sin(layout.phase - 4 * x));
        EXPECT_GE(bar.halfHeight, w * 0.72);
        // The layout reduces the phase modulo 2 pi first; the two evaluations agree far below a pixel.
        EXPECT_NEAR(bar.halfHeight, std::max(420 * 0.42 * std::pow(raw, 1.16), w * 0.72), 1e-9);
        EXPECT_DOUBLE_EQ(bar.intensity, 0.38);
    }
}

TEST(WaveLayout, CeilingWinsWhenTheFloorIsAboveIt) {
    // Height 2: ceiling 0.84, floor w x 0.72 = 0.974.
    const WaveLayout layout = layoutWave(live(0, 1, 0, {}), {1920, 2}, 0);
    for (const WaveBar& bar : layout.bars) EXPECT_DOUBLE_EQ(bar.halfHeight, 2 * 0.42);
}

TEST(WaveLayout, LiveSpectrumIsLeftRightSymmetric) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> unit(0, 1);
    std::vector<double> spectrum(96);
    for (double& band : spectrum) band = unit(random);
    for (double width : {500.0, 1920.0, 3840.0}) {
        const WaveLayout layout = layoutWave(live(0.5, 1, 0.5, spectrum), {width, 138}, 42);
        const int n = layout.barCount;
        for (int i = 0; i < n; ++i) {
            const int mirror = n - 1 - i;
            EXPECT_DOUBLE_EQ(spectrumValue(spectrum, i, n), spectrumValue(spectrum, mirror, n));
            EXPECT_DOUBLE_EQ(layout.bars[static_cast<std::size_t>(i)].intensity,
                             layout.bars[static_cast<std::size_t>(mirror)].intensity);
        }
    }
}

TEST(SpectrumValue, MiddleReadsTheFirstBandsAndEndsTheLastBands) {
    std::vector<double> spectrum(96, 0.0);
    for (int band = 0; band < 96; ++band) spectrum[static_cast<std::size_t>(band)] = band;
    // Middle bar of 369: band 0, mean of bands 0...3.
    EXPECT_DOUBLE_EQ(spectrumValue(spectrum, 184, 369), (0 + 1 + 2 + 3) / 4.0);
    // End bars: band 95, mean of 92...95.
    EXPECT_DOUBLE_EQ(spectrumValue(spectrum, 0, 369), (92 + 93 + 94 + 95) / 4.0);
    EXPECT_DOUBLE_EQ(spectrumValue(spectrum, 368, 369), (92 + 93 + 94 + 95) / 4.0);
    // Bar 92 of 369: m = 0.5, c = round(47.5) = 48 (halves away from zero), mean of 45...51.
    EXPECT_DOUBLE_EQ(spectrumValue(spectrum, 92, 369), 48.0);
}

TEST(SpectrumValue, OneBandIsReadByEveryBar) {
    const std::vector<double> one{0.37};
    for (int i = 0; i < 369; ++i) EXPECT_DOUBLE_EQ(spectrumValue(one, i, 369), 0.37);
}

TEST(SpectrumValue, EmptySpectrumGivesTheSyntheticShapeRunningOnceAcross) {
    const int n = 369;
    for (int i = 0; i < n; ++i) {
        const double x = static_cast<double>(i) / (n - 1) * std::numbers::pi;
        EXPECT_DOUBLE_EQ(spectrumValue({}, i, n), 0.38 + 0.22 * std::sin(13 * x) + 0.12 * std::sin(31 * x + 0.8));
    }
    // Not mirrored: the two ends differ (0.38 + 0.12 sin 0.8 against 0.38 - 0.12 sin 0.8).
    EXPECT_NEAR(spectrumValue({}, 0, n), 0.38 + 0.12 * std::sin(0.8), 1e-12);
    EXPECT_NEAR(spectrumValue({}, n - 1, n), 0.38 - 0.12 * std::sin(0.8), 1e-12);
    EXPECT_NE(spectrumValue({}, 10, n), spectrumValue({}, n - 11, n));
    // A single bar divides by max(n - 1, 1).
    EXPECT_NEAR(spectrumValue({}, 1, 1), 0.38 + 0.22 * std::sin(13 * std::numbers::pi) +
                                             0.12 * std::sin(31 * std::numbers::pi + 0.8),
                1e-12);
}

TEST(WaveLayout, AudioResponsiveOffUsesTheConstantsWhateverTheModelHolds) {
    const std::vector<double> spectrum(96, 0.9);
    WaveInputs busy = live(0.95, 2.6, 0.9, spectrum);
    busy.audioResponsive = false;
    WaveInputs constants = live(0.48, 1.0, 0.16, spectrum);
    const WaveLayout off = layoutWave(busy, bandCanvas, 321.5);
    const WaveLayout reference = layoutWave(constants, bandCanvas, 321.5);
    EXPECT_DOUBLE_EQ(off.level, 0.48);
    EXPECT_DOUBLE_EQ(off.motion, 1.0);
    EXPECT_DOUBLE_EQ(off.pulse, 0.16);
    EXPECT_DOUBLE_EQ(off.gain, 0.48 * 1.02 + 0.14);
    for (int i = 0; i < off.barCount; ++i) {
        EXPECT_DOUBLE_EQ(off.bars[static_cast<std::size_t>(i)].halfHeight,
                         reference.bars[static_cast<std::size_t>(i)].halfHeight);
    }
    // Time alone still moves it.
    const WaveLayout later = layoutWave(busy, bandCanvas, 322.0);
    int moved = 0;
    for (int i = 0; i < off.barCount; ++i) {
        if (later.bars[static_cast<std::size_t>(i)].halfHeight != off.bars[static_cast<std::size_t>(i)].halfHeight) {
            ++moved;
        }
    }
    EXPECT_GT(moved, off.barCount / 2);
}

TEST(WaveLayout, SparklesStayOnTheSameBarsAndNeedTallBars) {
    const std::vector<double> full(96, 1.0);
    const WaveLayout first = layoutWave(live(1, 1, 1, full), {1920, 420}, 10);
    const WaveLayout second = layoutWave(live(1, 2, 0.5, full), {1920, 420}, 987.25);
    const std::set<int> bars = sparkleBars(first);
    EXPECT_FALSE(bars.empty());
    EXPECT_EQ(bars, sparkleBars(second));
    // The bars whose hash exceeds 0.9 (checked independently for the first few).
    const std::set<int> expectedStart{24, 33, 44, 45, 95, 133, 143, 170, 172, 230, 232, 250, 251, 260};
    for (int index : expectedStart) EXPECT_TRUE(bars.count(index)) << index;
    for (int i = 0; i < first.barCount; ++i) {
        const WaveBar& bar = first.bars[static_cast<std::size_t>(i)];
        const double r = sparkleHash(i);
        ASSERT_EQ(bar.sparkleReach.has_value(), r > 0.9 && bar.halfHeight > 4 * first.barWidth) << i;
        if (bar.sparkleReach) {
            EXPECT_DOUBLE_EQ(*bar.sparkleReach, bar.halfHeight * (1.08 + 1.2 * (r - 0.9)));
        }
    }
    // Short bars carry none: a 12-point canvas caps the half-height at 5.04, below 4w = 5.41.
    EXPECT_TRUE(sparkleBars(layoutWave(live(1, 1, 1, full), {1920, 12}, 10)).empty());
    // A silent model keeps every bar at the floor.
    const std::vector<double> silent(96, 0.0);
    EXPECT_TRUE(sparkleBars(layoutWave(live(0, 1, 0, silent), {1920, 420}, 10)).empty());
}

TEST(SparkleHash, IsTheSignedFractionalPartOfTheSineHash) {
    // k = 19: v = sin(12.9898 x 19 + 78.233) x 43758.5453.
    const double v = std::sin(12.9898 * 19 + 78.233) * 43758.5453;
    EXPECT_DOUBLE_EQ(sparkleHash(0), v - std::trunc(v));
    EXPECT_NEAR(sparkleHash(0), -0.2900176249531796, 1e-9);
    EXPECT_LT(sparkleHash(0), 0);  // the sign of v is kept
}

TEST(WaveLayout, GradientPaletteColoursFirstMiddleAndLastBar) {
    WaveInputs in;
    in.color = WaveColor::aurora;
    const WaveLayout layout = layoutWave(in, bandCanvas, 0);  // 369 bars: bar 184 sits at 0.5
    expectColor(layout.bars[0].color, RgbaColor::fromBytes(19, 216, 212));
    expectColor(layout.bars[184].color, RgbaColor::fromBytes(61, 139, 255));
    expectColor(layout.bars[368].color, RgbaColor::fromBytes(168, 85, 247));
    expectColor(layout.bars[0].glowColor, RgbaColor::fromBytes(19, 216, 212));
    expectColor(layout.bars[184].glowColor, RgbaColor::fromBytes(61, 139, 255));
    expectColor(layout.bars[368].glowColor, RgbaColor::fromBytes(168, 85, 247));
    // A quarter of the way: halfway between the first two colours.
    expectColor(layout.bars[92].color, RgbaColor::fromBytes(19, 216, 212).blended(0.5, RgbaColor::fromBytes(61, 139, 255)));
}

TEST(WaveLayout, BaselineIsAPlainColourOrAnEvenGradient) {
    WaveInputs solid;
    solid.color = WaveColor::pink;
    solid.audioLevel = 0.25;
    const WaveLayout plain = layoutWave(solid, bandCanvas, 0);
    ASSERT_EQ(plain.baselineStops.size(), 1u);
    expectColor(plain.baselineStops[0].color, RgbaColor::fromBytes(255, 77, 145).withAlpha(0.25 * 0.16 + 0.16));

    WaveInputs contrast;
    contrast.color = WaveColor::candyPop;
    contrast.audioLevel = 1;
    const WaveLayout gradient = layoutWave(contrast, bandCanvas, 0);
    ASSERT_EQ(gradient.baselineStops.size(), 4u);
    const auto palette = colors(WaveColor::candyPop);
    for (std::size_t k = 0; k < 4; ++k) {
        EXPECT_DOUBLE_EQ(gradient.baselineStops[k].location, k / 3.0);
        expectColor(gradient.baselineStops[k].color, palette[k].withAlpha(0.32));
    }
}

TEST(WaveLayout, GlowRadiusDependsOnTheMode) {
    WaveInputs fog;
    fog.displayMode = OverlayDisplayMode::fullscreenFog;
    EXPECT_DOUBLE_EQ(layoutWave(fog, {1920, 410.4}, 0).glowRadius, 5.5);
    EXPECT_DOUBLE_EQ(layoutWave({}, bandCanvas, 0).glowRadius, 4.0);
}

TEST(WaveSize, CompactIsTwelvePointsShorterAndFogIsThirtyEightPercentUpTo420) {
    EXPECT_EQ(waveSize({1920, 150}, OverlayDisplayMode::compact), (SizeF{1920, 138}));
    EXPECT_EQ(waveSize({1920, 250}, OverlayDisplayMode::compact), (SizeF{1920, 238}));
    EXPECT_EQ(waveSize({1920, 5}, OverlayDisplayMode::compact), (SizeF{1920, 1}));
    EXPECT_EQ(waveSize({0, 150}, OverlayDisplayMode::compact), (SizeF{1, 138}));
    EXPECT_EQ(waveSize({1920, 1080}, OverlayDisplayMode::fullscreenFog), (SizeF{1920, 1080 * 0.38}));
    EXPECT_EQ(waveSize({3840, 2160}, OverlayDisplayMode::fullscreenFog), (SizeF{3840, 420}));
    EXPECT_EQ(waveSize({-5, 1000}, OverlayDisplayMode::fullscreenFog), (SizeF{1, 380}));
}

TEST(WaveLayout, RippleStaysExactForTimesCountedFrom2001) {
    // Around 2023 the phase is about 2e9 radians; the ripple must match the formula evaluated directly.
    const std::vector<double> spectrum(96, 0.6);
    const double t = 700000000.25;
    const WaveLayout layout = layoutWave(live(0.6, 1.7, 0.3, spectrum), bandCanvas, t);
    for (int i : {0, 57, 184, 300, 368}) {
        const double p = static_cast<double>(i) / 368;
        const double x = p * std::numbers::pi;
        const double c = 1 - 0.18 * std::fabs(2 * p - 1);
        const long double direct = std::sin(static_cast<long double>(t) * 1.7L * 2.15L - 4.0L * x);
        const double raw = layout.gain * (0.22 + 0.78 * 0.6) * (0.74 + 0.13 * std::cos(6 * x) + 0.07 * std::cos(14 * x)) *
                           (0.92 + layout.shimmer + 0.055 * static_cast<double>(direct)) * (1 + 0.3 * (0.18 + 0.14 * c));
        EXPECT_NEAR(layout.bars[static_cast<std::size_t>(i)].halfHeight, 138 * 0.42 * std::pow(raw, 1.16), 1e-5) << i;
    }
}
