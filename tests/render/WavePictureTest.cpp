// Pictures of the wave drawn by the OpenGL renderer, read back from an offscreen framebuffer (or, run
// with --drawing-path=cpu, drawn by the CPU path) and checked against the frame layout: where the bars are, their colours, the dash pattern, the dots,
// the glow, the baseline and the clear space around them. A few whole pictures are also compared
// with stored references (regenerate them on purpose with LORVANE_UPDATE_REFERENCE_IMAGES=1).
#include <gtest/gtest.h>

#include <QDir>
#include <QImage>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "core/render/VisualizerView.h"
#include "core/render/DrawingPath.h"
#include "ui/OffscreenWaveRenderer.h"
#include "ui/VisualizerPainter.h"
#include "ui/WaveRasterRenderer.h"

using namespace lorvane;

OffscreenWaveRenderer& pictureRenderer();
DrawingPath picturePath();

namespace {

constexpr double fixedTime = 700000000.25;  // a moment in March 2023

struct Scene {
    std::shared_ptr<MemoryKeyValueStore> store = std::make_shared<MemoryKeyValueStore>();
    std::shared_ptr<OverlayPreferences> preferences = std::make_shared<OverlayPreferences>(store);
    std::shared_ptr<VisualizerModel> model = std::make_shared<VisualizerModel>();
    VisualizerView view{preferences, model};

    Scene(OverlayDisplayMode mode, WaveColor color, double pulse = 0.6) {
        preferences->setDisplayMode(mode);
        preferences->setColor(color);
        std::vector<double> spectrum(96);
        for (int band = 0; band < 96; ++band) spectrum[static_cast<std::size_t>(band)] = 0.95 * std::exp(-band / 40.0);
        model->updateLiveFrame({0.85, 1.3, pulse, spectrum});
    }
};

OffscreenWaveRenderer& renderer() { return pictureRenderer(); }

// One pixel, unpremultiplied, components 0...1.
struct Pixel {
    double red = 0, green = 0, blue = 0, alpha = 0;
};

// The wave's own contribution at a point: the pixel with the known premultiplied fill under the wave
// (the fog tint, or nothing) taken back out.
Pixel at(const QImage& image, double xPoints, double yPoints, const RgbaColor& fill = transparentBackground) {
    const double ratio = image.devicePixelRatio();
    const int column = std::clamp(static_cast<int>(std::floor(xPoints * ratio)), 0, image.width() - 1);
    const int row = std::clamp(static_cast<int>(std::floor(yPoints * ratio)), 0, image.height() - 1);
    const QRgb value = image.pixel(column, row);  // premultiplied ARGB
    Pixel p;
    p.alpha = (qAlpha(value) / 255.0 - fill.alpha) / (1 - fill.alpha);
    if (p.alpha > 0) {
        const double under = 1 - p.alpha;
        p.red = (qRed(value) / 255.0 - fill.red * under) / p.alpha;
        p.green = (qGreen(value) / 255.0 - fill.green * under) / p.alpha;
        p.blue = (qBlue(value) / 255.0 - fill.blue * under) / p.alpha;
    }
    return p;
}

double colourDistance(const Pixel& p, const RgbaColor& c) {
    return std::max({std::fabs(p.red - c.red), std::fabs(p.green - c.green), std::fabs(p.blue - c.blue)});
}

struct Frame {
    WaveLayout layout;
    RectF canvas;
    QImage image;
    RgbaColor fill;  // premultiplied, under the wave

    Pixel at(double x, double y) const { return ::at(image, x, y, fill); }
};

Frame render(const Scene& scene, SizeF panel, double ratio, const RgbaColor& background = transparentBackground) {
    Frame frame;
    const WaveComposition body = scene.view.body(panel);
    frame.canvas = body.waveform;
    frame.layout = scene.view.layout(body.waveform.size(), fixedTime);
    if (picturePath() == DrawingPath::cpu) {
        WaveRasterRenderer cpu;
        frame.image = cpu.render(scene.view.frame(panel, fixedTime), ratio, background);
    } else {
        frame.image = renderer().renderView(scene.view, panel, ratio, fixedTime, background);
    }
    frame.fill = body.tint ? sourceOver(premultiplied(*body.tint), background) : background;
    return frame;
}

// The bar with the greatest half-height that carries no sparkle.
std::size_t tallestPlainBar(const WaveLayout& layout) {
    std::size_t best = 0;
    for (std::size_t i = 0; i < layout.bars.size(); ++i) {
        if (!layout.bars[i].sparkleReach && layout.bars[i].halfHeight > layout.bars[best].halfHeight) best = i;
    }
    return best;
}

struct ModeAndPalette {
    OverlayDisplayMode mode;
    WaveColor color;
    double ratio;
};

class WavePictureByModeAndPalette : public testing::TestWithParam<ModeAndPalette> {};

}  // namespace

