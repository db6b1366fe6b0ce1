#pragma once
// Draws wave frames with OpenGL (3.3 core or ES 3.0) into the current context's framebuffer of
// choice. Per frame the CPU packs 24 bytes per bar into one buffer and issues a handful of draw
// calls: the baseline, the glow (one instanced draw into a reduced-resolution target, then a
// two-pass separable Gaussian and a composite) and one instanced draw for all bars, dots and
// sparkles.

#include <QSize>
#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <memory>
#include <vector>

#include "core/WaveColor.h"
#include "core/render/Geometry.h"
#include "core/render/WaveLayout.h"

class QOpenGLExtraFunctions;
class QOpenGLContext;

namespace lorvane {

struct WaveTarget {
    unsigned framebuffer = 0;  // GL framebuffer name
    QSize pixelSize;
    double devicePixelRatio = 1;
};

class WaveGlRenderer {
public:
    // How the glow layer is rendered: at full resolution, or at half resolution when the blur is wide
    // enough (at least 3 pixels) for the difference not to show.
    enum class GlowResolution { automatic, full };

    WaveGlRenderer();
    ~WaveGlRenderer();  // releases GL objects if their context is current
    WaveGlRenderer(const WaveGlRenderer&) = delete;
    WaveGlRenderer& operator=(const WaveGlRenderer&) = delete;

    // Builds programs and buffers in the current context. False (and nothing drawn later) when the
    // context lacks what the wave needs.
    bool initialize(QOpenGLContext& context);
    bool isInitialized() const { return gl_ != nullptr; }
    // Frees the GL objects; the context they were made in must be current.
    void release();

    // Binds the target and fills it with a premultiplied colour.
    void beginFrame(const WaveTarget& target, const RgbaColor& premultipliedFill);
    // Draws one frame's layout with its canvas at `canvas` (points) of the bound target, clipped to it.
    void drawWave(const WaveLayout& layout, const RectF& canvas);

    void setGlowResolution(GlowResolution resolution) { glowResolution_ = resolution; }
    // Bytes handed to the driver for the last frame (instance data and uniforms' arrays excluded).
    std::size_t lastUploadBytes() const { return lastUploadBytes_; }

    // Packed per-bar data as uploaded.
    struct BarInstance {
        float x, halfHeight, sparkleReach, intensity;
        std::array<std::uint8_t, 4> color;
        std::array<std::uint8_t, 4> glowColor;
    };
    static void packBars(const WaveLayout& layout, std::vector<BarInstance>& out);

    // The Gaussian of standard deviation `sigma` (pixels) as paired taps for bilinear fetches: the centre
    // weight first, then (offset, weight) per pair; the weights sum to 1 over both sides.
    struct BlurKernel {
        double sigma = 0;
        int radius = 0;
        std::vector<double> weights;
        std::vector<double> offsets;
    };
    static BlurKernel gaussianKernel(double sigma);

private:
    struct Program;
    struct GlowTarget;
    std::unique_ptr<Program> buildProgram(const std::string& vertex, const std::string& fragment);
    Program* blurProgram(const BlurKernel& kernel);
    void drawBaseline(const WaveLayout& layout, const RectF& canvas);
    void drawGlow(const WaveLayout& layout, const RectF& canvas);
    void drawBars(const WaveLayout& layout, bool glowPass, const WaveTarget& target, float originX, float originY,
                  float scale);
    void ensureGlowTargets(QSize size);
    void setScissor(const RectF& canvas);

    QOpenGLExtraFunctions* gl_ = nullptr;
    bool es_ = false;
    std::string header_;
    std::unique_ptr<Program> barProgram_, glowProgram_, baselineProgram_, compositeProgram_;
    std::map<long long, std::unique_ptr<Program>> blurPrograms_;
    unsigned quadBuffer_ = 0, instanceBuffer_ = 0, barArray_ = 0, rectArray_ = 0;
    std::size_t instanceCapacity_ = 0;
    std::unique_ptr<GlowTarget> glow_[2];
    QSize glowSize_;
    double glowScaleUsed_ = 1;  // glow pixels per target pixel in the last frame
    float glowMargin_ = 0;      // transparent border of the glow targets, in glow pixels
    int glowBandTop_ = 0, glowBandBottom_ = 0;  // glow rows (from the top) holding this frame's glow
    WaveTarget target_;
    std::vector<BarInstance> instances_;
    GlowResolution glowResolution_ = GlowResolution::automatic;
    std::size_t lastUploadBytes_ = 0;
};

// `over` composited onto `under`, both premultiplied.
RgbaColor sourceOver(const RgbaColor& over, const RgbaColor& under);
// A straight colour premultiplied by its alpha.
RgbaColor premultiplied(const RgbaColor& color);

}  // namespace lorvane
