#pragma once
// The overlay panel: a frameless, translucent OpenGL window that takes no focus, stays out of
// taskbars and pagers, sits on every desktop and lets every click through. It shows the wave view
// and draws it at most 30 times a second while it is on screen, and not at all while hidden.

#include <QWindow>
#include <memory>

#include "core/Clock.h"
#include "core/render/OverlayWindowController.h"
#include "core/render/VisualizerView.h"
#include "ui/FrameTicker.h"
#include "ui/FrostedBackground.h"
#include "ui/WaveGlRenderer.h"

class QOpenGLContext;

namespace lorvane {

class OverlayWindow final : public QWindow, public OverlayPanel {
public:
    // `clock` gives the wave's time (seconds since 1 January 2001 UTC) and must outlive the window.
    OverlayWindow(std::shared_ptr<const OverlayPreferences> preferences, std::shared_ptr<const VisualizerModel> model,
                  const Clock& clock);
    ~OverlayWindow() override;

    // OverlayPanel
    void setLevel(OverlayWindowLevel level) override;
    void setFrame(const RectF& frame) override;
    void orderFrontWithoutActivating() override;
    void orderOut() override;
    bool isVisible() const override { return QWindow::isVisible(); }

    OverlayWindowLevel level() const { return level_; }
    // Whether frames are drawn over a transparent background (a compositor blends the window) or over
    // the opaque fallback.
    bool isTranslucent() const { return translucent_; }
    bool isTicking() const { return ticker_.isRunning(); }
    long long framesDrawn() const { return framesDrawn_; }
    const VisualizerView& view() const { return view_; }
    // Draws one frame now if the window is on screen.
    void renderNow();

protected:
    void exposeEvent(QExposeEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void prepareForMapping();
    void checkCompositing();

    VisualizerView view_;
    const Clock& clock_;
    std::unique_ptr<QOpenGLContext> context_;
    WaveGlRenderer renderer_;
    FrameTicker ticker_;
    FrostedBackground frosted_;
    OverlayWindowLevel level_ = OverlayWindowLevel::desktop;
    OverlayWindowLevel mappedLevel_ = OverlayWindowLevel::desktop;
    bool translucent_ = false;
    bool inputShapeCleared_ = false;
    long long framesDrawn_ = 0;
};

}  // namespace lorvane
