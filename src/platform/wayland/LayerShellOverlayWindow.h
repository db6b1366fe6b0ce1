#pragma once
// The overlay as a wlr layer surface, for Wayland compositors that offer layer-shell: anchored to the
// output's edges on the top layer (kept above windows) or the bottom layer (on the desktop), with no
// input region and no keyboard, on every workspace. The compositor chooses the output (Qt cannot know
// where the pointer is when it is over no surface of ours); when the outputs change, a new surface lets
// it choose again. It draws with the same GL renderer as the X11
// overlay, into an EGL window surface made current with a QOpenGLContext on Qt's EGL display, one
// frame per frame callback and at most 30 a second, so nothing is drawn or swapped while the
// compositor does not show it.

#include <EGL/egl.h>

#include <QElapsedTimer>
#include <QOffscreenSurface>
#include <QRect>
#include <QTimer>
#include <memory>
#include <utility>
#include <vector>

#include "core/Clock.h"
#include "core/render/OverlayWindowController.h"
#include "core/render/VisualizerView.h"
#include "core/render/WaveAnimation.h"
#include "core/render/DrawingPath.h"
#include "core/render/FramePacer.h"
#include "platform/wayland/LayerShellSurface.h"
#include "platform/wayland/ShmBufferPool.h"
#include "ui/WaveGlRenderer.h"
#include "ui/WaveRasterRenderer.h"

class QOpenGLContext;
class QScreen;
struct wl_egl_window;

namespace lorvane {

class LayerShellOverlayWindow final : public OverlayWindowController {
public:
    // `clock` is a steady clock that drives the wave's animation.
    // The drawing path follows the preferences' renderer, LORVANE_RENDERER and the OpenGL driver, as
    // on X11: where OpenGL runs in software the band is drawn on the CPU into shared memory.
    LayerShellOverlayWindow(std::shared_ptr<OverlayPreferences> preferences,
                            std::shared_ptr<VisualizerModel> model, const Clock& clock,
                            std::unique_ptr<LayerShellConnection> connection,
                            std::unique_ptr<ScreenEnvironment> screens);
    ~LayerShellOverlayWindow() override;

    bool isVisible() const { return shown_; }
    long long framesDrawn() const { return framesDrawn_; }
    // Buffer pixels per surface-local pixel: the largest scale of the outputs the band is on.
    int bufferScale() const { return scale_; }
    DrawingPath drawingPath() const { return path_; }

    // How live frames reached the screen: while live each published frame is drawn once, on an
    // even beat, and nothing is drawn in between.
    struct LivePacing {
        long long published = 0;  // analysis frames that arrived while live
        long long drawn = 0;      // drawings of a frame not drawn before
        long long repeated = 0;   // drawings while live without a new frame
        long long skipped = 0;    // frames replaced by a newer one before they were drawn
    };
    const LivePacing& livePacing() const { return livePacing_; }

protected:
    // OverlayWindowController
    void setLevel(OverlayWindowLevel level) override;
    void setFrame(const RectF& frame) override;
    void orderFrontWithoutActivating() override;
    void withdraw() override;

private:
    LayerSurfacePlacement placement() const;
    // The outputs as Qt sees them: which, where and how large.
    std::vector<std::pair<QScreen*, QRect>> currentScreens() const;
    void createSurface();
    void destroySurface();
    void configured(int width, int height);
    void frameDone();
    void outputsChanged();
    void modelWillChange();
    void modelDidChange();
    void presentLiveFrame();
    void stopLiveFrames();
    QSize bufferSize() const { return size_ * scale_; }
    void scheduleFrame();
    bool makeCurrent();
    void draw();
    bool drawWithGl(bool rescaled);
    bool drawOnCpu();
    void useDrawingPath(DrawingPath path);

    std::shared_ptr<OverlayPreferences> observedPreferences_;
    std::shared_ptr<const OverlayPreferences> preferences_;
    Signal<PreferenceKey>::Id preferencesObservation_ = 0;
    DrawingPath path_ = DrawingPath::gl;
    std::shared_ptr<VisualizerModel> model_;
    Signal<>::Id modelObservation_ = 0;
    bool modelCheckPending_ = false;
    // Live: drawings follow the analysis frames; otherwise a steady 30 Hz source.
    bool live_ = false;
    bool liveFrameDue_ = false;   // a frame's time came while the compositor still showed the last
    bool freshFrame_ = false;     // a frame arrived since the last drawing
    FramePacer pacer_;
    QTimer presentTimer_;
    QTimer liveWatchdog_;
    LivePacing livePacing_;
    VisualizerView view_;
    const Clock& clock_;
    WaveAnimation animation_;
    std::unique_ptr<LayerShellConnection> connection_;
    std::unique_ptr<LayerShellSurface> surface_;
    std::unique_ptr<QOpenGLContext> context_;
    QOffscreenSurface offscreen_;
    EGLDisplay eglDisplay_ = EGL_NO_DISPLAY;
    EGLContext eglContext_ = EGL_NO_CONTEXT;
    EGLConfig eglConfig_ = nullptr;
    wl_egl_window* eglWindow_ = nullptr;
    EGLSurface eglSurface_ = EGL_NO_SURFACE;
    WaveGlRenderer renderer_;
    std::unique_ptr<ShmBufferPool> buffers_;
    WaveRasterRenderer rasterRenderer_;
    QRect committedReach_;  // the wave's pixels in the buffer the compositor shows
    QTimer pacing_;
    QElapsedTimer sinceLastFrame_;
    QSize size_;
    int scale_ = 1;         // the scale the next buffer is drawn at
    int appliedScale_ = 1;  // the scale the surface was last told
    OverlayWindowLevel level_ = OverlayWindowLevel::desktop;
    RectF frame_;
    std::vector<std::pair<QScreen*, QRect>> screensAtCreation_;
    bool shown_ = false;
    bool failed_ = false;
    bool swapIntervalSet_ = false;  // for the current EGL surface
    long long framesDrawn_ = 0;
};

}  // namespace lorvane
