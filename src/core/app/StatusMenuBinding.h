#pragma once
// Keeps the tray menu showing the program's state without a refresh hub: it observes the preferences,
// the visualizer model and the playback status, and hands the menu a new state only when something
// the menu shows has changed. The live level is followed only while the menu is open (so a playing
// wave costs the desktop's tray host nothing), and the login item is read when the menu opens.

#include <functional>
#include <optional>

#include "core/OverlayPreferences.h"
#include "core/VisualizerModel.h"
#include "core/app/AppServices.h"
#include "core/app/MenuState.h"
#include "core/app/PlaybackStatus.h"

namespace lorvane {

class StatusMenuBinding {
public:
    using LoginItemReader = std::function<bool()>;

    // Shows the current state at once; `menu` and the observed objects must outlive the binding.
    StatusMenuBinding(StatusMenuPresenting& menu, OverlayPreferences& preferences, VisualizerModel& model,
                      PlaybackStatus& playbackStatus, LoginItemReader readLoginItem);
    ~StatusMenuBinding();
    StatusMenuBinding(const StatusMenuBinding&) = delete;
    StatusMenuBinding& operator=(const StatusMenuBinding&) = delete;

    // The menu is about to show: the level and the login item are read afresh.
    void menuWillOpen();
    void menuDidClose();
    bool menuIsOpen() const { return menuOpen_; }
    // The login item was changed by the user.
    void loginItemChanged();

    // What the menu shows now.
    const MenuState& shown() const { return shown_; }

private:
    void preferenceChanged(PreferenceKey key);
    void modelChanged(VisualizerModelKey key);
    void update();
    MenuInputs inputs() const;

    StatusMenuPresenting& menu_;
    OverlayPreferences& preferences_;
    VisualizerModel& model_;
    PlaybackStatus& playbackStatus_;
    LoginItemReader readLoginItem_;

    bool menuOpen_ = false;
    bool launchAtLogin_ = false;
    // The level the live line shows; followed only while the menu is open.
    double shownLevel_ = 0;
    MenuState shown_;

    Signal<PreferenceKey>::Id preferencesObserver_ = 0;
    Signal<VisualizerModelKey>::Id modelObserver_ = 0;
    Signal<PlaybackStatusKey>::Id playbackObserver_ = 0;
};

}  // namespace lorvane
