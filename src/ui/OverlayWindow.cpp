#include "ui/OverlayWindow.h"

#include <QExposeEvent>
#include <QOpenGLContext>
#include <cmath>

#include "ui/VisualizerPainter.h"
#include "ui/WaveSurfaceFormat.h"
#include "ui/X11WindowProperties.h"

namespace lorvane {

namespace {
// How often (in frames) a running overlay checks whether a compositor came or went: about once a second.
constexpr long long compositingCheckInterval = 30;
}  // namespace

OverlayWindow::OverlayWindow(std::shared_ptr<const OverlayPreferences> preferences,
                             std::shared_ptr<const VisualizerModel> model, const Clock& clock)
    : view_(std::move(preferences), std::move(model)), clock_(clock), ticker_([this] { renderNow(); }) {
    setSurfaceType(QSurface::OpenGLSurface);
    setFormat(waveSurfaceFormat());
    setFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus | Qt::WindowTransparentForInput |
             Qt::NoDropShadowWindowHint);
    // Mapped with a zero user time, so the window manager does not activate it.
    setProperty("_q_showWithoutActivating", true);
    setTitle(QStringLiteral("Lorvane"));
    setGeometry(0, 0, 760, 220);
    create();
}

OverlayWindow::~OverlayWindow() {
    ticker_.stop();
    if (context_ && context_->makeCurrent(this)) {
        renderer_.release();
        context_->doneCurrent();
    }
}

void OverlayWindow::setLevel(OverlayWindowLevel level) {
    level_ = level;
    if (!QWindow::isVisible() || level == mappedLevel_) return;
    // Window managers read the type when they start managing a window: unmap, rewrite, map again.
    hide();
    x11::waitUntilWithdrawn(*this, std::chrono::milliseconds(500));
    prepareForMapping();
    show();
    raise();
}

void OverlayWindow::setFrame(const RectF& frame) {
    const int left = static_cast<int>(std::lround(frame.left()));
    const int top = static_cast<int>(std::lround(frame.top()));
    const int right = static_cast<int>(std::lround(frame.right()));
    const int bottom = static_cast<int>(std::lround(frame.bottom()));
    setGeometry(QRect(left, top, std::max(right - left, 1), std::max(bottom - top, 1)));
    renderNow();
}

void OverlayWindow::orderFrontWithoutActivating() {
    if (!QWindow::isVisible()) {
        prepareForMapping();
        show();
    }
    raise();
}

void OverlayWindow::orderOut() { hide(); }

void OverlayWindow::prepareForMapping() {
    x11::writeStackingProperties(*this, level_);
    mappedLevel_ = level_;
    inputShapeCleared_ = false;
    checkCompositing();
}

void OverlayWindow::checkCompositing() {
    // Off X11 (a native Wayland session) the compositor always blends windows.
    translucent_ = x11::isAvailable() ? x11::compositingManagerRunning() : true;
}

void OverlayWindow::exposeEvent(QExposeEvent*) {
    if (!isExposed()) {
        ticker_.stop();
        return;
    }
    if (!inputShapeCleared_) {
        x11::clearInputShape(*this);
        inputShapeCleared_ = true;
    }
    renderNow();
    ticker_.start();
}

void OverlayWindow::hideEvent(QHideEvent*) { ticker_.stop(); }

void OverlayWindow::renderNow() {
    if (!isExposed()) return;
    if (!context_) {
        context_ = std::make_unique<QOpenGLContext>();
        context_->setFormat(requestedFormat());
        if (!context_->create()) {
            context_.reset();
            return;
        }
    }
    if (!context_->makeCurrent(this)) return;
    if (!renderer_.isInitialized() && !renderer_.initialize(*context_)) return;
    if (framesDrawn_ % compositingCheckInterval == compositingCheckInterval - 1) checkCompositing();

    const double ratio = devicePixelRatio();
    const SizeF panel{double(width()), double(height())};
    const WaveTarget target{context_->defaultFramebufferObject(),
                            QSize(static_cast<int>(std::lround(width() * ratio)),
                                  static_cast<int>(std::lround(height() * ratio))),
                            ratio};
    frosted_.apply(*this, view_.body(panel).frostedBackground);
    paintVisualizer(renderer_, view_, target, panel, clock_.now(),
                    translucent_ ? transparentBackground : opaqueBackground);
    context_->swapBuffers(this);
    ++framesDrawn_;
}

}  // namespace lorvane