TEST(WavePicture, RendererRunsOnThisMachine) {
    ASSERT_TRUE(renderer().isValid()) << "no OpenGL 3.3 core / ES 3.0 context";
    RecordProperty("renderer", renderer().description().toStdString());
}

TEST_P(WavePictureByModeAndPalette, BarsSitAtTheLayoutPositionsInTheLayoutColours) {
    const auto [mode, color, ratio] = GetParam();
    Scene scene(mode, color);
    const SizeF panel = mode == OverlayDisplayMode::compact ? SizeF{1920, 150} : SizeF{1280, 720};
    const Frame f = render(scene, panel, ratio);
    ASSERT_FALSE(f.image.isNull());
    ASSERT_EQ(f.image.width(), static_cast<int>(std::lround(panel.width * ratio)));
    const WaveLayout& layout = f.layout;
    const double midY = f.canvas.y + layout.midY;
    int checked = 0;
    for (std::size_t i = 0; i < layout.bars.size(); i += 7) {
        const WaveBar& bar = layout.bars[i];
        const double x = f.canvas.x + bar.x;
        // On the centre line: the bar's dot, in the bar's colour.
        const Pixel centre = f.at(x, midY);
        EXPECT_GT(centre.alpha, 0.5 * bar.dotOpacity) << "bar " << i;
        EXPECT_LT(colourDistance(centre, bar.color), 6 / 255.0) << "bar " << i;
        // Halfway to the next bar: only glow and baseline, far fainter than the bar.
        const double between = x + layout.spacing / 2;
        const Pixel gap = f.at(between, midY - 2 * layout.barWidth);
        EXPECT_LT(gap.alpha, 0.5 * centre.alpha) << "bar " << i;
        // At the first dash from the upper end: the bar itself, in the same colour.
        const Pixel dash = f.at(x, midY - bar.halfHeight + layout.dashOn / 2);
        EXPECT_GT(dash.alpha, 0.4 * bar.strokeOpacity) << "bar " << i;
        EXPECT_LT(colourDistance(dash, bar.color), 8 / 255.0) << "bar " << i;
        ++checked;
    }
    EXPECT_GT(checked, 15);
}

