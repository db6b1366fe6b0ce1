#include "platform/wayland/LayerShellOverlayWindow.h"

#include <wayland-egl.h>

#include <QGuiApplication>
#include <QOpenGLContext>
#include <QScreen>
#include <algorithm>
#include <cmath>

#include "core/Logging.h"
#include "platform/wayland/QtWaylandNative.h"
#include "ui/VisualizerPainter.h"
#include "ui/WaveSurfaceFormat.h"

namespace lorvane {

namespace {
constexpr int frameIntervalMs = 33;  // at most 30 frames a second
}  // namespace

LayerShellOverlayWindow::LayerShellOverlayWindow(std::shared_ptr<const OverlayPreferences> preferences,
                                                 std::shared_ptr<const VisualizerModel> model, const Clock& clock,
                                                 std::unique_ptr<LayerShellConnection> connection,
                                                 std::unique_ptr<ScreenEnvironment> screens)
    : OverlayWindowController(preferences, std::move(screens)),
      preferences_(preferences),
      view_(std::move(preferences), std::move(model)),
      clock_(clock),
      animation_(clock),
      connection_(std::move(connection)) {
    pacing_.setSingleShot(true);
    QObject::connect(&pacing_, &QTimer::timeout, [this] { draw(); });
    offscreen_.setFormat(waveSurfaceFormat());
    offscreen_.create();
    place();
}

LayerShellOverlayWindow::~LayerShellOverlayWindow() {
    pacing_.stop();
    if (context_ && context_->makeCurrent(&offscreen_)) {
        renderer_.release();
        context_->doneCurrent();
    }
    destroySurface();
}

void LayerShellOverlayWindow::setLevel(OverlayWindowLevel level) {
    level_ = level;
    if (surface_ && !surface_->place(placement())) createSurface();
}

void LayerShellOverlayWindow::setFrame(const RectF& frame) {
    frame_ = frame;
    if (!surface_) return;
    // A layer surface cannot change outputs: after a change of outputs a new one lets the compositor
    // place it again.
    if (currentScreens() != screensAtCreation_ || !surface_->place(placement())) createSurface();
}

void LayerShellOverlayWindow::orderFrontWithoutActivating() {
    if (shown_) return;
    shown_ = true;
    createSurface();
}

void LayerShellOverlayWindow::withdraw() {
    shown_ = false;
    animation_.pause();
    pacing_.stop();
    destroySurface();
}

LayerSurfacePlacement LayerShellOverlayWindow::placement() const {
    // The visible height of the output the frame was computed for.
    double visibleHeight = frame_.height;
    const QPoint centre(static_cast<int>(frame_.x + frame_.width / 2), static_cast<int>(frame_.y + frame_.height / 2));
    if (const QScreen* screen = QGuiApplication::screenAt(centre)) visibleHeight = screen->availableGeometry().height();
    return layerSurfacePlacement(level_, preferences_->displayMode(), preferences_->position(), visibleHeight);
}

std::vector<std::pair<QScreen*, QRect>> LayerShellOverlayWindow::currentScreens() const {
    std::vector<std::pair<QScreen*, QRect>> screens;
    for (QScreen* screen : QGuiApplication::screens()) screens.emplace_back(screen, screen->geometry());
    return screens;
}

void LayerShellOverlayWindow::createSurface() {
    destroySurface();
    if (!shown_) return;
    LayerShellSurface::Callbacks callbacks;
    callbacks.configured = [this](int width, int height) { configured(width, height); };
    callbacks.frameDone = [this] { frameDone(); };
    callbacks.outputsChanged = [this] { outputsChanged(); };
    callbacks.closed = [this] {
        // Not from inside the surface's own listener: recreated once the dispatch is over.
        QTimer::singleShot(0, &pacing_, [this] { createSurface(); });
    };
    screensAtCreation_ = currentScreens();
    surface_ = std::make_unique<LayerShellSurface>(*connection_, nullptr, placement(), std::move(callbacks));
}

void LayerShellOverlayWindow::destroySurface() {
    if (!surface_) return;
    if (eglSurface_ != EGL_NO_SURFACE) {
        if (context_) context_->makeCurrent(&offscreen_);
        eglDestroySurface(eglDisplay_, eglSurface_);
        eglSurface_ = EGL_NO_SURFACE;
    }
    if (eglWindow_) {
        wl_egl_window_destroy(eglWindow_);
        eglWindow_ = nullptr;
    }
    surface_.reset();
    size_ = {};
    scale_ = appliedScale_ = 1;
}

void LayerShellOverlayWindow::configured(int width, int height) {
    if (width <= 0 || height <= 0) return;
    const QSize size(width, height);
    const bool first = !size_.isValid();
    size_ = size;
    if (eglWindow_) wl_egl_window_resize(eglWindow_, bufferSize().width(), bufferSize().height(), 0, 0);
    if (first) draw();
}

void LayerShellOverlayWindow::outputsChanged() {
    int scale = 1;
    for (wl_output* output : surface_->enteredOutputs()) scale = std::max(scale, qtWaylandOutputScale(output));
    if (scale == scale_) return;
    scale_ = scale;
    // Drawn at the new scale with the next frame, which also tells the compositor.
    if (!surface_->isFramePending() && !pacing_.isActive()) pacing_.start(0);
}

void LayerShellOverlayWindow::frameDone() {
    if (!shown_) return;
    const qint64 elapsed = sinceLastFrame_.isValid() ? sinceLastFrame_.elapsed() : frameIntervalMs;
    pacing_.start(static_cast<int>(std::max<qint64>(0, frameIntervalMs - elapsed)));
}

bool LayerShellOverlayWindow::makeCurrent() {
    if (failed_) return false;
    if (!context_) {
        context_ = std::make_unique<QOpenGLContext>();
        context_->setFormat(waveSurfaceFormat());
        auto* egl = context_->create() ? context_->nativeInterface<QNativeInterface::QEGLContext>() : nullptr;
        if (!egl) {
            qCWarning(lcOverlay, "No EGL context on the Wayland connection; the overlay draws nothing");
            context_.reset();
            failed_ = true;
            return false;
        }
        eglDisplay_ = egl->display();
        eglContext_ = egl->nativeContext();
        eglConfig_ = egl->config();
    }
    if (eglSurface_ == EGL_NO_SURFACE) {
        eglWindow_ = wl_egl_window_create(surface_->surface(), bufferSize().width(), bufferSize().height());
        swapIntervalSet_ = false;
        eglSurface_ = eglCreateWindowSurface(eglDisplay_, eglConfig_, reinterpret_cast<EGLNativeWindowType>(eglWindow_),
                                             nullptr);
        if (eglSurface_ == EGL_NO_SURFACE) {
            qCWarning(lcOverlay, "Cannot make an EGL surface for the overlay (EGL error 0x%x)", eglGetError());
            failed_ = true;
            return false;
        }
    }
    // Qt's context is made current on a stand-in surface, then moved onto our window surface.
    if (!context_->makeCurrent(&offscreen_)) return false;
    if (!eglMakeCurrent(eglDisplay_, eglSurface_, eglSurface_, eglContext_)) return false;
    if (!swapIntervalSet_) {
        // Frame callbacks pace the drawing; a swap must never wait for the compositor.
        eglSwapInterval(eglDisplay_, 0);
        swapIntervalSet_ = true;
    }
    return true;
}

void LayerShellOverlayWindow::draw() {
    if (!shown_ || !surface_ || !surface_->isConfigured() || !size_.isValid() || surface_->isFramePending()) return;
    if (!makeCurrent()) return;
    if (!renderer_.isInitialized() && !renderer_.initialize(*context_)) {
        qCWarning(lcOverlay, "The GL renderer cannot run in the overlay's context");
        failed_ = true;
        return;
    }
    if (scale_ != appliedScale_) {
        // The new buffer size and the scale reach the compositor in the same commit, the swap below.
        if (!surface_->setBufferScale(scale_)) scale_ = 1;
        appliedScale_ = scale_;
        wl_egl_window_resize(eglWindow_, bufferSize().width(), bufferSize().height(), 0, 0);
    }
    const SizeF panel{double(size_.width()), double(size_.height())};
    // Surface-local size is in the output's logical pixels; buffers hold `scale_` pixels for each.
    const WaveTarget target{0, bufferSize(), double(scale_)};
    paintFrame(renderer_, view_.frame(panel, animation_.advance(view_.motion())), target, transparentBackground);
    surface_->requestFrame();
    sinceLastFrame_.start();
    eglSwapBuffers(eglDisplay_, eglSurface_);
    ++framesDrawn_;
}

}  // namespace lorvane
