#include "ui/OffscreenWaveRenderer.h"

#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions>
#include <cmath>

#include "ui/VisualizerPainter.h"
#include "ui/WaveSurfaceFormat.h"

namespace lorvane {

OffscreenWaveRenderer::OffscreenWaveRenderer() {
    context_ = std::make_unique<QOpenGLContext>();
    context_->setFormat(waveSurfaceFormat());
    if (!context_->create()) return;
    surface_ = std::make_unique<QOffscreenSurface>();
    surface_->setFormat(context_->format());
    surface_->create();
    if (!surface_->isValid() || !context_->makeCurrent(surface_.get())) return;
    QOpenGLFunctions* gl = context_->functions();
    rendererName_ = QString::fromLatin1(reinterpret_cast<const char*>(gl->glGetString(GL_RENDERER)));
    description_ = QStringLiteral("%1 (%2)")
                       .arg(reinterpret_cast<const char*>(gl->glGetString(GL_VERSION)),
                            reinterpret_cast<const char*>(gl->glGetString(GL_RENDERER)));
    valid_ = renderer_.initialize(*context_);
}

OffscreenWaveRenderer::~OffscreenWaveRenderer() {
    if (context_ && surface_ && context_->makeCurrent(surface_.get())) {
        framebuffer_.reset();
        renderer_.release();
        context_->doneCurrent();
    }
}

bool OffscreenWaveRenderer::prepare(SizeF points, double devicePixelRatio, WaveTarget& target) {
    if (!valid_ || !context_->makeCurrent(surface_.get())) return false;
    const QSize pixels(static_cast<int>(std::lround(points.width * devicePixelRatio)),
                       static_cast<int>(std::lround(points.height * devicePixelRatio)));
    if (pixels.isEmpty()) return false;
    if (!framebuffer_ || framebuffer_->size() != pixels) {
        QOpenGLFramebufferObjectFormat format;
        format.setInternalTextureFormat(GL_RGBA8);
        framebuffer_ = std::make_unique<QOpenGLFramebufferObject>(pixels, format);
    }
    target = {framebuffer_->handle(), pixels, devicePixelRatio};
    return true;
}

QImage OffscreenWaveRenderer::readBack(double devicePixelRatio) {
    QImage image = framebuffer_->toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(devicePixelRatio);
    return image;
}

QImage OffscreenWaveRenderer::renderView(const VisualizerView& view, SizeF panel, double devicePixelRatio,
                                         double time, const RgbaColor& background) {
    return renderFrame(view.frame(panel, time), devicePixelRatio, background);
}

QImage OffscreenWaveRenderer::renderFrame(const WaveFrame& frame, double devicePixelRatio,
                                          const RgbaColor& background) {
    WaveTarget target;
    if (!prepare(frame.panel, devicePixelRatio, target)) return {};
    paintFrame(renderer_, frame, target, background);
    return readBack(devicePixelRatio);
}

QString OffscreenWaveRenderer::rendererName() const { return rendererName_; }

QImage OffscreenWaveRenderer::renderLayout(const WaveLayout& layout, SizeF image, const RectF& canvas,
                                           double devicePixelRatio, const RgbaColor& background) {
    WaveTarget target;
    if (!prepare(image, devicePixelRatio, target)) return {};
    renderer_.beginFrame(target, background);
    renderer_.drawWave(layout, canvas);
    return readBack(devicePixelRatio);
}

}  // namespace lorvane
