#pragma once
// The X11 overlay: a frameless, translucent window that takes no focus, stays out of taskbars and
// pagers, sits on every desktop and lets every click through. It shows the wave view, drawn with
// OpenGL or, where OpenGL is missing or runs in software, on the CPU into a shared-memory image.
// While live it draws once per analysis frame, evenly paced; otherwise from a steady 30 Hz source;
// while hidden not at all.

#include <QTimer>
#include <QWindow>
#include <functional>
#include <memory>

#include "core/Clock.h"
#include "core/render/DrawingPath.h"
#include "core/render/FramePacer.h"
#include "core/render/OverlayWindowController.h"
#include "core/render/VisualizerView.h"
#include "core/render/WaveAnimation.h"
#include "ui/FrameTicker.h"
#include "ui/FrostedBackground.h"
#include "ui/WaveGlRenderer.h"
#include "ui/WaveRasterRenderer.h"

class QBackingStore;
class QOpenGLContext;

namespace lorvane {

class OverlayWindow final : public QWindow, public OverlayWindowController {
public:
    // `steady` (a monotonic clock) drives the animation and must outlive the window. The preferences
    // and the model are observed for the drawing path and for live frames.
    OverlayWindow(std::shared_ptr<OverlayPreferences> preferences, std::shared_ptr<VisualizerModel> model,
                  const Clock& steady, std::unique_ptr<ScreenEnvironment> screens);
    ~OverlayWindow() override;

    OverlayWindowLevel level() const { return level_; }
    // Whether frames are drawn over a transparent background (a compositor blends the window) or over
    // the opaque fallback.
    bool isTranslucent() const { return translucent_; }
    // Whether the steady 30 Hz source runs (on screen and not live).
    bool isTicking() const { return ticker_.isRunning(); }
    long long framesDrawn() const { return framesDrawn_; }
    DrawingPath drawingPath() const { return path_; }
    const VisualizerView& view() const { return view_; }
    // Draws one frame now if the window is on screen.
    void renderNow();
    // Told the steady time of every frame put on screen (benchmarks measure the pacing with it).
    std::function<void(double)> framePresented;

protected:
    // OverlayWindowController
    void setLevel(OverlayWindowLevel level) override;
    void setFrame(const RectF& frame) override;
    void orderFrontWithoutActivating() override;
    void withdraw() override;

    void exposeEvent(QExposeEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void prepareForMapping();
    void checkCompositing();
    void modelWillChange();
    void modelDidChange();
    void preferencesDidChange();
    void useDrawingPath(DrawingPath path);
    void releaseSurfaces();
    bool drawWithGl(const WaveFrame& frame, const RgbaColor& background);
    bool drawOnCpu(const WaveFrame& frame, const RgbaColor& background);

    std::shared_ptr<OverlayPreferences> observedPreferences_;
    std::shared_ptr<VisualizerModel> model_;
    VisualizerView view_;
    const Clock& clock_;
    WaveAnimation animation_;
    DrawingPath path_ = DrawingPath::gl;
    std::unique_ptr<QOpenGLContext> context_;
    WaveGlRenderer glRenderer_;
    std::unique_ptr<QBackingStore> backingStore_;
    WaveRasterRenderer rasterRenderer_;
    RgbaColor painted_{-1, -1, -1, -1};  // the fill the backing store's panel outside the canvas holds
    QRect lastReach_;                     // the pixels the last frame's wave reached
    QRegion lastWave_;                    // ... slice by slice
    FrameTicker ticker_;
    FramePacer pacer_;
    QTimer presentTimer_;   // the next live frame's place on the beat
    QTimer liveWatchdog_;   // live frames stopped without the model saying so: back to the steady source
    FrostedBackground frosted_;
    OverlayWindowLevel level_ = OverlayWindowLevel::desktop;
    OverlayWindowLevel mappedLevel_ = OverlayWindowLevel::desktop;
    bool translucent_ = false;
    bool inputShapeCleared_ = false;
    bool modelCheckPending_ = false;
    bool preferencesCheckPending_ = false;
    long long framesDrawn_ = 0;
    Signal<>::Id modelObservation_ = 0;
    Signal<PreferenceKey>::Id preferencesObservation_ = 0;
};

// The GL_RENDERER of a wave context on this display, asked once; nothing when no context can be made.
const std::optional<std::string>& openGlRendererName();

// The drawing path for a window now: LORVANE_RENDERER, the preference, and the driver.
DrawingPath currentDrawingPath(RendererChoice preference);

}  // namespace lorvane
