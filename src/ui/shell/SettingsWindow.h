#pragma once
// The settings window: a titled window, 620 × 470 at first (at least 560 × 430) and afterwards the size
// the user left it at, holding the settings view. It is built once; closing (also with Escape or
// Ctrl+W) only hides it, so the same window (and its selected tab) comes back.

#include <QWidget>

#include "core/app/AppServices.h"

namespace lorvane {

class SettingsView;

class SettingsWindow final : public QWidget, public SettingsWindowPresenting {
    Q_OBJECT
public:
    static constexpr QSize defaultSize{620, 470};
    static constexpr QSize minimumWindowSize{560, 430};

    SettingsWindow(OverlayPreferences& preferences, VisualizerModel& visualizerModel,
                   PlaybackStatus& playbackStatus, SettingsActions actions, bool launchAtLoginEnabled,
                   QString versionText);

    void present() override;
    SettingsView* view() const { return view_; }

protected:
    void hideEvent(QHideEvent* event) override;

private:
    OverlayPreferences& preferences_;
    SettingsView* view_;
};

}  // namespace lorvane
