#include "core/render/OverlayWindowController.h"

namespace lorvane {

OverlayWindowController::OverlayWindowController(std::shared_ptr<const OverlayPreferences> preferences,
                                                 std::unique_ptr<ScreenEnvironment> screens)
    : preferences_(std::move(preferences)), screens_(std::move(screens)) {}

OverlayWindowController::~OverlayWindowController() {
    if (screenObservation_) screens_->screenParametersDidChange.disconnect(screenObservation_);
}

void OverlayWindowController::place() {
    applyWindowLevel();
    reposition();
    if (!screenObservation_) {
        screenObservation_ = screens_->screenParametersDidChange.connect([this] { screenParametersDidChange(); });
    }
}

void OverlayWindowController::applyWindowLevel() {
    setLevel(overlayWindowLevel(preferences_->avoidsCoveringWindows(), preferences_->displayMode()));
}

void OverlayWindowController::reposition() {
    const auto screen = targetScreen();
    if (!screen) return;
    setFrame(overlayFrame(*screen, preferences_->displayMode(), preferences_->position()));
}

void OverlayWindowController::screenParametersDidChange() {
    applyWindowLevel();
    reposition();
}

std::optional<ScreenInfo> OverlayWindowController::targetScreen() const {
    const auto all = screens_->screens();
    const auto index = targetScreenIndex(all, screens_->mainScreen(), screens_->pointerLocation());
    if (!index) return std::nullopt;
    return all[*index];
}

void OverlayWindowController::orderFrontRegardless() { orderFrontWithoutActivating(); }

void OverlayWindowController::showOverlay() {
    applyWindowLevel();
    reposition();
    orderFrontRegardless();
}

void OverlayWindowController::orderOut() { withdraw(); }

}  // namespace lorvane
