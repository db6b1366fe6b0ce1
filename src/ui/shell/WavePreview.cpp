#include "ui/shell/WavePreview.h"

#include <QEvent>
#include <QPainter>
#include <QPainterPath>

#include "core/Clock.h"
#include "ui/FrameTicker.h"
#include "ui/OffscreenWaveRenderer.h"
#include "ui/OverlayWindow.h"
#include "ui/VisualizerPainter.h"
#include "ui/WaveRasterRenderer.h"

namespace lorvane {

namespace {

template <typename T>
std::shared_ptr<const T> borrowed(const T& object) {
    // The settings view outlives nothing it observes: the controller owns both for the whole run.
    return std::shared_ptr<const T>(&object, [](const T*) {});
}

QColor qColor(const RgbaColor& c, double opacity = 1) {
    return QColor::fromRgbF(static_cast<float>(c.red), static_cast<float>(c.green), static_cast<float>(c.blue),
                            static_cast<float>(c.alpha * opacity));
}

// The layout with QPainter, where no OpenGL context can be made: the same bars, dots and baseline
// without the blurred glow.
void paintLayout(QPainter& painter, const WaveLayout& layout, const QRectF& canvas) {
    painter.save();
    painter.translate(canvas.topLeft());
    painter.setRenderHint(QPainter::Antialiasing);
    if (!layout.baselineStops.empty()) {
        QLinearGradient gradient(0, layout.midY, layout.canvas.width, layout.midY);
        for (const GradientStop& stop : layout.baselineStops) gradient.setColorAt(stop.location, qColor(stop.color));
        QPen baseline(QBrush(gradient), layout.baselineWidth, Qt::SolidLine, Qt::RoundCap);
        painter.setOpacity(layout.baselineOpacity);
        painter.setPen(baseline);
        painter.drawLine(QPointF(0, layout.midY), QPointF(layout.canvas.width, layout.midY));
        painter.setOpacity(1);
    }
    for (const WaveBar& bar : layout.bars) {
        QPen pen(qColor(bar.color, bar.strokeOpacity), layout.barWidth, Qt::SolidLine, Qt::RoundCap);
        painter.setPen(pen);
        painter.drawLine(QPointF(bar.x, layout.midY - bar.halfHeight), QPointF(bar.x, layout.midY + bar.halfHeight));
        if (bar.dotOpacity > 0 && layout.dotDiameter > 0) {
            painter.setPen(Qt::NoPen);
            painter.setBrush(qColor(bar.color, bar.dotOpacity));
            const double r = layout.dotDiameter / 2;
            painter.drawEllipse(QPointF(bar.x, layout.midY - bar.halfHeight), r, r);
            painter.drawEllipse(QPointF(bar.x, layout.midY + bar.halfHeight), r, r);
        }
    }
    painter.restore();
}

}  // namespace

WavePreview::WavePreview(const OverlayPreferences& preferences, const VisualizerModel& model, QWidget* parent)
    : QWidget(parent),
      view_(borrowed(preferences), borrowed(model)),
      ticker_(std::make_unique<FrameTicker>([this] { update(); })),
      steady_(std::make_unique<SteadyClock>()),
      animation_(*steady_) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName(QStringLiteral("Waveform Preview"));
    setAccessibleDescription(QStringLiteral("The wave as it looks with the current colour, mode and audio response"));
}

WavePreview::~WavePreview() = default;

bool WavePreview::isAnimating() const { return ticker_->isRunning(); }

QSize WavePreview::sizeHint() const { return {fontMetrics().averageCharWidth() * 40, fontMetrics().height() * 4}; }

QSize WavePreview::minimumSizeHint() const { return {fontMetrics().averageCharWidth() * 10, fontMetrics().height() * 4}; }

void WavePreview::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    ticker_->start();
}

void WavePreview::hideEvent(QHideEvent* event) {
    ticker_->stop();
    animation_.pause();
    QWidget::hideEvent(event);
}

void WavePreview::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange) updateGeometry();
    QWidget::changeEvent(event);
}

DrawingPath WavePreview::drawingPath() {
    // The overlay's rule, looked at again only when the setting changes.
    const RendererChoice choice = view_.preferences().renderer();
    if (pathChosenFor_ != choice) {
        pathChosenFor_ = choice;
        path_ = currentDrawingPath(choice);
    }
    return path_;
}

QImage WavePreview::renderFrame(const QSize& size, double devicePixelRatio) {
    const double inset = size.height() * 0.1;
    const RectF canvas{inset, inset, size.width() - 2 * inset, size.height() - 2 * inset};
    const SizeF canvasSize{canvas.width, canvas.height};
    const WaveLayout layout = fixedClock_ ? view_.layout(canvasSize, fixedClock_->now())
                                          : view_.layout(canvasSize, animation_.advance(view_.motion()));
    lastPath_.reset();
    if (!painterOnly_ && drawingPath() == DrawingPath::gl) {
        if (!glTried_) {
            glTried_ = true;
            auto renderer = std::make_unique<OffscreenWaveRenderer>();
            if (renderer->isValid()) glRenderer_ = std::move(renderer);
        }
        if (glRenderer_) {
            QImage image = glRenderer_->renderLayout(
                layout, {static_cast<double>(size.width()), static_cast<double>(size.height())}, canvas,
                devicePixelRatio, opaqueBackground);
            if (!image.isNull()) {
                lastPath_ = DrawingPath::gl;
                return image;
            }
        }
    }
    if (!painterOnly_) {
        // The CPU path, also where OpenGL was asked for but cannot draw.
        if (!rasterRenderer_) rasterRenderer_ = std::make_unique<WaveRasterRenderer>();
        const WaveFrame frame{{static_cast<double>(size.width()), static_cast<double>(size.height())},
                              {false, std::nullopt, canvas},
                              layout};
        // One image for every frame: the panel around the canvas keeps its fill, the canvas is redrawn.
        const QSize pixels = (QSizeF(size) * devicePixelRatio).toSize();
        if (cpuImage_.size() != pixels || cpuImage_.devicePixelRatio() != devicePixelRatio) {
            cpuImage_ = rasterRenderer_->render(frame, devicePixelRatio, opaqueBackground);
            cpuImage_.setDevicePixelRatio(devicePixelRatio);
        } else {
            rasterRenderer_->drawCanvas(frame, cpuImage_, opaqueBackground);
        }
        lastPath_ = DrawingPath::cpu;
        return cpuImage_;
    }
    QImage image(size * devicePixelRatio, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(qColor(opaqueBackground));
    QPainter painter(&image);
    paintLayout(painter, layout, QRectF(canvas.x, canvas.y, canvas.width, canvas.height));
    return image;
}

void WavePreview::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), palette().color(QPalette::Window));
    const QImage frame = renderFrame(size(), devicePixelRatioF());
    QPainterPath frameShape;
    const qreal radius = fontMetrics().height() / 3.0;
    frameShape.addRoundedRect(QRectF(rect()), radius, radius);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setClipPath(frameShape);
    painter.drawImage(QPointF(0, 0), frame);
    ++framesDrawn_;
    lastDrawnColor_ = view_.preferences().color();
}

}  // namespace lorvane
