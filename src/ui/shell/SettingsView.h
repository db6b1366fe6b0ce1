#pragma once
// The settings window's content: four tabs that read the preferences and the visualizer model and
// send every change through SettingsActions, never writing a preference themselves.

#include <QWidget>
#include <array>
#include <functional>
#include <map>
#include <optional>

#include "core/OverlayPreferences.h"
#include "core/VisualizerModel.h"
#include "core/app/PlaybackStatus.h"
#include "core/app/SettingsActions.h"
#include "core/app/SettingsTable.h"
#include "core/app/SettingsText.h"
#include "ui/shell/SymbolIcon.h"

class QButtonGroup;
class QCheckBox;
class QLabel;
class QPushButton;
class QTabWidget;
class QVBoxLayout;

namespace lorvane {

class ChoiceGroup;
class SwatchButton;
class WavePreview;

class SettingsView final : public QWidget {
    Q_OBJECT
public:
    SettingsView(OverlayPreferences& preferences, VisualizerModel& visualizerModel,
                 PlaybackStatus& playbackStatus, SettingsActions actions, bool launchAtLoginEnabled,
                 QString versionText, QWidget* parent = nullptr);
    ~SettingsView() override;

    static constexpr const char* homePage = "https://github.com/tarnhollow/lorvane";
    static constexpr const char* bugReports = "https://github.com/tarnhollow/lorvane/issues";
    static constexpr const char* licenseName = "GPL-3.0-or-later";
    // The licence text compiled into the program.
    static QString licenseText();

    SettingsTab selectedTab() const;
    void setSelectedTab(SettingsTab tab);
    bool launchAtLoginEnabled() const { return launchAtLoginEnabled_; }
    QTabWidget* tabs() const { return tabs_; }
    QWidget* page(SettingsTab tab) const;
    WavePreview* preview() const { return preview_; }

    // The status row's symbol for a capture status.
    static Symbol statusSymbol(AudioCaptureStatus status);
    Symbol shownStatusSymbol() const { return shownStatusSymbol_.value_or(Symbol::waveformCircle); }
    // Audio-row refreshes done so far (the row is refreshed only while the window is visible).
    long long audioRowRefreshes() const { return audioRowRefreshes_; }
    // How often the widgets showing one preference were updated (each change touches only its own).
    long long preferenceUpdates(PreferenceKey key) const { return preferenceUpdates_[caseIndex(key)]; }

    // What other parts of the program report, shown where the user looks for it. Empty text hides
    // the line.
    void setCaptureFailureReason(const QString& reason);
    // Without a tray host there is no menu to quit from: the General tab then says so and offers
    // "Quit Lorvane".
    void setTrayHostPresent(bool present);
    void setAutostartWarning(const QString& warning);
    void setSettingsNotSavedNotice(const QString& notice);
    // The login item's real state, when it changed outside this window.
    void showLaunchAtLogin(bool enabled);
    // The place under "Monitored Players" for the section about players beyond the known four.
    QVBoxLayout* otherPlayersSlot() const { return otherPlayersSlot_; }
    // "Quit Lorvane" calls this (the application's quit by default).
    void setQuitHandler(std::function<void()> quit) { quit_ = std::move(quit); }

protected:
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    // The model's reason for the last capture failure, in plain words, beside the audio status.
    void showCaptureFailureReason();
    QWidget* makeDisplayTab();
    QWidget* makePlayersTab();
    QWidget* makeAudioTab();
    QWidget* makeGeneralTab();
    QWidget* makePalettePicker();
    QWidget* makePlayerRow(MusicPlayer player);
    void showLicense();
    void applyIcons();

    void showPreference(PreferenceKey key);
    void refreshRetry();
    void refreshAudioRow();
    SettingContext settingContext() const;

    OverlayPreferences& preferences_;
    VisualizerModel& visualizerModel_;
    PlaybackStatus& playbackStatus_;
    SettingsActions actions_;
    bool launchAtLoginEnabled_;
    QString versionText_;
    std::function<void()> quit_;

    QTabWidget* tabs_ = nullptr;
    WavePreview* preview_ = nullptr;
    QCheckBox* showWaveform_ = nullptr;
    QCheckBox* autoShow_ = nullptr;
    QCheckBox* avoidCovering_ = nullptr;
    ChoiceGroup* displayMode_ = nullptr;
    ChoiceGroup* position_ = nullptr;
    QButtonGroup* swatchGroup_ = nullptr;
    std::map<WaveColor, SwatchButton*> swatches_;
    std::array<QCheckBox*, caseCount<MusicPlayer>()> playerToggles_{};
    std::array<QLabel*, caseCount<MusicPlayer>()> playerIcons_{};
    QVBoxLayout* otherPlayersSlot_ = nullptr;
    QCheckBox* audioResponsive_ = nullptr;
    QLabel* statusIcon_ = nullptr;
    QLabel* statusText_ = nullptr;
    QLabel* captureFailure_ = nullptr;
    QPushButton* retry_ = nullptr;
    QPushButton* permissions_ = nullptr;
    QCheckBox* launchAtLogin_ = nullptr;
    ChoiceGroup* renderer_ = nullptr;
    QLabel* autostartWarning_ = nullptr;
    QLabel* notSaved_ = nullptr;
    QLabel* noTrayHost_ = nullptr;
    QPushButton* quitButton_ = nullptr;
    QPushButton* licenseButton_ = nullptr;
    QLabel* aboutIcon_ = nullptr;
    std::optional<Symbol> shownStatusSymbol_;
    long long audioRowRefreshes_ = 0;

    std::array<long long, caseCount<PreferenceKey>()> preferenceUpdates_{};
    Signal<PreferenceKey>::Id preferencesObserver_ = 0;
    Signal<VisualizerModelKey>::Id modelObserver_ = 0;
    Signal<PlaybackStatusKey>::Id playbackObserver_ = 0;
};

}  // namespace lorvane
