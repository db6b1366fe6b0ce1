#pragma once
// A small copy of the wave at the top of the settings window: drawn from the same preferences and
// model as the overlay (colour, mode, audio response, live analysis or the idle wave), by the
// program's renderer, up to 30 times a second and only while it is on screen.

#include <QImage>
#include <QWidget>
#include <memory>

#include "core/OverlayPreferences.h"
#include "core/VisualizerModel.h"
#include "core/render/VisualizerView.h"

namespace lorvane {

class FrameTicker;
class OffscreenWaveRenderer;
class WaveRasterRenderer;
class Clock;
class ReferenceDateClock;

class WavePreview final : public QWidget {
    Q_OBJECT
public:
    WavePreview(const OverlayPreferences& preferences, const VisualizerModel& model, QWidget* parent = nullptr);
    ~WavePreview() override;

    // Frames drawn so far, and the colour the last one was drawn in (for tests and diagnostics).
    long long framesDrawn() const { return framesDrawn_; }
    WaveColor lastDrawnColor() const { return lastDrawnColor_; }
    bool isAnimating() const;
    // Whether the last frame came from the CPU drawing path.
    bool drewOnCpu() const { return onCpu_; }
    // The wave's time source (seconds since 1 January 2001 UTC); a fixed clock gives repeatable pictures.
    // It must outlive the preview.
    void setClock(const Clock& clock) { clock_ = &clock; }
    // Draw with QPainter, neither OpenGL nor the CPU drawing path (pictures that must not depend on
    // the GL driver).
    void setOpenGlAllowed(bool allowed);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    QImage renderFrame(const QSize& size, double devicePixelRatio);

    VisualizerView view_;
    std::unique_ptr<FrameTicker> ticker_;
    std::unique_ptr<ReferenceDateClock> wallClock_;
    const Clock* clock_ = nullptr;
    // Made on first use; stays empty (and the painter draws) where OpenGL is missing.
    std::unique_ptr<OffscreenWaveRenderer> glRenderer_;
    bool glTried_ = false;
    bool glAllowed_ = true;
    // The drawing path, chosen as the overlay chooses it, again when the setting changes.
    std::unique_ptr<WaveRasterRenderer> rasterRenderer_;
    QImage cpuImage_;
    bool pathChosen_ = false;
    bool onCpu_ = false;
    RendererChoice chosenFor_ = RendererChoice::automatic;
    long long framesDrawn_ = 0;
    WaveColor lastDrawnColor_ = WaveColor::cyan;
};

}  // namespace lorvane
