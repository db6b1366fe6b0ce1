#include "ui/OverlayWindow.h"

#include <QBackingStore>
#include <QExposeEvent>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QPainter>
#include <cmath>

#include "core/Logging.h"
#include "platform/x11/X11Desktop.h"
#include "ui/VisualizerPainter.h"
#include "ui/WaveSurfaceFormat.h"

namespace lorvane {

namespace {
// How often (in frames) a running overlay checks whether a compositor came or went: about once a second.
constexpr long long compositingCheckInterval = 30;
// Live frames come every 1/30 s; after this long without one the steady source takes over.
constexpr int liveWatchdogMilliseconds = 150;

template <typename T>
std::shared_ptr<const T> constant(const std::shared_ptr<T>& object) {
    return object;
}
}  // namespace

const std::optional<std::string>& openGlRendererName() {
    static const std::optional<std::string> name = []() -> std::optional<std::string> {
        QOpenGLContext context;
        context.setFormat(waveSurfaceFormat());
        if (!context.create()) return std::nullopt;
        QOffscreenSurface surface;
        surface.setFormat(context.format());
        surface.create();
        if (!surface.isValid() || !context.makeCurrent(&surface)) return std::nullopt;
        const auto* text = reinterpret_cast<const char*>(context.functions()->glGetString(GL_RENDERER));
        std::optional<std::string> result = text ? std::optional<std::string>(text) : std::nullopt;
        context.doneCurrent();
        return result;
    }();
    return name;
}

DrawingPath currentDrawingPath(RendererChoice preference) {
    const QByteArray environment = qgetenv("LORVANE_RENDERER").trimmed().toLower();
    return chooseDrawingPath(environment.toStdString(), preference, openGlRendererName());
}

OverlayWindow::OverlayWindow(std::shared_ptr<OverlayPreferences> preferences, std::shared_ptr<VisualizerModel> model,
                             const Clock& steady, std::unique_ptr<ScreenEnvironment> screens)
    : OverlayWindowController(constant(preferences), std::move(screens)),
      observedPreferences_(std::move(preferences)),
      model_(std::move(model)),
      view_(constant(observedPreferences_), constant(model_)),
      clock_(steady),
      animation_(steady),
      ticker_([this] { renderNow(); }) {
    path_ = currentDrawingPath(observedPreferences_->renderer());
    qCInfo(lcOverlay, "drawing the wave with %s (OpenGL renderer: %s)", rawValue(path_).data(),
           openGlRendererName() ? openGlRendererName()->c_str() : "none");
    setSurfaceType(path_ == DrawingPath::gl ? QSurface::OpenGLSurface : QSurface::RasterSurface);
    setFormat(waveSurfaceFormat());
    setFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus | Qt::WindowTransparentForInput |
             Qt::NoDropShadowWindowHint);
    // Mapped with a zero user time, so the window manager does not activate it.
    setProperty("_q_showWithoutActivating", true);
    setTitle(QStringLiteral("Lorvane"));
    setGeometry(0, 0, 760, 220);
    create();

    presentTimer_.setSingleShot(true);
    presentTimer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&presentTimer_, &QTimer::timeout, this, [this] { renderNow(); });
    liveWatchdog_.setSingleShot(true);
    liveWatchdog_.setInterval(liveWatchdogMilliseconds);
    QObject::connect(&liveWatchdog_, &QTimer::timeout, this, [this] {
        if (isExposed()) ticker_.start();
    });
    modelObservation_ = model_->objectWillChange.connect([this] { modelWillChange(); });
    // Only the drawing path is this window's own business; placement follows the controller.
    preferencesObservation_ = observedPreferences_->changed.connect([this](PreferenceKey key) {
        if (key != PreferenceKey::renderer || preferencesCheckPending_) return;
        preferencesCheckPending_ = true;
        QMetaObject::invokeMethod(this, [this] { preferencesDidChange(); }, Qt::QueuedConnection);
    });
    place();
}

OverlayWindow::~OverlayWindow() {
    model_->objectWillChange.disconnect(modelObservation_);
    observedPreferences_->changed.disconnect(preferencesObservation_);
    ticker_.stop();
    releaseSurfaces();
}

