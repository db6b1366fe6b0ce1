#pragma once
// The settings window's content: four tabs that read the preferences and the visualizer model and
// send every change through SettingsActions, never writing a preference themselves.

#include <QWidget>
#include <array>
#include <map>
#include <optional>

#include "core/OverlayPreferences.h"
#include "core/VisualizerModel.h"
#include "core/app/PlaybackStatus.h"
#include "core/app/SettingsActions.h"
#include "core/app/SettingsText.h"
#include "ui/shell/SymbolIcon.h"

class QCheckBox;
class QLabel;
class QPushButton;
class QTabWidget;
class QVBoxLayout;

namespace lorvane {

class SegmentedPicker;
class SwatchButton;

class SettingsView final : public QWidget {
    Q_OBJECT
public:
    SettingsView(OverlayPreferences& preferences, VisualizerModel& visualizerModel,
                 PlaybackStatus& playbackStatus, SettingsActions actions, bool launchAtLoginEnabled,
                 QString versionText, QWidget* parent = nullptr);
    ~SettingsView() override;

    SettingsTab selectedTab() const;
    void setSelectedTab(SettingsTab tab);
    bool launchAtLoginEnabled() const { return launchAtLoginEnabled_; }
    QTabWidget* tabs() const { return tabs_; }
    QWidget* page(SettingsTab tab) const;

    // The status row's symbol for a capture status.
    static Symbol statusSymbol(AudioCaptureStatus status);
    Symbol shownStatusSymbol() const { return shownStatusSymbol_.value_or(Symbol::waveformCircle); }

private:
    QWidget* makeDisplayTab();
    QWidget* makePlayersTab();
    QWidget* makeAudioTab();
    QWidget* makeGeneralTab();
    QWidget* makePalettePicker();
    QWidget* makePlayerRow(MusicPlayer player);

    void schedulePreferencesRefresh();
    void scheduleModelRefresh();
    void refreshPreferences();
    void refreshModel();
    void refreshRetry();

    OverlayPreferences& preferences_;
    VisualizerModel& visualizerModel_;
    PlaybackStatus& playbackStatus_;
    SettingsActions actions_;
    bool launchAtLoginEnabled_;
    QString versionText_;

    QTabWidget* tabs_ = nullptr;
    QCheckBox* showWaveform_ = nullptr;
    QCheckBox* autoShow_ = nullptr;
    QCheckBox* avoidCovering_ = nullptr;
    SegmentedPicker* displayMode_ = nullptr;
    SegmentedPicker* position_ = nullptr;
    std::map<WaveColor, SwatchButton*> swatches_;
    std::array<QCheckBox*, caseCount<MusicPlayer>()> playerToggles_{};
    QCheckBox* audioResponsive_ = nullptr;
    QLabel* statusIcon_ = nullptr;
    QLabel* statusText_ = nullptr;
    QPushButton* retry_ = nullptr;
    QPushButton* permissions_ = nullptr;
    QCheckBox* launchAtLogin_ = nullptr;
    std::optional<Symbol> shownStatusSymbol_;

    // Observers are told before a change, so the view redraws on the next event-loop turn; many changes
    // in one turn (five per audio frame) give one refresh.
    bool preferencesRefreshPending_ = false;
    bool modelRefreshPending_ = false;
    Signal<>::Id preferencesObserver_ = 0;
    Signal<>::Id modelObserver_ = 0;
    Signal<PlaybackStatusKey>::Id playbackObserver_ = 0;
};

}  // namespace lorvane
