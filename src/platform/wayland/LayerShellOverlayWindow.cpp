#include "platform/wayland/LayerShellOverlayWindow.h"

#include <wayland-egl.h>

#include <QGuiApplication>
#include <QOpenGLContext>
#include <QScreen>
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "core/Logging.h"
#include "platform/wayland/QtWaylandNative.h"
#include "ui/OverlayWindow.h"
#include "ui/VisualizerPainter.h"
#include "ui/WaveSurfaceFormat.h"

namespace lorvane {

namespace {
constexpr int frameIntervalMs = 33;  // at most 30 frames a second
// Live frames that stop for this long hand the drawing back to the steady source.
constexpr int liveWatchdogMilliseconds = 150;
}  // namespace

LayerShellOverlayWindow::LayerShellOverlayWindow(std::shared_ptr<OverlayPreferences> preferences,
                                                 std::shared_ptr<VisualizerModel> model, const Clock& clock,
                                                 std::unique_ptr<LayerShellConnection> connection,
                                                 std::unique_ptr<ScreenEnvironment> screens)
    : OverlayWindowController(preferences, std::move(screens)),
      observedPreferences_(preferences),
      preferences_(preferences),
      model_(model),
      view_(std::move(preferences), std::move(model)),
      clock_(clock),
      animation_(clock),
      connection_(std::move(connection)) {
    pacing_.setSingleShot(true);
    QObject::connect(&pacing_, &QTimer::timeout, [this] { draw(); });
    presentTimer_.setSingleShot(true);
    presentTimer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&presentTimer_, &QTimer::timeout, [this] { presentLiveFrame(); });
    liveWatchdog_.setSingleShot(true);
    liveWatchdog_.setInterval(liveWatchdogMilliseconds);
    QObject::connect(&liveWatchdog_, &QTimer::timeout, [this] {
        stopLiveFrames();
        if (surface_ && !surface_->isFramePending()) pacing_.start(0);
    });
    modelObservation_ = model_->objectWillChange.connect([this] { modelWillChange(); });
    offscreen_.setFormat(waveSurfaceFormat());
    offscreen_.create();
    path_ = connection_->shm() ? currentDrawingPath(preferences_->renderer()) : DrawingPath::gl;
    qCInfo(lcOverlay, "drawing the wave with %s on a layer surface (OpenGL renderer: %s)", rawValue(path_).data(),
           openGlRendererName() ? openGlRendererName()->c_str() : "none");
    preferencesObservation_ = observedPreferences_->changed.connect([this](PreferenceKey key) {
        if (key == PreferenceKey::renderer && connection_->shm()) {
            useDrawingPath(currentDrawingPath(preferences_->renderer()));
        }
    });
    place();
}

LayerShellOverlayWindow::~LayerShellOverlayWindow() {
    observedPreferences_->changed.disconnect(preferencesObservation_);
    model_->objectWillChange.disconnect(modelObservation_);
    pacing_.stop();
    stopLiveFrames();
    if (context_ && context_->makeCurrent(&offscreen_)) {
        renderer_.release();
        context_->doneCurrent();
    }
    destroySurface();
}

