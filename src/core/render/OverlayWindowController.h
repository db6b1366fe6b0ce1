#pragma once
// Owns the overlay panel and decides its level and frame, on the screen under the pointer. It
// re-applies both when the screens change; whether the panel is on screen is the caller's decision.

#include <memory>
#include <optional>
#include <vector>

#include "core/OverlayPreferences.h"
#include "core/Signal.h"
#include "core/render/Geometry.h"
#include "core/render/OverlayPlacement.h"

namespace lorvane {

// The window that carries the wave.
class OverlayPanel {
public:
    virtual ~OverlayPanel() = default;
    virtual void setLevel(OverlayWindowLevel level) = 0;
    virtual void setFrame(const RectF& frame) = 0;  // and redraws
    virtual void orderFrontWithoutActivating() = 0;
    virtual void orderOut() = 0;
    virtual bool isVisible() const = 0;
};

// The screens, in the platform's order, and the pointer.
class ScreenEnvironment {
public:
    virtual ~ScreenEnvironment() = default;
    virtual std::vector<ScreenInfo> screens() const = 0;
    virtual std::optional<std::size_t> mainScreen() const = 0;
    virtual PointF pointerLocation() const = 0;
    // Fired after screens were added, removed, moved or resized, or their visible frames changed.
    Signal<> screenParametersDidChange;
};

class OverlayWindowController {
public:
    // Applies the level and the frame once and starts listening for screen changes.
    OverlayWindowController(std::shared_ptr<const OverlayPreferences> preferences, std::unique_ptr<OverlayPanel> panel,
                            std::unique_ptr<ScreenEnvironment> screens);
    ~OverlayWindowController();
    OverlayWindowController(const OverlayWindowController&) = delete;
    OverlayWindowController& operator=(const OverlayWindowController&) = delete;

    void applyWindowLevel();
    void reposition();
    void screenParametersDidChange();
    std::optional<ScreenInfo> targetScreen() const;

    // For the application controller: showing re-applies level and frame, then brings the panel to
    // the front without activating the application.
    void show();
    void hide();

    OverlayPanel& panel() { return *panel_; }
    const OverlayPanel& panel() const { return *panel_; }
    ScreenEnvironment& screens() { return *screens_; }

private:
    std::shared_ptr<const OverlayPreferences> preferences_;
    std::unique_ptr<OverlayPanel> panel_;
    std::unique_ptr<ScreenEnvironment> screens_;
    Signal<>::Id screenObservation_ = 0;
};

}  // namespace lorvane
