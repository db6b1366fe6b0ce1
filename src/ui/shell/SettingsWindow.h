#pragma once
// The settings window: a titled window of 620 × 470 (at least 560 × 430) holding the settings view.
// It is built once; closing only hides it, so the same window (and its selected tab) comes back.

#include <QWidget>

#include "core/app/AppServices.h"

namespace lorvane {

class SettingsView;

class SettingsWindow final : public QWidget, public SettingsWindowPresenting {
    Q_OBJECT
public:
    SettingsWindow(OverlayPreferences& preferences, VisualizerModel& visualizerModel,
                   PlaybackStatus& playbackStatus, SettingsActions actions, bool launchAtLoginEnabled,
                   QString versionText);

    void present() override;
    SettingsView* view() const { return view_; }

private:
    SettingsView* view_;
};

}  // namespace lorvane