void LayerShellOverlayWindow::useDrawingPath(DrawingPath path) {
    if (path == path_) return;
    path_ = path;
    qCInfo(lcOverlay, "drawing the wave with %s on a layer surface", rawValue(path_).data());
    // A surface takes either EGL's buffers or ours: a new one starts clean.
    if (surface_) createSurface();
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
    stopLiveFrames();
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
    buffers_.reset();
    committedReach_ = {};
    liveFrameDue_ = false;  // a new surface draws at once
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
    committedReach_ = {};
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

void LayerShellOverlayWindow::modelWillChange() {
    // One look per burst of changes (a live frame assigns several values), after they all landed.
    if (modelCheckPending_) return;
    modelCheckPending_ = true;
    QTimer::singleShot(0, &pacing_, [this] { modelDidChange(); });
}

void LayerShellOverlayWindow::modelDidChange() {
    modelCheckPending_ = false;
    if (!shown_ || !surface_) return;
    if (model_->captureStatus() != AudioCaptureStatus::live || !preferences_->audioResponsive()) {
        if (!live_) return;
        stopLiveFrames();
        if (!surface_->isFramePending() && !pacing_.isActive()) pacing_.start(0);
        return;
    }
    // One drawing per analysis frame, on an even beat; the steady source rests.
    live_ = true;
    pacing_.stop();
    liveWatchdog_.start();
    ++livePacing_.published;
    if (freshFrame_) ++livePacing_.skipped;
    freshFrame_ = true;
    if (presentTimer_.isActive() || liveFrameDue_) return;  // the drawing already due shows this one
    const double now = clock_.now();
    const double at = pacer_.schedule(now);
    presentTimer_.start(std::max(0, static_cast<int>(std::lround((at - now) * 1000.0))));
}

void LayerShellOverlayWindow::presentLiveFrame() {
    if (!surface_) return;
    // The compositor still shows the last one: drawn as soon as it asks for the next.
    if (surface_->isFramePending()) {
        liveFrameDue_ = true;
        return;
    }
    draw();
}

void LayerShellOverlayWindow::stopLiveFrames() {
    live_ = false;
    liveFrameDue_ = false;
    freshFrame_ = false;
    presentTimer_.stop();
    liveWatchdog_.stop();
    pacer_.reset();
}

void LayerShellOverlayWindow::frameDone() {
    if (!shown_) return;
    if (live_) {
        if (liveFrameDue_) {
            liveFrameDue_ = false;
            draw();
        }
        return;
    }
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
    const bool rescaled = scale_ != appliedScale_;
    if (rescaled) {
        // Takes effect with the commit below, together with the buffer of the new size.
        if (!surface_->setBufferScale(scale_)) scale_ = 1;
        appliedScale_ = scale_;
        committedReach_ = {};
    }
    if (!(path_ == DrawingPath::cpu ? drawOnCpu() : drawWithGl(rescaled))) return;
    ++framesDrawn_;
    if (live_) {
        ++(freshFrame_ ? livePacing_.drawn : livePacing_.repeated);
        freshFrame_ = false;
    }
}

bool LayerShellOverlayWindow::drawWithGl(bool rescaled) {
    if (!makeCurrent()) return false;
    if (!renderer_.isInitialized() && !renderer_.initialize(*context_)) {
        qCWarning(lcOverlay, "The GL renderer cannot run in the overlay's context");
        failed_ = true;
        return false;
    }
    if (rescaled) wl_egl_window_resize(eglWindow_, bufferSize().width(), bufferSize().height(), 0, 0);
    const SizeF panel{double(size_.width()), double(size_.height())};
    // Surface-local size is in the output's logical pixels; buffers hold `scale_` pixels for each.
    const WaveTarget target{0, bufferSize(), double(scale_)};
    paintFrame(renderer_, view_.frame(panel, animation_.advance(view_.motion())), target, transparentBackground);
    surface_->requestFrame();
    sinceLastFrame_.start();
    eglSwapBuffers(eglDisplay_, eglSurface_);
    return true;
}

namespace {
// A premultiplied colour as one ARGB32 pixel.
std::uint32_t packed(const RgbaColor& c) {
    const auto byte = [](double unit) { return static_cast<std::uint32_t>(std::lround(std::clamp(unit, 0.0, 1.0) * 255)); };
    return byte(c.alpha) << 24 | byte(c.red) << 16 | byte(c.green) << 8 | byte(c.blue);
}
}  // namespace

bool LayerShellOverlayWindow::drawOnCpu() {
    if (!buffers_) buffers_ = std::make_unique<ShmBufferPool>(connection_->shm());
    ShmBufferPool::Buffer* buffer = buffers_->acquire(bufferSize());
    if (!buffer) {
        // Every buffer is still on screen: try again a frame later.
        pacing_.start(frameIntervalMs);
        return false;
    }
    const SizeF panel{double(size_.width()), double(size_.height())};
    const WaveFrame frame = view_.frame(panel, animation_.advance(view_.motion()));
    const double ratio = scale_;
    const RgbaColor fill = WaveRasterRenderer::panelFill(frame, transparentBackground);
    const QRect reach = WaveRasterRenderer::wavePixels(frame, ratio);
    const QRect whole(QPoint(0, 0), bufferSize());
    // A buffer keeps what it held two frames ago: only the wave's pixels then and now change,
    // unless the fill did.
    const bool refill = !buffer->fill || !(*buffer->fill == fill);
    if (refill) buffer->image.fill(packed(fill));
    const QRect redraw = refill ? whole : reach.united(buffer->reach);
    rasterRenderer_.drawCanvas(frame, buffer->image, transparentBackground, redraw);
    buffer->fill = fill;
    buffer->reach = reach;

    surface_->requestFrame();
    sinceLastFrame_.start();
    buffers_->lend(surface_->surface(), *buffer);
    // What differs from the picture on screen: the wave's pixels there and here.
    surface_->damageBuffer(refill || committedReach_.isNull() ? QRect() : reach.united(committedReach_));
    committedReach_ = reach;
    surface_->commit();
    return true;
}

}  // namespace lorvane
