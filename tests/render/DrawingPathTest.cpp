// Which path draws the wave, and the even beat on which live frames are presented.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "core/render/DrawingPath.h"
#include "core/render/FramePacer.h"

using namespace lorvane;

TEST(DrawingPath, SoftwareRasterisersAreRecognisedByTheirRendererString) {
    EXPECT_TRUE(isSoftwareOpenGl("llvmpipe (LLVM 15.0.6, 256 bits)"));
    EXPECT_TRUE(isSoftwareOpenGl("Gallium 0.4 on softpipe"));
    EXPECT_TRUE(isSoftwareOpenGl("Software Rasterizer (swrast)"));
    EXPECT_TRUE(isSoftwareOpenGl("LLVMPIPE"));
    EXPECT_FALSE(isSoftwareOpenGl("AMD Radeon RX 6600 (radeonsi, navi23, LLVM 15.0.6, DRM 3.49)"));
    EXPECT_FALSE(isSoftwareOpenGl("Mesa Intel(R) UHD Graphics 620 (KBL GT2)"));
}

TEST(DrawingPath, AutomaticUsesTheCpuForSoftwareOrMissingOpenGl) {
    const std::optional<std::string> hardware = "Mesa Intel(R) UHD Graphics 620 (KBL GT2)";
    const std::optional<std::string> software = "llvmpipe (LLVM 15.0.6, 256 bits)";
    EXPECT_EQ(chooseDrawingPath("", RendererChoice::automatic, hardware), DrawingPath::gl);
    EXPECT_EQ(chooseDrawingPath("", RendererChoice::automatic, software), DrawingPath::cpu);
    EXPECT_EQ(chooseDrawingPath("", RendererChoice::automatic, std::nullopt), DrawingPath::cpu);
}

TEST(DrawingPath, TheEnvironmentWinsOverThePreferenceAndNeitherConjuresOpenGl) {
    const std::optional<std::string> hardware = "AMD Radeon RX 6600";
    const std::optional<std::string> software = "llvmpipe (LLVM 15.0.6, 256 bits)";
    EXPECT_EQ(chooseDrawingPath("", RendererChoice::cpu, hardware), DrawingPath::cpu);
    EXPECT_EQ(chooseDrawingPath("", RendererChoice::gl, software), DrawingPath::gl);
    EXPECT_EQ(chooseDrawingPath("gl", RendererChoice::cpu, software), DrawingPath::gl);
    EXPECT_EQ(chooseDrawingPath("cpu", RendererChoice::gl, hardware), DrawingPath::cpu);
    EXPECT_EQ(chooseDrawingPath("vulkan", RendererChoice::automatic, hardware), DrawingPath::gl);
    EXPECT_EQ(chooseDrawingPath("gl", RendererChoice::gl, std::nullopt), DrawingPath::cpu);
}

namespace {

// Frames published one per 1/30 s slot, each on the first block at or after its slot.
std::vector<double> arrivals(double block, int count, double start = 100.0) {
    std::vector<double> times;
    for (int k = 0; k < count; ++k) times.push_back(start + std::ceil(k / 30.0 / block - 1e-9) * block);
    return times;
}

double standardDeviation(const std::vector<double>& values) {
    double mean = 0;
    for (double v : values) mean += v;
    mean /= static_cast<double>(values.size());
    double squares = 0;
    for (double v : values) squares += (v - mean) * (v - mean);
    return std::sqrt(squares / static_cast<double>(values.size()));
}

}  // namespace

TEST(FramePacer, PresentsEveryFrameOnceOnAnEvenBeatWithLessThanABlockOfDelay) {
    for (const double block : {0.010, 0.020}) {
        SCOPED_TRACE(block);
        FramePacer pacer;
        const auto arrived = arrivals(block, 300);
        std::vector<double> presented;
        for (double at : arrived) {
            const double when = pacer.schedule(at);
            EXPECT_GE(when, at);
            EXPECT_LT(when - at, block + 0.002);
            presented.push_back(when);
        }
        std::vector<double> intervals;
        for (std::size_t i = 11; i < presented.size(); ++i) intervals.push_back(presented[i] - presented[i - 1]);
        // Raw arrivals of 20 ms blocks alternate 40, 40 and 20 ms apart; presented, they are even.
        EXPECT_LT(standardDeviation(intervals), 0.001);
        std::vector<double> raw;
        for (std::size_t i = 11; i < arrived.size(); ++i) raw.push_back(arrived[i] - arrived[i - 1]);
        EXPECT_GT(standardDeviation(raw), 0.004);
    }
}

TEST(FramePacer, AfterAGapTheBeatStartsFromTheNextArrival) {
    FramePacer pacer;
    EXPECT_DOUBLE_EQ(pacer.schedule(10.0), 10.0);
    EXPECT_DOUBLE_EQ(pacer.schedule(10.02), 10.0 + FramePacer::interval - FramePacer::slide);
    EXPECT_DOUBLE_EQ(pacer.schedule(12.0), 12.0);
    pacer.reset();
    EXPECT_DOUBLE_EQ(pacer.schedule(12.01), 12.01);
}
