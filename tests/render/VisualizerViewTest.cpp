#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "core/render/VisualizerView.h"

using namespace lorvane;

namespace {

struct Fixture {
    std::shared_ptr<MemoryKeyValueStore> store = std::make_shared<MemoryKeyValueStore>();
    std::shared_ptr<OverlayPreferences> preferences = std::make_shared<OverlayPreferences>(store);
    std::shared_ptr<VisualizerModel> model = std::make_shared<VisualizerModel>();
    VisualizerView view{preferences, model};
};

// Frames computed one after another, as a renderer would receive them.
struct RecordedFrames {
    std::vector<WaveLayout> frames;
    void take(const VisualizerView& view) {
        const WaveFrame frame = view.frame({1920, 150}, 100.0);
        EXPECT_EQ(frame.layout.canvas, (SizeF{1920, 138}));
        frames.push_back(frame.layout);
    }
};

AudioVisualizationFrame frame(double level, double motion, double pulse, std::vector<double> spectrum) {
    return {level, motion, pulse, std::move(spectrum)};
}

}  // namespace

TEST(VisualizerView, WaveSizeFollowsTheDisplayMode) {
    Fixture f;
    EXPECT_EQ(f.view.waveSize({1920, 150}), (SizeF{1920, 138}));
    f.preferences->setDisplayMode(OverlayDisplayMode::fullscreenFog);
    EXPECT_EQ(f.view.waveSize({1920, 1080}), (SizeF{1920, 1080 * 0.38}));
    EXPECT_EQ(f.view.waveSize({3840, 2160}), (SizeF{3840, 420}));
}

TEST(VisualizerView, SpectrumValueReadsTheModel) {
    Fixture f;
    const double synthetic = f.view.spectrumValue(0, 369);
    EXPECT_NEAR(synthetic, 0.38 + 0.12 * std::sin(0.8), 1e-12);
    f.model->updateLiveFrame(frame(0.5, 1, 0, std::vector<double>(96, 0.25)));
    EXPECT_DOUBLE_EQ(f.view.spectrumValue(0, 369), 0.25);
}

TEST(VisualizerView, EachFrameCarriesTheCurrentValues) {
    Fixture f;
    RecordedFrames canvas;
    canvas.take(f.view);
    f.model->updateLiveFrame(frame(0.9, 2.0, 0.7, std::vector<double>(96, 0.8)));
    f.preferences->setColor(WaveColor::sunset);
    canvas.take(f.view);
    ASSERT_EQ(canvas.frames.size(), 2u);
    // The first frame is the constructed model: level 0.48, motion 1, pulse 0, synthetic spectrum, cyan.
    EXPECT_DOUBLE_EQ(canvas.frames[0].level, 0.48);
    EXPECT_DOUBLE_EQ(canvas.frames[0].pulse, 0);
    EXPECT_EQ(canvas.frames[0].bars[0].color, colors(WaveColor::cyan)[0]);
    EXPECT_DOUBLE_EQ(canvas.frames[1].level, 0.9);
    EXPECT_DOUBLE_EQ(canvas.frames[1].motion, 2.0);
    EXPECT_DOUBLE_EQ(canvas.frames[1].pulse, 0.7);
    EXPECT_DOUBLE_EQ(canvas.frames[1].bars[10].spectrum, 0.8);
    EXPECT_EQ(canvas.frames[1].bars[0].color, colors(WaveColor::sunset)[0]);
    // Audio response off: the constants, whatever the model holds.
    f.preferences->setAudioResponsive(false);
    canvas.take(f.view);
    EXPECT_DOUBLE_EQ(canvas.frames[2].level, 0.48);
    EXPECT_DOUBLE_EQ(canvas.frames[2].motion, 1.0);
    EXPECT_DOUBLE_EQ(canvas.frames[2].pulse, 0.16);
}

TEST(VisualizerView, CompactBodyIsTheBareWaveCentredInThePanel) {
    Fixture f;
    const WaveComposition body = f.view.body({1920, 150});
    EXPECT_FALSE(body.frostedBackground);
    EXPECT_FALSE(body.tint.has_value());
    EXPECT_EQ(body.waveform, (RectF{0, 6, 1920, 138}));
}

TEST(VisualizerView, FogBodyHasTheFrostedBackgroundTintAndACentredBand) {
    Fixture f;
    f.preferences->setDisplayMode(OverlayDisplayMode::fullscreenFog);
    const WaveComposition body = f.view.body({3840, 2160});
    EXPECT_TRUE(body.frostedBackground);
    ASSERT_TRUE(body.tint.has_value());
    EXPECT_EQ(*body.tint, (RgbaColor{1, 1, 1, 0.045}));
    EXPECT_EQ(body.waveform, (RectF{0, 870, 3840, 420}));
    // And the glow radius changes with the mode at the next frame.
    EXPECT_DOUBLE_EQ(f.view.layout({3840, 420}, 0).glowRadius, 5.5);
}