void OverlayWindow::releaseSurfaces() {
    if (context_ && context_->makeCurrent(this)) {
        glRenderer_.release();
        context_->doneCurrent();
    }
    context_.reset();
    backingStore_.reset();
    painted_ = {-1, -1, -1, -1};
}

void OverlayWindow::setLevel(OverlayWindowLevel level) {
    level_ = level;
    if (!QWindow::isVisible() || level == mappedLevel_) return;
    // Window managers read the type when they start managing a window: unmap, rewrite, map again.
    QWindow::hide();
    x11::waitUntilWithdrawn(*this, std::chrono::milliseconds(500));
    prepareForMapping();
    QWindow::show();
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
        QWindow::show();
    }
    raise();
}

void OverlayWindow::withdraw() { QWindow::hide(); }

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
        presentTimer_.stop();
        liveWatchdog_.stop();
        return;
    }
    if (!inputShapeCleared_) {
        x11::clearInputShape(*this);
        inputShapeCleared_ = true;
    }
    painted_ = {-1, -1, -1, -1};  // the whole panel again
    renderNow();
    modelDidChange();
}

void OverlayWindow::hideEvent(QHideEvent*) {
    ticker_.stop();
    presentTimer_.stop();
    liveWatchdog_.stop();
    pacer_.reset();
    animation_.pause();
}

void OverlayWindow::modelWillChange() {
    // One check per burst of changes (a live frame assigns five values), after they all landed.
    if (modelCheckPending_) return;
    modelCheckPending_ = true;
    QMetaObject::invokeMethod(this, [this] { modelDidChange(); }, Qt::QueuedConnection);
}

void OverlayWindow::modelDidChange() {
    modelCheckPending_ = false;
    if (!isExposed()) return;
    const bool live = model_->captureStatus() == AudioCaptureStatus::live && observedPreferences_->audioResponsive();
    if (!live) {
        liveWatchdog_.stop();
        if (!ticker_.isRunning()) ticker_.start();
        return;
    }
    // One drawing per analysis frame, on an even beat.
    ticker_.stop();
    liveWatchdog_.start();
    if (presentTimer_.isActive()) return;  // this frame's values reach the drawing already queued
    const double now = clock_.now();
    const double at = pacer_.schedule(now);
    presentTimer_.start(std::max(0, static_cast<int>(std::lround((at - now) * 1000.0))));
}

void OverlayWindow::preferencesDidChange() {
    preferencesCheckPending_ = false;
    useDrawingPath(currentDrawingPath(observedPreferences_->renderer()));
}

void OverlayWindow::useDrawingPath(DrawingPath path) {
    if (path == path_) return;
    const bool wasVisible = QWindow::isVisible();
    if (wasVisible) QWindow::hide();
    releaseSurfaces();
    destroy();
    path_ = path;
    setSurfaceType(path_ == DrawingPath::gl ? QSurface::OpenGLSurface : QSurface::RasterSurface);
    create();
    if (wasVisible) orderFrontWithoutActivating();
}

void OverlayWindow::renderNow() {
    if (!isExposed()) return;
    if (framesDrawn_ % compositingCheckInterval == compositingCheckInterval - 1) checkCompositing();
    const SizeF panel{double(width()), double(height())};
    const WaveFrame frame = view_.frame(panel, animation_.advance(view_.motion()));
    frosted_.apply(*this, frame.composition.frostedBackground);
    const RgbaColor background = translucent_ ? transparentBackground : opaqueBackground;
    const bool drawn = path_ == DrawingPath::gl ? drawWithGl(frame, background) : drawOnCpu(frame, background);
    if (!drawn) return;
    ++framesDrawn_;
    if (framePresented) framePresented(clock_.now());
}

