#pragma once
// Renders wave frames into an offscreen framebuffer and reads them back as images: for tests, and
// for taking a picture of the wave without a window.

#include <QImage>
#include <memory>

#include "core/render/VisualizerView.h"
#include "ui/WaveGlRenderer.h"

class QOpenGLContext;
class QOffscreenSurface;
class QOpenGLFramebufferObject;

namespace lorvane {

class OffscreenWaveRenderer {
public:
    // Needs a QGuiApplication whose platform offers OpenGL 3.3 core or ES 3.0.
    OffscreenWaveRenderer();
    ~OffscreenWaveRenderer();
    OffscreenWaveRenderer(const OffscreenWaveRenderer&) = delete;
    OffscreenWaveRenderer& operator=(const OffscreenWaveRenderer&) = delete;

    bool isValid() const { return valid_; }
    QString description() const { return description_; }  // GL version and renderer
    QString rendererName() const;                            // GL_RENDERER

    // The view's whole panel at `panel` points and the given device pixel ratio, premultiplied ARGB.
    QImage renderView(const VisualizerView& view, SizeF panel, double devicePixelRatio, double time,
                      const RgbaColor& background = {0, 0, 0, 0});
    // One computed frame of the whole panel.
    QImage renderFrame(const WaveFrame& frame, double devicePixelRatio, const RgbaColor& background = {0, 0, 0, 0});
    // One layout drawn with its canvas at `canvas` inside an image of `image` points.
    QImage renderLayout(const WaveLayout& layout, SizeF image, const RectF& canvas, double devicePixelRatio,
                        const RgbaColor& background = {0, 0, 0, 0});

    WaveGlRenderer& renderer() { return renderer_; }

private:
    bool prepare(SizeF points, double devicePixelRatio, WaveTarget& target);
    QImage readBack(double devicePixelRatio);

    std::unique_ptr<QOpenGLContext> context_;
    std::unique_ptr<QOffscreenSurface> surface_;
    std::unique_ptr<QOpenGLFramebufferObject> framebuffer_;
    WaveGlRenderer renderer_;
    bool valid_ = false;
    QString description_;
    QString rendererName_;
};

}  // namespace lorvane
