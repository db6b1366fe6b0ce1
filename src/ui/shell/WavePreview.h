#pragma once
// A small copy of the wave at the top of the settings window: drawn from the same preferences and
// model as the overlay (colour, mode, audio response, live analysis or the idle wave), by the
// drawing path the overlay uses (OpenGL, or the CPU where OpenGL runs in software), with phases that
// advance like the overlay's, up to 30 times a second and only while it is on screen.

#include <QImage>
#include <QWidget>
#include <memory>
#include <optional>

#include "core/OverlayPreferences.h"
#include "core/VisualizerModel.h"
#include "core/render/DrawingPath.h"
#include "core/render/VisualizerView.h"
#include "core/render/WaveAnimation.h"

namespace lorvane {

class FrameTicker;
class OffscreenWaveRenderer;
class WaveRasterRenderer;
class Clock;
class SteadyClock;

class WavePreview final : public QWidget {
    Q_OBJECT
public:
    WavePreview(const OverlayPreferences& preferences, const VisualizerModel& model, QWidget* parent = nullptr);
    ~WavePreview() override;

    // Frames drawn so far, and the colour the last one was drawn in (for tests and diagnostics).
    long long framesDrawn() const { return framesDrawn_; }
    WaveColor lastDrawnColor() const { return lastDrawnColor_; }
    bool isAnimating() const;
    // A fixed time source (seconds since 1 January 2001 UTC) for repeatable pictures: the wave is then
    // drawn as if its motion had held since time 0. It must outlive the preview.
    void setClock(const Clock& clock) { fixedClock_ = &clock; }
    // Draw with QPainter alone, without the glow (pictures that must not depend on a renderer).
    void setOpenGlAllowed(bool allowed) { painterOnly_ = !allowed; }
    // The path the last frame was drawn with; nothing before the first frame or with QPainter alone.
    std::optional<DrawingPath> lastDrawingPath() const { return lastPath_; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    QImage renderFrame(const QSize& size, double devicePixelRatio);

    DrawingPath drawingPath();

    VisualizerView view_;
    std::unique_ptr<FrameTicker> ticker_;
    std::unique_ptr<SteadyClock> steady_;
    WaveAnimation animation_;
    const Clock* fixedClock_ = nullptr;
    bool painterOnly_ = false;
    // Made on first use of their path; the GL one stays empty where OpenGL is missing.
    std::unique_ptr<OffscreenWaveRenderer> glRenderer_;
    std::unique_ptr<WaveRasterRenderer> rasterRenderer_;
    QImage cpuImage_;  // the CPU path's picture, redrawn frame after frame
    bool glTried_ = false;
    std::optional<RendererChoice> pathChosenFor_;
    DrawingPath path_ = DrawingPath::cpu;
    std::optional<DrawingPath> lastPath_;
    long long framesDrawn_ = 0;
    WaveColor lastDrawnColor_ = WaveColor::cyan;
};

}  // namespace lorvane
