#include "core/app/StatusMenuBinding.h"

namespace lorvane {

StatusMenuBinding::StatusMenuBinding(StatusMenuPresenting& menu, OverlayPreferences& preferences,
                                     VisualizerModel& model, PlaybackStatus& playbackStatus,
                                     LoginItemReader readLoginItem)
    : menu_(menu),
      preferences_(preferences),
      model_(model),
      playbackStatus_(playbackStatus),
      readLoginItem_(std::move(readLoginItem)) {
    launchAtLogin_ = readLoginItem_ ? readLoginItem_() : false;
    shownLevel_ = model_.audioLevel();
    shown_ = makeMenuState(inputs(), preferences_);
    menu_.apply(shown_);
    preferencesObserver_ = preferences_.changed.connect([this](PreferenceKey key) { preferenceChanged(key); });
    modelObserver_ = model_.changed.connect([this](VisualizerModelKey key) { modelChanged(key); });
    playbackObserver_ = playbackStatus_.changed.connect([this](PlaybackStatusKey) { update(); });
}

StatusMenuBinding::~StatusMenuBinding() {
    preferences_.changed.disconnect(preferencesObserver_);
    model_.changed.disconnect(modelObserver_);
    playbackStatus_.changed.disconnect(playbackObserver_);
}

void StatusMenuBinding::preferenceChanged(PreferenceKey key) {
    // The player list is not in the menu.
    if (key == PreferenceKey::enabledPlayers) return;
    update();
}

void StatusMenuBinding::modelChanged(VisualizerModelKey key) {
    switch (key) {
        case VisualizerModelKey::captureStatus:
            shownLevel_ = model_.audioLevel();
            update();
            return;
        case VisualizerModelKey::captureFailureReason:
            update();
            return;
        case VisualizerModelKey::audioLevel:
            // Per frame: only an open menu follows the level, and only the live line shows it.
            if (!menuOpen_ || model_.captureStatus() != AudioCaptureStatus::live) return;
            shownLevel_ = model_.audioLevel();
            update();
            return;
        default:
            return;
    }
}

void StatusMenuBinding::menuWillOpen() {
    menuOpen_ = true;
    shownLevel_ = model_.audioLevel();
    if (readLoginItem_) launchAtLogin_ = readLoginItem_();
    update();
}

void StatusMenuBinding::menuDidClose() { menuOpen_ = false; }

void StatusMenuBinding::loginItemChanged() {
    if (readLoginItem_) launchAtLogin_ = readLoginItem_();
    update();
}

void StatusMenuBinding::update() {
    MenuState state = makeMenuState(inputs(), preferences_);
    if (state == shown_) return;
    shown_ = std::move(state);
    menu_.apply(shown_);
}

MenuInputs StatusMenuBinding::inputs() const {
    return {playbackStatus_.player(), playbackStatus_.state(), model_.captureStatus(), shownLevel_, launchAtLogin_,
            model_.captureFailureReason()};
}

}  // namespace lorvane
