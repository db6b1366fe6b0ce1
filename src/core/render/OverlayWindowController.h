#pragma once
// The overlay's placement, shared by every platform's overlay window: its level, and its frame on
// the screen under the pointer, re-applied when the screens change. A platform window derives from
// it and supplies the four window steps below; whether it is on screen is the caller's decision.

#include <memory>
#include <optional>
#include <vector>

#include "core/OverlayPreferences.h"
#include "core/Signal.h"
#include "core/render/Geometry.h"
#include "core/render/OverlayPlacement.h"
#include "core/render/OverlayPresenting.h"

namespace lorvane {

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

class OverlayWindowController : public OverlayPresenting {
public:
    OverlayWindowController(std::shared_ptr<const OverlayPreferences> preferences,
                            std::unique_ptr<ScreenEnvironment> screens);
    ~OverlayWindowController() override;
    OverlayWindowController(const OverlayWindowController&) = delete;
    OverlayWindowController& operator=(const OverlayWindowController&) = delete;

    // OverlayPresenting.
    void applyWindowLevel() final;
    void reposition() final;
    void orderFrontRegardless() final;
    void orderOut() final;

    // Showing re-applies level and frame, then brings the window to the front without activating the
    // application; between shows the window does not follow the pointer.
    void showOverlay();
    void hideOverlay() { orderOut(); }

    void screenParametersDidChange();
    std::optional<ScreenInfo> targetScreen() const;
    const OverlayPreferences& preferences() const { return *preferences_; }
    ScreenEnvironment& screens() { return *screens_; }

protected:
    // The window's side. setFrame() also redraws.
    virtual void setLevel(OverlayWindowLevel level) = 0;
    virtual void setFrame(const RectF& frame) = 0;
    virtual void orderFrontWithoutActivating() = 0;
    virtual void withdraw() = 0;

    // For the end of the window's constructor: applies level and frame once and starts following
    // screen changes (the window steps cannot run before the window exists).
    void place();

private:
    std::shared_ptr<const OverlayPreferences> preferences_;
    std::unique_ptr<ScreenEnvironment> screens_;
    Signal<>::Id screenObservation_ = 0;
};

}  // namespace lorvane
