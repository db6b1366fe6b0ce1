#include "core/render/OverlayWindowController.h"

namespace lorvane {

OverlayWindowController::OverlayWindowController(std::shared_ptr<const OverlayPreferences> preferences,
                                                 std::unique_ptr<OverlayPanel> panel,
                                                 std::unique_ptr<ScreenEnvironment> screens)
    : preferences_(std::move(preferences)), panel_(std::move(panel)), screens_(std::move(screens)) {
    applyWindowLevel();
    reposition();
    screenObservation_ = screens_->screenParametersDidChange.connect([this] { screenParametersDidChange(); });
}

OverlayWindowController::~OverlayWindowController() {
    screens_->screenParametersDidChange.disconnect(screenObservation_);
}

void OverlayWindowController::applyWindowLevel() {
    panel_->setLevel(overlayWindowLevel(preferences_->avoidsCoveringWindows(), preferences_->displayMode()));
}

void OverlayWindowController::reposition() {
    const auto screen = targetScreen();
    if (!screen) return;
    panel_->setFrame(overlayFrame(*screen, preferences_->displayMode(), preferences_->position()));
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

void OverlayWindowController::show() {
    applyWindowLevel();
    reposition();
    panel_->orderFrontWithoutActivating();
}

void OverlayWindowController::hide() { panel_->orderOut(); }

}  // namespace lorvane