bool OverlayWindow::drawWithGl(const WaveFrame& frame, const RgbaColor& background) {
    if (!context_) {
        context_ = std::make_unique<QOpenGLContext>();
        context_->setFormat(requestedFormat());
        if (!context_->create()) {
            context_.reset();
            qCWarning(lcOverlay, "no OpenGL context for the wave; drawing it on the CPU");
            useDrawingPath(DrawingPath::cpu);
            return false;
        }
    }
    if (!context_->makeCurrent(this)) return false;
    if (!glRenderer_.isInitialized() && !glRenderer_.initialize(*context_)) return false;
    const double ratio = devicePixelRatio();
    const WaveTarget target{context_->defaultFramebufferObject(),
                            QSize(static_cast<int>(std::lround(width() * ratio)),
                                  static_cast<int>(std::lround(height() * ratio))),
                            ratio};
    paintFrame(glRenderer_, frame, target, background);
    context_->swapBuffers(this);
    return true;
}

bool OverlayWindow::drawOnCpu(const WaveFrame& frame, const RgbaColor& background) {
    if (!backingStore_) backingStore_ = std::make_unique<QBackingStore>(this);
    if (backingStore_->size() != size()) {
        backingStore_->resize(size());
        painted_ = {-1, -1, -1, -1};
    }
    const RgbaColor fill = WaveRasterRenderer::panelFill(frame, background);
    const bool whole = !(painted_ == fill);
    // Only the rows the wave reaches now or reached last time change; the rest of the panel keeps
    // its plain fill (the backing store keeps its pixels, and clears only what it is asked to paint).
    const double ratio = devicePixelRatio();
    const QRect reach = WaveRasterRenderer::wavePixels(frame, ratio);
    const QRect pixels = whole ? QRect(QPoint(0, 0), size() * ratio) : reach.united(lastReach_);
    lastReach_ = reach;
    auto toPoints = [ratio](const QRect& r) {
        const int left = static_cast<int>(std::floor(r.left() / ratio)), top = static_cast<int>(std::floor(r.top() / ratio));
        return QRect(left, top, static_cast<int>(std::ceil((r.right() + 1) / ratio)) - left,
                     static_cast<int>(std::ceil((r.bottom() + 1) / ratio)) - top);
    };
    const QRect points = toPoints(pixels);
    const QRegion region(points);
    // Only what can have changed goes to the display server: where the wave is now or was last time,
    // slice by slice of columns.
    const QRegion wave = WaveRasterRenderer::waveRegion(frame, ratio);
    QRegion changed;
    if (whole) {
        changed = region;
    } else {
        for (const QRect& r : wave.united(lastWave_)) changed += toPoints(r);
        changed &= region;
    }
    lastWave_ = wave;
    backingStore_->beginPaint(region);
    auto* image = dynamic_cast<QImage*>(backingStore_->paintDevice());
    if (image && image->format() == QImage::Format_ARGB32_Premultiplied) {
        if (whole) {
            QPainter painter(image);
            painter.setCompositionMode(QPainter::CompositionMode_Source);
            painter.fillRect(QRect(QPoint(0, 0), size()),
                             QColor::fromRgbF(static_cast<float>(fill.alpha > 0 ? fill.red / fill.alpha : 0),
                                              static_cast<float>(fill.alpha > 0 ? fill.green / fill.alpha : 0),
                                              static_cast<float>(fill.alpha > 0 ? fill.blue / fill.alpha : 0),
                                              static_cast<float>(fill.alpha)));
        }
        const QRect limit(QPoint(static_cast<int>(std::floor(points.left() * ratio)), static_cast<int>(std::floor(points.top() * ratio))),
                          QPoint(static_cast<int>(std::ceil((points.right() + 1) * ratio)) - 1,
                                 static_cast<int>(std::ceil((points.bottom() + 1) * ratio)) - 1));
        rasterRenderer_.drawCanvas(frame, *image, background, limit);
    } else {
        changed = region;
        // A backing store that is no premultiplied image: draw aside and copy.
        const QImage picture = rasterRenderer_.render(frame, devicePixelRatio(), background);
        QPainter painter(backingStore_->paintDevice());
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.drawImage(QPoint(0, 0), picture);
    }
    backingStore_->endPaint();
    backingStore_->flush(changed);
    painted_ = fill;
    return true;
}

}  // namespace lorvane