TEST_P(WavePictureByModeAndPalette, NothingIsDrawnOutsideTheCanvasOrFarFromTheWave) {
    const auto [mode, color, ratio] = GetParam();
    Scene scene(mode, color);
    const SizeF panel = mode == OverlayDisplayMode::compact ? SizeF{1920, 150} : SizeF{1280, 720};
    const Frame f = render(scene, panel, ratio);
    const RgbaColor expected = mode == OverlayDisplayMode::fullscreenFog ? premultiplied(VisualizerView::fogTint)
                                                                          : transparentBackground;
    // Above and below the canvas (the compact band's 6-point margins, the fog's empty screen).
    for (double x = 3; x < panel.width; x += 97) {
        for (double y : {0.5, f.canvas.y - 0.6, f.canvas.bottom() + 0.6, panel.height - 0.5}) {
            const QRgb value = f.image.pixel(static_cast<int>(x * ratio), static_cast<int>(y * ratio));
            EXPECT_NEAR(qAlpha(value), expected.alpha * 255, 1.0) << x << "," << y;
            EXPECT_NEAR(qRed(value), expected.red * 255, 1.0) << x << "," << y;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    BothModesTwoPalettes, WavePictureByModeAndPalette,
    testing::Values(ModeAndPalette{OverlayDisplayMode::compact, WaveColor::cyan, 1},
                    ModeAndPalette{OverlayDisplayMode::compact, WaveColor::aurora, 1},
                    ModeAndPalette{OverlayDisplayMode::compact, WaveColor::aurora, 2},
                    ModeAndPalette{OverlayDisplayMode::fullscreenFog, WaveColor::cyan, 1},
                    ModeAndPalette{OverlayDisplayMode::fullscreenFog, WaveColor::aurora, 1}),
    [](const testing::TestParamInfo<ModeAndPalette>& info) {
        return std::string(rawValue(info.param.mode)) + "_" + std::string(rawValue(info.param.color)) + "_x" +
               std::to_string(static_cast<int>(info.param.ratio));
    });

TEST(WavePicture, DashesAlternateWithGapsFromTheUpperEndDown) {
    Scene scene(OverlayDisplayMode::fullscreenFog, WaveColor::cyan);
    const Frame f = render(scene, {960, 540}, 4);
    const WaveLayout& layout = f.layout;
    const WaveBar& bar = layout.bars[tallestPlainBar(layout)];
    const double x = f.canvas.x + bar.x;
    const double top = f.canvas.y + layout.midY - bar.halfHeight;
    const double period = layout.dashOn + layout.dashOff;
    const double dotClearance = layout.dotDiameter / 2 + layout.barWidth;
    int dashes = 0;
    for (int j = 0; top + j * period + layout.dashOn + layout.barWidth < f.canvas.y + layout.midY - dotClearance; ++j) {
        const Pixel dash = f.at(x, top + j * period + layout.dashOn / 2);
        const Pixel gap = f.at(x, top + j * period + layout.dashOn + layout.dashOff / 2);
        EXPECT_GT(dash.alpha, 0.8 * bar.strokeOpacity) << "dash " << j;
        EXPECT_LT(colourDistance(dash, bar.color), 4 / 255.0) << "dash " << j;
        EXPECT_LT(gap.alpha, 0.5 * dash.alpha) << "gap after dash " << j;
        ++dashes;
    }
    EXPECT_GT(dashes, 10);
    // The round cap reaches half the bar width above the upper end, not more.
    EXPECT_GT(f.at(x, top - layout.barWidth * 0.25).alpha, 0.5 * bar.strokeOpacity);
    EXPECT_LT(f.at(x, top - layout.barWidth * 0.9).alpha, 0.4 * bar.strokeOpacity);
}

TEST(WavePicture, DotsSitOnTheCentreLineWiderThanTheBars) {
    Scene scene(OverlayDisplayMode::fullscreenFog, WaveColor::sunset, 1.0);  // pulse 1: dots 1.8 bar widths
    const Frame f = render(scene, {960, 540}, 4);
    const WaveLayout& layout = f.layout;
    const double midY = f.canvas.y + layout.midY;
    ASSERT_NEAR(layout.dotDiameter, layout.barWidth * 1.8, 1e-12);
    for (std::size_t i = 5; i < layout.bars.size(); i += 37) {
        const WaveBar& bar = layout.bars[i];
        const double x = f.canvas.x + bar.x + 0.7 * layout.barWidth;  // beside the bar, inside the dot
        const Pixel onLine = f.at(x, midY);
        const Pixel offLine = f.at(x, midY - 3 * layout.barWidth);
        EXPECT_GT(onLine.alpha, 0.7 * bar.dotOpacity) << "bar " << i;
        EXPECT_LT(offLine.alpha, 0.4 * onLine.alpha) << "bar " << i;
        EXPECT_LT(colourDistance(onLine, bar.color), 6 / 255.0) << "bar " << i;
    }
}

TEST(WavePicture, SparklesShineBeyondTheTipsOfTallBars) {
    Scene scene(OverlayDisplayMode::fullscreenFog, WaveColor::white, 1.0);
    const Frame f = render(scene, {1280, 720}, 2);
    const WaveLayout& layout = f.layout;
    const double midY = f.canvas.y + layout.midY;
    int sparkles = 0;
    for (const WaveBar& bar : layout.bars) {
        if (!bar.sparkleReach) continue;
        const double x = f.canvas.x + bar.x;
        const Pixel above = f.at(x, midY - *bar.sparkleReach);
        const Pixel below = f.at(x, midY + *bar.sparkleReach);
        // Between the bar's tip and the sparkle only glow remains.
        const double emptyY = midY - (bar.halfHeight + layout.barWidth / 2 + *bar.sparkleReach -
                                      layout.sparkleDiameter / 2) / 2;
        const bool separated = *bar.sparkleReach - layout.sparkleDiameter / 2 > bar.halfHeight + layout.barWidth;
        EXPECT_GT(above.alpha, 0.5 * bar.sparkleOpacity);
        EXPECT_GT(below.alpha, 0.5 * bar.sparkleOpacity);
        if (separated) {
            EXPECT_LT(f.at(x, emptyY).alpha, 0.7 * above.alpha);
        }
        ++sparkles;
    }
    EXPECT_GT(sparkles, 3);
}

TEST(WavePicture, GlowIsWiderThanTheBarsAndFadesAway) {
    Scene scene(OverlayDisplayMode::compact, WaveColor::pink);
    const Frame f = render(scene, {1920, 150}, 1);
    const WaveLayout& layout = f.layout;
    const WaveBar& bar = layout.bars[tallestPlainBar(layout)];
    const double x = f.canvas.x + bar.x;
    const double tip = f.canvas.y + layout.midY - bar.halfHeight - layout.barWidth / 2;
    // A few points beyond the tip there is no stroke, only the blurred glow in the bar's colour.
    const Pixel halo = f.at(x, tip - 3);
    EXPECT_GT(halo.alpha, 0.02);
    EXPECT_LT(halo.alpha, 0.3);
    EXPECT_LT(colourDistance(halo, bar.color), 10 / 255.0);
    // Far beyond the glow radius it has faded out.
    if (tip - 20 > f.canvas.y) {
        EXPECT_LT(f.at(x, tip - 20).alpha, 0.004);
    }
}

TEST(WavePicture, BaselineRunsAlongTheCentreLineInThePaletteGradient) {
    Scene scene(OverlayDisplayMode::compact, WaveColor::aurora);
    scene.model->updateLiveFrame({0.85, 1.3, 0, std::vector<double>(96, 0.0)});  // short bars, clear baseline
    const Frame f = render(scene, {1280, 150}, 4);
    const WaveLayout& layout = f.layout;
    const double midY = f.canvas.y + layout.midY;
    const double left = f.canvas.x + layout.bars[0].x + layout.spacing / 2;
    const double right = f.canvas.x + layout.bars.back().x - layout.spacing / 2;
    const Pixel onLeft = f.at(left, midY);
    const Pixel offLeft = f.at(left, midY - 1.2);
    EXPECT_GT(onLeft.alpha, offLeft.alpha + 0.5 * layout.baselineOpacity);
    const auto palette = colors(WaveColor::aurora);
    EXPECT_LT(colourDistance(onLeft, palette[0]), 0.06);
    EXPECT_LT(colourDistance(f.at(right, midY), palette[2]), 0.06);
    EXPECT_LT(colourDistance(f.at(f.canvas.x + f.canvas.width / 2 + layout.spacing / 2, midY), palette[1]),
              0.06);
}

TEST(WavePicture, OpaqueBackgroundWhenNothingBlendsTheWindow) {
    Scene scene(OverlayDisplayMode::compact, WaveColor::cyan);
    const Frame f = render(scene, {1920, 150}, 1, opaqueBackground);
    for (int y = 0; y < f.image.height(); y += 3) {
        for (int x = 0; x < f.image.width(); x += 11) ASSERT_EQ(qAlpha(f.image.pixel(x, y)), 255) << x << "," << y;
    }
    const QRgb corner = f.image.pixel(0, 0);
    EXPECT_NEAR(qRed(corner), opaqueBackground.red * 255, 1);
    EXPECT_NEAR(qBlue(corner), opaqueBackground.blue * 255, 1);
}

TEST(WavePicture, HighDensityScreensGetTheSameWaveInMorePixels) {
    Scene scene(OverlayDisplayMode::compact, WaveColor::aurora);
    const Frame single = render(scene, {960, 150}, 1);
    const Frame twice = render(scene, {960, 150}, 2);
    ASSERT_EQ(twice.image.size(), single.image.size() * 2);
    // Averaged down 2x2, the dense picture matches the plain one closely.
    double total = 0;
    for (int y = 0; y < single.image.height(); ++y) {
        for (int x = 0; x < single.image.width(); ++x) {
            int alpha = 0;
            for (int dy = 0; dy < 2; ++dy) {
                for (int dx = 0; dx < 2; ++dx) alpha += qAlpha(twice.image.pixel(2 * x + dx, 2 * y + dy));
            }
            total += std::fabs(alpha / 4.0 - qAlpha(single.image.pixel(x, y)));
        }
    }
    EXPECT_LT(total / (single.image.width() * single.image.height()), 4.0);
    // And the bars are twice as wide in pixels: count the columns of one dash's row above half its peak.
    const WaveLayout& layout = twice.layout;
    const WaveBar& bar = layout.bars[tallestPlainBar(layout)];
    const double y = twice.canvas.y + layout.midY - bar.halfHeight + layout.dashOn / 2;
    int wide = 0;
    const double peak = twice.at(twice.canvas.x + bar.x, y).alpha;
    for (int column = static_cast<int>((twice.canvas.x + bar.x - 3) * 2); column < (twice.canvas.x + bar.x + 3) * 2;
         ++column) {
        if (qAlpha(twice.image.pixel(column, static_cast<int>(y * 2))) / 255.0 > peak / 2) ++wide;
    }
    EXPECT_NEAR(wide, layout.barWidth * 2, 1.01);
}

TEST(WavePicture, ReducedResolutionGlowLooksLikeTheFullResolutionGlow) {
    if (picturePath() == DrawingPath::cpu) GTEST_SKIP() << "a rule of the GL path's glow";
    // Half resolution for the compact band at 1x, a quarter for the fog and for 2x screens.
    const struct {
        OverlayDisplayMode mode;
        SizeF canvas;
        double ratio;
    } cases[] = {{OverlayDisplayMode::compact, {1280, 138}, 1},
                 {OverlayDisplayMode::fullscreenFog, {1280, 420}, 1},
                 {OverlayDisplayMode::compact, {640, 138}, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(rawValue(c.mode)) + " x" + std::to_string(int(c.ratio)));
        Scene scene(c.mode, WaveColor::neon);
        const WaveLayout layout = scene.view.layout(c.canvas, fixedTime);
        const RectF canvas{0, 0, c.canvas.width, c.canvas.height};
        renderer().renderer().setGlowResolution(WaveGlRenderer::GlowResolution::full);
        const QImage full = renderer().renderLayout(layout, c.canvas, canvas, c.ratio);
        renderer().renderer().setGlowResolution(WaveGlRenderer::GlowResolution::automatic);
        const QImage reduced = renderer().renderLayout(layout, c.canvas, canvas, c.ratio);
        int worst = 0;
        double total = 0;
        for (int y = 0; y < full.height(); ++y) {
            for (int x = 0; x < full.width(); ++x) {
                const QRgb a = full.pixel(x, y), b = reduced.pixel(x, y);
                const int difference = std::max({std::abs(qAlpha(a) - qAlpha(b)), std::abs(qRed(a) - qRed(b)),
                                                 std::abs(qGreen(a) - qGreen(b)), std::abs(qBlue(a) - qBlue(b))});
                worst = std::max(worst, difference);
                total += difference;
            }
        }
        std::printf("glow at reduced resolution: worst difference %d, mean %.3f\n", worst,
                    total / (full.width() * full.height()));
        EXPECT_LE(worst, 6);
        EXPECT_LT(total / (full.width() * full.height()), 0.5);
    }
}

namespace {

struct Reference {
    const char* name;
    OverlayDisplayMode mode;
    WaveColor color;
    SizeF panel;
    double ratio;
    RgbaColor background;
};

// Compares with the stored picture, or stores it when LORVANE_UPDATE_REFERENCE_IMAGES is set.
void compareWithReference(const QImage& actual, const QString& name) {
    const QString path = QStringLiteral(LORVANE_REFERENCE_IMAGES) + "/" + name + ".png";
    if (qEnvironmentVariableIntValue("LORVANE_UPDATE_REFERENCE_IMAGES") == 1 && picturePath() == DrawingPath::gl) {
        QDir().mkpath(QStringLiteral(LORVANE_REFERENCE_IMAGES));
        ASSERT_TRUE(actual.convertToFormat(QImage::Format_ARGB32).save(path)) << path.toStdString();
        GTEST_SKIP() << "stored " << path.toStdString();
    }
    QImage expected(path);
    ASSERT_FALSE(expected.isNull()) << "missing reference " << path.toStdString()
                                    << " (run with LORVANE_UPDATE_REFERENCE_IMAGES=1 to create it)";
    expected = expected.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    ASSERT_EQ(expected.size(), actual.size());
    // Another Mesa version or CPU may round a little differently; the picture must not change.
    int differing = 0;
    double total = 0;
    for (int y = 0; y < actual.height(); ++y) {
        for (int x = 0; x < actual.width(); ++x) {
            const QRgb a = actual.pixel(x, y), b = expected.pixel(x, y);
            const int difference = std::max({std::abs(qAlpha(a) - qAlpha(b)), std::abs(qRed(a) - qRed(b)),
                                             std::abs(qGreen(a) - qGreen(b)), std::abs(qBlue(a) - qBlue(b))});
            total += difference;
            if (difference > 8) ++differing;
        }
    }
    const double pixels = actual.width() * actual.height();
    EXPECT_LT(total / pixels, 0.5) << name.toStdString();
    EXPECT_LT(differing / pixels, 0.002) << name.toStdString() << ": " << differing << " pixels differ";
}

}  // namespace

TEST(WavePicture, MatchesTheReferencePictures) {
    const Reference references[] = {
        {"compact-cyan", OverlayDisplayMode::compact, WaveColor::cyan, {1280, 150}, 1, transparentBackground},
        {"compact-limePulse-2x", OverlayDisplayMode::compact, WaveColor::limePulse, {640, 150}, 2,
         transparentBackground},
        {"fog-sunset-opaque", OverlayDisplayMode::fullscreenFog, WaveColor::sunset, {1280, 720}, 1, opaqueBackground},
    };
    for (const Reference& reference : references) {
        SCOPED_TRACE(reference.name);
        Scene scene(reference.mode, reference.color);
        const Frame f = render(scene, reference.panel, reference.ratio, reference.background);
        compareWithReference(f.image, reference.name);
    }
}

namespace {

struct PathComparison {
    OverlayDisplayMode mode;
    WaveColor color;
    SizeF panel;
    double ratio;
    RgbaColor background;
};

class CpuPathByModeAndPalette : public testing::TestWithParam<PathComparison> {};

}  // namespace

// The CPU path draws the GL path's picture: both modes, two palettes, 1x and 2x, translucent and opaque.
TEST_P(CpuPathByModeAndPalette, DrawsTheGlPictureWithinThePictureTolerance) {
    if (picturePath() == DrawingPath::cpu) GTEST_SKIP() << "compares the two paths; run once";
    const PathComparison c = GetParam();
    Scene scene(c.mode, c.color);
    const WaveFrame frame = scene.view.frame(c.panel, fixedTime);
    const QImage gl = renderer().renderFrame(frame, c.ratio, c.background);
    WaveRasterRenderer cpu;
    const QImage drawn = cpu.render(frame, c.ratio, c.background);
    ASSERT_EQ(gl.size(), drawn.size());
    int differing = 0, worst = 0;
    double total = 0;
    for (int y = 0; y < gl.height(); ++y) {
        for (int x = 0; x < gl.width(); ++x) {
            const QRgb a = gl.pixel(x, y), b = drawn.pixel(x, y);
            const int difference = std::max({std::abs(qAlpha(a) - qAlpha(b)), std::abs(qRed(a) - qRed(b)),
                                             std::abs(qGreen(a) - qGreen(b)), std::abs(qBlue(a) - qBlue(b))});
            total += difference;
            worst = std::max(worst, difference);
            if (difference > 8) ++differing;
        }
    }
    const double pixels = gl.width() * gl.height();
    std::printf("cpu against gl: mean difference %.3f, worst %d, %d pixels over 8\n", total / pixels, worst,
                differing);
    EXPECT_LT(total / pixels, 0.5);
    EXPECT_LT(differing / pixels, 0.002);
}

INSTANTIATE_TEST_SUITE_P(
    BothModesTwoPalettes, CpuPathByModeAndPalette,
    testing::Values(PathComparison{OverlayDisplayMode::compact, WaveColor::cyan, {1920, 150}, 1, transparentBackground},
                    PathComparison{OverlayDisplayMode::compact, WaveColor::aurora, {1280, 150}, 1, opaqueBackground},
                    PathComparison{OverlayDisplayMode::compact, WaveColor::aurora, {640, 150}, 2, transparentBackground},
                    PathComparison{OverlayDisplayMode::fullscreenFog, WaveColor::cyan, {1280, 720}, 1,
                                   transparentBackground},
                    PathComparison{OverlayDisplayMode::fullscreenFog, WaveColor::aurora, {1280, 720}, 1,
                                   opaqueBackground}),
    [](const testing::TestParamInfo<PathComparison>& info) {
        return std::string(rawValue(info.param.mode)) + "_" + std::string(rawValue(info.param.color)) + "_x" +
               std::to_string(static_cast<int>(info.param.ratio)) +
               (info.param.background.alpha > 0 ? "_opaque" : "_translucent");
    });

// The overlay keeps one renderer and one image: each frame redraws only the rows the wave reached
// last time or reaches now. What it leaves there must be the picture a fresh renderer draws, frame
// after frame, as bars grow and shrink (nothing of an earlier frame may linger in the renderer). It
// sends the display server only the wave's region of both frames: every pixel that changed lies there.
TEST(CpuPath, RedrawingOverTheLastFrameGivesTheFreshPicture) {
    if (picturePath() == DrawingPath::cpu) GTEST_SKIP() << "the CPU path alone; run once";
    for (const OverlayDisplayMode mode : {OverlayDisplayMode::compact, OverlayDisplayMode::fullscreenFog}) {
        SCOPED_TRACE(std::string(rawValue(mode)));
        Scene scene(mode, WaveColor::aurora);
        const SizeF panel = mode == OverlayDisplayMode::compact ? SizeF{1920, 150} : SizeF{1280, 720};
        WaveRasterRenderer reused;
        QImage image, lastPicture;
        QRect lastReach;
        QRegion lastRegion;
        for (int i = 0; i < 5; ++i) {
            std::vector<double> spectrum(96);
            for (int band = 0; band < 96; ++band) {
                spectrum[static_cast<std::size_t>(band)] =
                    0.95 * std::exp(-band / 40.0) * (0.2 + 0.8 * std::fabs(std::sin(band * 0.21 + i * 1.7)));
            }
            scene.model->updateLiveFrame({i % 2 == 0 ? 0.9 : 0.35, 1.3, 0.4 + 0.1 * i, spectrum});
            const WaveFrame frame = scene.view.frame(panel, fixedTime + i / 30.0);
            const QRect reach = WaveRasterRenderer::wavePixels(frame, 1);
            if (i == 0) {
                image = reused.render(frame, 1, transparentBackground);
            } else {
                reused.drawCanvas(frame, image, transparentBackground, reach.united(lastReach));
            }
            WaveRasterRenderer fresh;
            const QImage expected = fresh.render(frame, 1, transparentBackground);
            ASSERT_EQ(image.size(), expected.size());
            int differing = 0;
            for (int y = 0; y < image.height(); ++y) {
                for (int x = 0; x < image.width(); ++x) differing += image.pixel(x, y) != expected.pixel(x, y);
            }
            EXPECT_EQ(differing, 0) << "frame " << i;
            const QRegion region = WaveRasterRenderer::waveRegion(frame, 1);
            EXPECT_FALSE(region.isEmpty());
            if (i > 0) {
                const QRegion pushed = region.united(lastRegion);
                int changed = 0, outside = 0;
                for (int y = 0; y < expected.height(); ++y) {
                    for (int x = 0; x < expected.width(); ++x) {
                        if (expected.pixel(x, y) == lastPicture.pixel(x, y)) continue;
                        ++changed;
                        outside += !pushed.contains(QPoint(x, y));
                    }
                }
                EXPECT_GT(changed, 0) << "frame " << i;
                EXPECT_EQ(outside, 0) << "frame " << i;
                // And it is smaller than the full-width rows around both frames' waves.
                const QRect rows = reach.united(lastReach);
                double area = 0;
                for (const QRect& r : pushed) area += static_cast<double>(r.width()) * r.height();
                EXPECT_LT(area, static_cast<double>(rows.width()) * rows.height()) << "frame " << i;
            }
            lastRegion = region;
            lastPicture = expected;
            lastReach = reach;
        }
    }
}
