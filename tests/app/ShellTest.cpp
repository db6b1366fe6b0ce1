// The tray menu and the settings window as widgets, alone and driven by the controller.

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAction>
#include <QActionGroup>
#include <QCheckBox>
#include <QDir>
#include <QGroupBox>
#include <QFile>
#include <QTemporaryDir>
#include <QImage>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QTimer>
#include <QPushButton>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTabWidget>
#include <set>

#include "app/AppFakes.h"
#include "app/QtTestEnvironment.h"
#include "core/app/SettingsText.h"
#include "ui/shell/MessageBoxAlert.h"
#include "ui/shell/ChoiceGroup.h"
#include "ui/shell/OtherPlayersSection.h"
#include "ui/shell/SettingsView.h"
#include "ui/shell/SettingsWindow.h"
#include "ui/shell/SwatchButton.h"
#include "ui/shell/TrayMenu.h"
#include "ui/shell/WaveformIcon.h"

using namespace lorvane;
using namespace lorvane::test;

namespace {

[[maybe_unused]] auto* const environment = ::testing::AddGlobalTestEnvironment(new QtTestEnvironment);

QStringList menuTitles(const QMenu* menu) {
    QStringList titles;
    for (const QAction* action : menu->actions()) titles << (action->isSeparator() ? QStringLiteral("---") : action->text());
    return titles;
}

QAction* actionTitled(const QMenu* menu, const QString& title) {
    for (QAction* action : menu->actions()) {
        if (action->text() == title) return action;
    }
    return nullptr;
}

// The controller over fakes, but with the real tray menu and settings window.
struct ShellHarness {
    explicit ShellHarness(std::shared_ptr<MemoryKeyValueStore> store = std::make_shared<MemoryKeyValueStore>(),
                          QString version = QString::fromStdString(versionText("1.0", "5")))
        : h(std::move(store), [this, version](AppEnvironment& environment) {
              environment.factories.makeStatusMenu = [this](MenuCommandHandler handler) {
                  auto made = std::make_unique<TrayMenu>(std::move(handler));
                  tray = made.get();
                  return made;
              };
              environment.factories.makeSettingsWindow = [this, version](OverlayPreferences& preferences,
                                                                          VisualizerModel& model,
                                                                          PlaybackStatus& playbackStatus,
                                                                          SettingsActions actions, bool launchAtLogin) {
                  auto made = std::make_unique<SettingsWindow>(preferences, model, playbackStatus, std::move(actions),
                                                               launchAtLogin, version);
                  window = made.get();
                  return made;
              };
          }) {}

    void launch() {
        h.launch();
        drainEvents();
    }
    SettingsView* view() const { return window->view(); }
    template <typename W>
    W* find(SettingsTab tab, const QString& text) const {
        for (W* widget : view()->page(tab)->findChildren<W*>()) {
            if (widget->text() == text) return widget;
        }
        return nullptr;
    }
    QCheckBox* playerToggle(MusicPlayer player) const {
        const QString name = QString::fromUtf8(title(player).data());
        for (QCheckBox* box : view()->page(SettingsTab::players)->findChildren<QCheckBox*>()) {
            if (box->accessibleName() == name) return box;
        }
        return nullptr;
    }
    SwatchButton* swatch(WaveColor color) const {
        for (SwatchButton* button : view()->findChildren<SwatchButton*>()) {
            if (button->color() == color) return button;
        }
        return nullptr;
    }

    TrayMenu* tray = nullptr;
    SettingsWindow* window = nullptr;
    AppHarness h;
};

}  // namespace

// MARK: Tray menu

TEST(TrayMenu, BuildsTheLayoutItemByItem) {
    TrayMenu tray([](MenuCommand, const std::optional<std::string>&) {});
    const QStringList expected{"Music Player: Detecting",
                               "Audio Response: Waiting for Playback",
                               "Open System Audio Permissions...",
                               "---",
                               "Open Settings...",
                               "---",
                               "Show Waveform",
                               "Show Automatically with Music Players",
                               "Keep on Desktop Layer",
                               "React to Volume and Rhythm",
                               "Retry Audio Detection",
                               "Display Mode",
                               "Position",
                               "Color",
                               "---",
                               "Launch at Login",
                               "---",
                               "Quit Lorvane"};
    EXPECT_EQ(menuTitles(tray.menu()), expected);

    QMenu* menu = tray.menu();
    EXPECT_FALSE(actionTitled(menu, "Music Player: Detecting")->isEnabled());
    EXPECT_FALSE(actionTitled(menu, "Audio Response: Waiting for Playback")->isEnabled());
    EXPECT_FALSE(actionTitled(menu, "Open System Audio Permissions...")->isVisible());
    // No shortcut could fire from a tray menu, so none is shown.
    for (const QAction* action : menu->findChildren<QAction*>()) EXPECT_TRUE(action->shortcut().isEmpty());
    EXPECT_TRUE(actionTitled(menu, "Show Waveform")->isCheckable());
    EXPECT_TRUE(actionTitled(menu, "Launch at Login")->isCheckable());
    EXPECT_FALSE(actionTitled(menu, "Open Settings...")->isCheckable());
    EXPECT_FALSE(actionTitled(menu, "Retry Audio Detection")->isCheckable());

    QMenu* modes = actionTitled(menu, "Display Mode")->menu();
    ASSERT_TRUE(modes);
    EXPECT_EQ(menuTitles(modes), (QStringList{"Standard Waveform", "Fullscreen Fog"}));
    QMenu* positions = actionTitled(menu, "Position")->menu();
    ASSERT_TRUE(positions);
    EXPECT_EQ(menuTitles(positions), (QStringList{"Top of Screen", "Center of Screen", "Bottom of Screen"}));
    EXPECT_EQ(tray.action(MenuItemKey::position), positions->menuAction());

    QMenu* colors = actionTitled(menu, "Color")->menu();
    ASSERT_TRUE(colors);
    EXPECT_EQ(menuTitles(colors),
              (QStringList{"Black", "White", "Cyan", "Pink", "Blue", "Purple", "Green", "Orange", "Yellow", "---",
                           "Aurora", "Ocean", "Sunset", "Neon", "---", "Candy Pop", "Lime Pulse", "Mint Grape",
                           "Coral Sky"}));
    EXPECT_EQ(tray.colorAction(WaveColor::candyPop)->data().toString(), "candyPop");
    EXPECT_TRUE(tray.colorAction(WaveColor::candyPop)->isCheckable());
}

TEST(TrayMenu, TheToolTipSaysWhatIsHappeningInOneLine) {
    TrayMenu tray([](MenuCommand, const std::optional<std::string>&) {});
    EXPECT_EQ(tray.toolTip(), "Lorvane");
    EXPECT_FALSE(waveformTrayIcon().isNull());
    OverlayPreferences preferences(std::make_shared<MemoryKeyValueStore>());
    MenuInputs inputs;
    tray.apply(makeMenuState(inputs, preferences));
    EXPECT_EQ(tray.toolTip(), QString::fromUtf8("Music Player: Not Running \u2014 Audio Analysis: Waiting for Playback"));
    inputs.player = MusicPlayer::spotify;
    inputs.playbackState = MusicPlaybackState::playing;
    inputs.captureStatus = AudioCaptureStatus::live;
    inputs.audioLevel = 0.4;
    tray.apply(makeMenuState(inputs, preferences));
    EXPECT_EQ(tray.toolTip(), QString::fromUtf8("Spotify: Playing \u2014 Audio Analysis: Live"));
    EXPECT_FALSE(tray.toolTip().contains(QLatin1Char('\n')));
    // Without a tray host there is no icon to carry it; the tool tip waits for one.
    if (tray.trayIcon()) {
        EXPECT_EQ(tray.trayIcon()->toolTip(), tray.toolTip());
    }
}

TEST(TrayMenu, ExclusiveChoicesAreRadioGroupsAndColoursCarryTheirSwatch) {
    TrayMenu tray([](MenuCommand, const std::optional<std::string>&) {});
    for (MenuItemKey key : {MenuItemKey::compactMode, MenuItemKey::topPosition, MenuItemKey::centerPosition}) {
        QAction* choice = tray.action(key);
        ASSERT_TRUE(choice && choice->actionGroup());
        EXPECT_TRUE(choice->actionGroup()->isExclusive());
    }
    EXPECT_EQ(tray.action(MenuItemKey::topPosition)->actionGroup(),
              tray.action(MenuItemKey::bottomPosition)->actionGroup());
    EXPECT_NE(tray.action(MenuItemKey::topPosition)->actionGroup(),
              tray.action(MenuItemKey::compactMode)->actionGroup());
    EXPECT_FALSE(tray.action(MenuItemKey::overlayEnabled)->actionGroup());
    QActionGroup* colours = tray.colorAction(WaveColor::black)->actionGroup();
    ASSERT_TRUE(colours);
    for (WaveColor color : allCases<WaveColor>()) {
        QAction* item = tray.colorAction(color);
        EXPECT_EQ(item->actionGroup(), colours) << rawValue(color);
        ASSERT_FALSE(item->icon().isNull()) << rawValue(color);
        // The swatch shows the colour's own colours, left to right (a quarter of the way along here).
        const QImage swatch = item->icon().pixmap(16, 16).toImage();
        const QColor shown = swatch.pixelColor(4, 8);
        const RgbaColor expected = colorAt(color, 0.25);
        EXPECT_NEAR(shown.redF(), expected.red, 0.12) << rawValue(color);
        EXPECT_NEAR(shown.greenF(), expected.green, 0.12) << rawValue(color);
        EXPECT_NEAR(shown.blueF(), expected.blue, 0.12) << rawValue(color);
    }

    // Exactly one choice of each group is checked.
    OverlayPreferences preferences(std::make_shared<MemoryKeyValueStore>());
    preferences.setColor(WaveColor::neon);
    preferences.setPosition(OverlayPosition::bottom);
    tray.apply(makeMenuState({}, preferences));
    int checkedColours = 0;
    for (QAction* item : colours->actions()) checkedColours += item->isChecked() ? 1 : 0;
    EXPECT_EQ(checkedColours, 1);
    EXPECT_TRUE(tray.colorAction(WaveColor::neon)->isChecked());
    EXPECT_TRUE(tray.action(MenuItemKey::bottomPosition)->isChecked());
    EXPECT_FALSE(tray.action(MenuItemKey::centerPosition)->isChecked());
    preferences.setColor(WaveColor::coralSky);
    tray.apply(makeMenuState({}, preferences));
    EXPECT_TRUE(tray.colorAction(WaveColor::coralSky)->isChecked());
    EXPECT_FALSE(tray.colorAction(WaveColor::neon)->isChecked());
}

TEST(TrayMenu, ItemsSendTheirCommandAndColourItemsTheirRawValue) {
    std::vector<std::pair<MenuCommand, std::optional<std::string>>> sent;
    TrayMenu tray([&](MenuCommand command, const std::optional<std::string>& represented) {
        sent.emplace_back(command, represented);
    });
    actionTitled(tray.menu(), "Quit Lorvane")->trigger();
    tray.colorAction(WaveColor::limePulse)->trigger();
    tray.action(MenuItemKey::bottomPosition)->trigger();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0].first, MenuCommand::quitApplication);
    EXPECT_FALSE(sent[0].second);
    EXPECT_EQ(sent[1].first, MenuCommand::selectWaveColor);
    EXPECT_EQ(sent[1].second, "limePulse");
    EXPECT_EQ(sent[2].first, MenuCommand::selectBottomPosition);
}

TEST(TrayMenu, ARefreshTouchesOnlyItemsWhoseValueDiffers) {
    TrayMenu tray([](MenuCommand, const std::optional<std::string>&) {});
    OverlayPreferences preferences(std::make_shared<MemoryKeyValueStore>());
    MenuInputs inputs;
    inputs.captureStatus = AudioCaptureStatus::live;
    inputs.audioLevel = 0.2;
    inputs.playbackState = MusicPlaybackState::playing;
    inputs.player = MusicPlayer::spotify;
    tray.apply(makeMenuState(inputs, preferences));
    EXPECT_EQ(tray.action(MenuItemKey::audioStatus)->text(), "Audio Analysis: Live 20%");
    EXPECT_EQ(tray.action(MenuItemKey::playbackStatus)->text(), "Spotify: Playing");

    std::vector<std::unique_ptr<QSignalSpy>> spies;
    for (QAction* action : tray.menu()->findChildren<QAction*>()) {
        spies.push_back(std::make_unique<QSignalSpy>(action, &QAction::changed));
    }
    const int before = tray.appliedChanges();
    tray.apply(makeMenuState(inputs, preferences));
    EXPECT_EQ(tray.appliedChanges(), before);
    int changed = 0;
    for (const auto& spy : spies) changed += static_cast<int>(spy->count());
    EXPECT_EQ(changed, 0);

    // The next audio frame changes one title and nothing else.
    inputs.audioLevel = 0.21;
    tray.apply(makeMenuState(inputs, preferences));
    EXPECT_EQ(tray.appliedChanges(), before + 1);
    changed = 0;
    for (const auto& spy : spies) changed += static_cast<int>(spy->count());
    EXPECT_EQ(changed, 1);
}

TEST(TrayMenu, FullscreenFogDisablesPositionWhileItsChecksStay) {
    ShellHarness s;
    s.launch();
    s.h.app->perform(MenuCommand::selectTopPosition);
    s.h.app->perform(MenuCommand::selectFullscreenMode);
    EXPECT_FALSE(s.tray->action(MenuItemKey::position)->isEnabled());
    EXPECT_TRUE(s.tray->action(MenuItemKey::topPosition)->isChecked());
    EXPECT_FALSE(s.tray->action(MenuItemKey::centerPosition)->isChecked());
    EXPECT_TRUE(s.tray->action(MenuItemKey::fullscreenMode)->isChecked());
    EXPECT_FALSE(s.tray->action(MenuItemKey::compactMode)->isChecked());
    s.tray->action(MenuItemKey::compactMode)->trigger();
    EXPECT_TRUE(s.tray->action(MenuItemKey::position)->isEnabled());
}

TEST(TrayMenu, ClickingAToggleLeavesTheCheckTheControllerDecides) {
    ShellHarness s;
    s.launch();
    QAction* showWaveform = s.tray->action(MenuItemKey::overlayEnabled);
    ASSERT_TRUE(showWaveform->isChecked());
    showWaveform->trigger();
    EXPECT_FALSE(s.h.app->preferences().overlayEnabled());
    EXPECT_FALSE(showWaveform->isChecked());
    // A refused login item leaves its item unchecked although the click toggled it.
    s.h.loginItem.error = "read-only file system";
    QAction* launchAtLogin = s.tray->action(MenuItemKey::launchAtLogin);
    launchAtLogin->trigger();
    EXPECT_FALSE(launchAtLogin->isChecked());
    EXPECT_EQ(s.h.alerts.shown.size(), 1u);
}

TEST(TrayMenu, PlaybackAndCaptureShowInTheStatusLines) {
    ShellHarness s;
    s.launch();
    EXPECT_EQ(s.tray->action(MenuItemKey::playbackStatus)->text(), "Music Player: Not Running");
    EXPECT_EQ(s.tray->action(MenuItemKey::audioStatus)->text(), "Audio Analysis: Waiting for Playback");
    EXPECT_FALSE(s.tray->action(MenuItemKey::retryAudio)->isEnabled());
    s.h.play(MusicPlayer::spotify);
    EXPECT_EQ(s.tray->action(MenuItemKey::playbackStatus)->text(), "Spotify: Playing");
    EXPECT_TRUE(s.tray->action(MenuItemKey::retryAudio)->isEnabled());
    s.h.lastRun()->captureDidFail(AudioCaptureFailure::permissionRequired);
    EXPECT_EQ(s.tray->action(MenuItemKey::audioStatus)->text(), "Audio Analysis: System Audio Permission Required");
    EXPECT_TRUE(s.tray->action(MenuItemKey::audioPermission)->isVisible());
    s.h.snapshot(MusicPlayer::spotify, MusicPlaybackState::permissionDenied);
    EXPECT_EQ(s.tray->action(MenuItemKey::playbackStatus)->text(), "Spotify: Automation Permission Required");
    EXPECT_FALSE(s.tray->action(MenuItemKey::retryAudio)->isEnabled());
}

// MARK: Settings window

TEST(SettingsWindow, TitleSizesAndTabs) {
    ShellHarness s;
    s.launch();
    EXPECT_EQ(s.window->windowTitle(), "Lorvane Settings");
    EXPECT_EQ(s.window->size(), QSize(620, 470));
    EXPECT_EQ(s.window->minimumSize(), QSize(560, 430));
    QTabWidget* tabs = s.view()->tabs();
    ASSERT_EQ(tabs->count(), 4);
    EXPECT_EQ(tabs->tabText(0), "Waveform");
    EXPECT_EQ(tabs->tabText(1), "Players");
    EXPECT_EQ(tabs->tabText(2), "Audio");
    EXPECT_EQ(tabs->tabText(3), "General");
    EXPECT_EQ(s.view()->selectedTab(), SettingsTab::display);
}

TEST(SettingsWindow, OpensOnceAtLaunchAndAgainOnReopen) {
    ShellHarness s;
    s.h.app->applicationDidFinishLaunching();
    EXPECT_FALSE(s.window->isVisible());
    s.h.queue.runPending();
    EXPECT_TRUE(s.window->isVisible());
    s.window->close();
    EXPECT_FALSE(s.window->isVisible());
    s.h.app->applicationShouldHandleReopen(false);
    EXPECT_TRUE(s.window->isVisible());
}

TEST(SettingsWindow, TheSelectedTabSurvivesClosing) {
    ShellHarness s;
    s.launch();
    s.view()->tabs()->setCurrentIndex(2);
    SettingsWindow* before = s.window;
    s.window->close();
    s.h.app->openSettingsWindow();
    EXPECT_EQ(s.window, before);
    EXPECT_TRUE(s.window->isVisible());
    EXPECT_EQ(s.view()->selectedTab(), SettingsTab::audio);
}

TEST(SettingsWindow, DisplayTogglesReadAndWriteThroughTheController) {
    ShellHarness s;
    s.launch();
    auto* showWaveform = s.find<QCheckBox>(SettingsTab::display, "Show Waveform");
    auto* autoShow = s.find<QCheckBox>(SettingsTab::display, "Show Automatically with Music Players");
    auto* avoid = s.find<QCheckBox>(SettingsTab::display, "Keep on Desktop Layer (Behind Apps and Widgets)");
    ASSERT_TRUE(showWaveform && autoShow && avoid);
    EXPECT_TRUE(showWaveform->isChecked());
    EXPECT_TRUE(avoid->isChecked());

    s.h.play();
    ASSERT_TRUE(s.h.app->hasAudioLevelMonitor());
    showWaveform->click();
    // The same effects as the menu: capture stops, the model pauses, the menu check clears.
    EXPECT_FALSE(s.h.app->preferences().overlayEnabled());
    EXPECT_FALSE(s.h.app->hasAudioLevelMonitor());
    EXPECT_EQ(s.h.app->visualizerModel().captureStatus(), AudioCaptureStatus::waiting);
    EXPECT_FALSE(s.tray->action(MenuItemKey::overlayEnabled)->isChecked());
    EXPECT_FALSE(s.h.overlay->visible);

    avoid->click();
    EXPECT_FALSE(s.h.app->preferences().avoidsCoveringWindows());
    // A change from the menu shows in the window.
    s.tray->action(MenuItemKey::autoShow)->trigger();
    drainEvents();
    EXPECT_FALSE(autoShow->isChecked());
}

TEST(SettingsWindow, PositionPickerIsDisabledInFogButKeepsTheStoredPosition) {
    ShellHarness s;
    s.launch();
    auto pickers = s.view()->findChildren<ChoiceGroup*>();
    ChoiceGroup* mode = nullptr;
    ChoiceGroup* position = nullptr;
    for (ChoiceGroup* picker : pickers) {
        if (picker->accessibleName() == "Display Mode") mode = picker;
        if (picker->accessibleName() == "Position") position = picker;
    }
    ASSERT_TRUE(mode && position);
    EXPECT_EQ(mode->button(0)->text(), "Standard Waveform");
    EXPECT_EQ(mode->button(1)->text(), "Fullscreen Fog");
    EXPECT_EQ(position->button(0)->text(), "Top");
    EXPECT_EQ(position->button(1)->text(), "Center");
    EXPECT_EQ(position->button(2)->text(), "Bottom");
    EXPECT_EQ(position->currentIndex(), 1);

    position->button(2)->click();
    EXPECT_EQ(s.h.app->preferences().position(), OverlayPosition::bottom);
    mode->button(1)->click();
    drainEvents();
    EXPECT_EQ(s.h.app->preferences().displayMode(), OverlayDisplayMode::fullscreenFog);
    EXPECT_FALSE(position->isEnabled());
    EXPECT_EQ(position->currentIndex(), 2);
    EXPECT_TRUE(position->button(2)->isChecked());
    mode->button(0)->click();
    drainEvents();
    EXPECT_TRUE(position->isEnabled());
}

TEST(SettingsWindow, TheDrawingChoiceUnderGeneralReadsAndWritesTheRendererSetting) {
    ShellHarness s;
    s.launch();
    ChoiceGroup* drawing = nullptr;
    for (ChoiceGroup* picker : s.view()->findChildren<ChoiceGroup*>()) {
        if (picker->accessibleName() == "Drawing") drawing = picker;
    }
    ASSERT_TRUE(drawing);
    ASSERT_EQ(drawing->count(), 3);
    EXPECT_EQ(drawing->button(0)->text(), "Automatic");
    EXPECT_EQ(drawing->button(1)->text(), "Processor");
    EXPECT_EQ(drawing->button(2)->text(), "OpenGL");
    EXPECT_EQ(drawing->currentIndex(), 0);

    drawing->button(1)->click();
    drainEvents();
    EXPECT_EQ(s.h.app->preferences().renderer(), RendererChoice::cpu);
    EXPECT_EQ(s.h.store->string(OverlayPreferences::rendererKey), "cpu");

    // A change made elsewhere shows in the group, and only the drawing row is touched.
    const long long colourUpdates = s.view()->preferenceUpdates(PreferenceKey::color);
    s.h.app->preferences().setRenderer(RendererChoice::gl);
    EXPECT_EQ(drawing->currentIndex(), 2);
    EXPECT_TRUE(drawing->button(2)->isChecked());
    EXPECT_EQ(s.view()->preferenceUpdates(PreferenceKey::color), colourUpdates);
}

TEST(SettingsWindow, SwatchesPickTheColourAndMarkTheSelection) {
    ShellHarness s;
    s.launch();
    EXPECT_EQ(s.view()->findChildren<SwatchButton*>().size(), 17);
    EXPECT_TRUE(s.swatch(WaveColor::cyan)->isSelected());
    EXPECT_EQ(s.swatch(WaveColor::neon)->toolTip(), "Neon");
    s.swatch(WaveColor::neon)->click();
    drainEvents();
    EXPECT_EQ(s.h.app->preferences().color(), WaveColor::neon);
    EXPECT_TRUE(s.swatch(WaveColor::neon)->isSelected());
    EXPECT_FALSE(s.swatch(WaveColor::cyan)->isSelected());
    EXPECT_TRUE(s.tray->colorAction(WaveColor::neon)->isChecked());
    // The group titles of the palette.
    for (const char* group : {"Solid Colors", "Gradients", "Contrast"}) {
        EXPECT_TRUE(s.find<QLabel>(SettingsTab::display, group)) << group;
    }
}

TEST(SettingsWindow, PlayerTogglesFollowTheEnabledSet) {
    ShellHarness s;
    s.launch();
    for (MusicPlayer player : allCases<MusicPlayer>()) {
        ASSERT_TRUE(s.playerToggle(player));
        EXPECT_TRUE(s.playerToggle(player)->isChecked());
        EXPECT_TRUE(s.playerToggle(player)->text().isEmpty());
        EXPECT_TRUE(s.find<QLabel>(SettingsTab::players, QString::fromUtf8(title(player).data())));
    }
    s.h.play(MusicPlayer::spotify);
    s.playerToggle(MusicPlayer::spotify)->click();
    drainEvents();
    EXPECT_FALSE(s.h.app->preferences().enabledPlayers().contains(MusicPlayer::spotify));
    EXPECT_FALSE(s.h.overlay->visible);
    EXPECT_FALSE(s.playerToggle(MusicPlayer::spotify)->isChecked());
}

TEST(SettingsWindow, OtherPlayersSectionListsANewlySeenPlayerWithoutARestart) {
    QTemporaryDir data;
    ASSERT_TRUE(QDir(data.path()).mkpath(QStringLiteral("applications")));
    {
        QFile entry(data.filePath(QStringLiteral("applications/org.example.Player.desktop")));
        ASSERT_TRUE(entry.open(QIODevice::WriteOnly));
        entry.write("[Desktop Entry]\nType=Application\nName=Example Player\nIcon=audio-x-generic\n");
    }
    const QByteArray oldDataHome = qgetenv("XDG_DATA_HOME");
    qputenv("XDG_DATA_HOME", data.path().toUtf8());
    ShellHarness s;
    s.launch();
    auto* section = s.view()->page(SettingsTab::players)->findChild<OtherPlayersSection*>();
    ASSERT_TRUE(section);
    EXPECT_EQ(section->rowCount(), 0u);
    EXPECT_TRUE(section->allPlayersSwitch()->isChecked());

    s.h.playback->playerSeen(PlaybackPlayer::other("org.example.Player", "Example"));
    s.h.playback->playerSeen(PlaybackPlayer::other("not.installed", "Not Installed"));
    drainEvents();
    ASSERT_EQ(section->rowCount(), 2u);
    EXPECT_EQ(section->playerTitle("org.example.Player"), QStringLiteral("Example Player"));
    EXPECT_EQ(section->playerTitle("not.installed"), QStringLiteral("not.installed"));
    ASSERT_TRUE(section->playerToggle("org.example.Player"));
    EXPECT_TRUE(section->playerToggle("org.example.Player")->isChecked());

    section->playerToggle("org.example.Player")->click();
    drainEvents();
    EXPECT_FALSE(s.h.app->preferences().otherPlayerEnabled("org.example.Player"));
    EXPECT_FALSE(section->playerToggle("org.example.Player")->isChecked());

    section->allPlayersSwitch()->click();
    drainEvents();
    EXPECT_FALSE(s.h.app->preferences().otherPlayersEnabled());
    EXPECT_FALSE(section->playerToggle("not.installed")->isEnabled());
    if (oldDataHome.isNull()) {
        qunsetenv("XDG_DATA_HOME");
    } else {
        qputenv("XDG_DATA_HOME", oldDataHome);
    }
}

TEST(SettingsWindow, RetryIsDisabledWithoutAudioResponseWhilePermissionsStayUsable) {
    ShellHarness s;
    s.launch();
    auto* react = s.find<QCheckBox>(SettingsTab::audio, "React to Volume and Rhythm");
    auto* retry = s.find<QPushButton>(SettingsTab::audio, "Retry");
    auto* permissions = s.find<QPushButton>(SettingsTab::audio, "System Permissions");
    ASSERT_TRUE(react && retry && permissions);
    // The tray's rule: nothing to retry while nothing plays.
    EXPECT_FALSE(retry->isEnabled());
    EXPECT_EQ(retry->isEnabled(), s.tray->action(MenuItemKey::retryAudio)->isEnabled());
    s.h.play();
    drainEvents();
    EXPECT_TRUE(retry->isEnabled());
    EXPECT_EQ(retry->isEnabled(), s.tray->action(MenuItemKey::retryAudio)->isEnabled());
    react->click();
    drainEvents();
    EXPECT_FALSE(s.h.app->preferences().audioResponsive());
    EXPECT_FALSE(retry->isEnabled());
    EXPECT_EQ(retry->isEnabled(), s.tray->action(MenuItemKey::retryAudio)->isEnabled());
    EXPECT_TRUE(permissions->isEnabled());
    permissions->click();
    EXPECT_EQ(s.h.audioSettings.opened, 1);
}

TEST(SettingsWindow, RetryButtonRetriesCapture) {
    ShellHarness s;
    s.launch();
    s.h.play();
    s.h.lastRun()->captureDidFail(AudioCaptureFailure::permissionRequired);
    s.find<QPushButton>(SettingsTab::audio, "Retry")->click();
    EXPECT_EQ(s.h.runs.size(), 2u);
}

TEST(SettingsWindow, TheAudioStatusRowFollowsTheModel) {
    ShellHarness s;
    s.launch();
    EXPECT_TRUE(s.find<QLabel>(SettingsTab::audio, "Waiting for Playback"));
    s.h.play();
    s.h.lastRun()->frameDidChange({0.125, 1.0, 0.0, std::vector<double>(96, 0.2)});
    drainEvents();
    EXPECT_TRUE(s.find<QLabel>(SettingsTab::audio, QString::fromUtf8("Live Audio and Rhythm \u00B7 13%")));
    EXPECT_EQ(s.view()->shownStatusSymbol(), Symbol::waveformCircleFill);
    s.h.lastRun()->captureDidFail(AudioCaptureFailure::silentOrProtectedAudio);
    drainEvents();
    EXPECT_TRUE(s.find<QLabel>(SettingsTab::audio, "Protected or Muted Audio"));
    EXPECT_EQ(s.view()->shownStatusSymbol(), Symbol::speakerSlashCircle);
    EXPECT_EQ(SettingsView::statusSymbol(AudioCaptureStatus::live), Symbol::waveformCircleFill);
    EXPECT_EQ(SettingsView::statusSymbol(AudioCaptureStatus::waiting), Symbol::waveformCircle);
    EXPECT_EQ(SettingsView::statusSymbol(AudioCaptureStatus::fallback), Symbol::waveformCircle);
    EXPECT_EQ(SettingsView::statusSymbol(AudioCaptureStatus::permissionRequired), Symbol::exclamationShield);
}

TEST(SettingsWindow, ARefusedLoginItemSnapsTheToggleBack) {
    ShellHarness s;
    s.launch();
    auto* toggle = s.find<QCheckBox>(SettingsTab::general, "Launch Lorvane at Login");
    ASSERT_TRUE(toggle);
    EXPECT_FALSE(toggle->isChecked());
    s.h.loginItem.error = "Permission denied";
    toggle->click();
    EXPECT_FALSE(toggle->isChecked());
    EXPECT_FALSE(s.view()->launchAtLoginEnabled());
    ASSERT_EQ(s.h.alerts.shown.size(), 1u);
    EXPECT_EQ(s.h.alerts.shown[0].first, "Unable to Change Login Item Settings");
    s.h.loginItem.error.reset();
    toggle->click();
    EXPECT_TRUE(toggle->isChecked());
    EXPECT_TRUE(s.h.loginItem.enabled);
    // A change from the menu is not mirrored into the open window's toggle.
    s.tray->action(MenuItemKey::launchAtLogin)->trigger();
    drainEvents();
    EXPECT_FALSE(s.h.loginItem.enabled);
    EXPECT_TRUE(toggle->isChecked());
}

TEST(SettingsWindow, TheToggleIsSeededFromTheLoginItem) {
    ShellHarness s;
    s.h.loginItem.enabled = true;
    s.launch();
    EXPECT_TRUE(s.find<QCheckBox>(SettingsTab::general, "Launch Lorvane at Login")->isChecked());
}

TEST(SettingsWindow, VersionLineShowsDashesWhenTheBuildHasNoVersion) {
    ShellHarness s(std::make_shared<MemoryKeyValueStore>(),
                   QString::fromStdString(versionText(std::nullopt, std::nullopt)));
    s.launch();
    EXPECT_TRUE(s.find<QLabel>(SettingsTab::general, "Version - (Build -)"));
    EXPECT_TRUE(s.find<QLabel>(SettingsTab::general, "Lorvane"));
}

TEST(SettingsWindow, ScreenshotsOfTheFourTabsShowTheirKeyTexts) {
    ShellHarness s;
    s.launch();
    const std::map<SettingsTab, QStringList> keyTexts{
        {SettingsTab::display,
         {"Display", "Show Waveform", "Show Automatically with Music Players",
          "Keep on Desktop Layer (Behind Apps and Widgets)", "Appearance", "Display Mode", "Position", "Solid Colors",
          "Gradients", "Contrast", "Cyan", "Coral Sky", "Standard Waveform", "Fullscreen Fog", "Top", "Center",
          "Bottom"}},
        {SettingsTab::players, {"Monitored Players", "Apple Music", "QQ Music", "NetEase Cloud Music", "Spotify"}},
        {SettingsTab::audio,
         {"Audio Response", "React to Volume and Rhythm", "Audio Detection", "Waiting for Playback", "Retry",
          "System Permissions"}},
        {SettingsTab::general, {"Startup", "Launch Lorvane at Login", "About", "Lorvane", "Version 1.0 (Build 5)"}},
    };
    const QString saveTo = qEnvironmentVariable("LORVANE_SCREENSHOT_DIR");
    for (const auto& [tab, texts] : keyTexts) {
        s.view()->setSelectedTab(tab);
        drainEvents();
        const QImage image = s.window->grab().toImage();
        ASSERT_FALSE(image.isNull());
        EXPECT_EQ(image.size(), QSize(620, 470) * image.devicePixelRatio());
        std::set<QRgb> colours;
        for (int y = 0; y < image.height(); y += 7) {
            for (int x = 0; x < image.width(); x += 7) colours.insert(image.pixel(x, y));
        }
        EXPECT_GT(colours.size(), 3u) << rawValue(tab);
        if (!saveTo.isEmpty()) image.save(QDir(saveTo).filePath(QString::fromUtf8(rawValue(tab).data()) + ".png"));

        QStringList shown;
        for (QWidget* widget : s.view()->page(tab)->findChildren<QWidget*>()) {
            if (!widget->isVisibleTo(s.window)) continue;
            if (auto* label = qobject_cast<QLabel*>(widget)) shown << label->text();
            if (auto* button = qobject_cast<QAbstractButton*>(widget)) shown << button->text();
            if (auto* box = qobject_cast<QGroupBox*>(widget)) shown << box->title();
        }
        for (const QString& text : texts) EXPECT_TRUE(shown.contains(text)) << rawValue(tab) << ": " << text.toStdString();
    }
}

// MARK: Login-item alert

TEST(MessageBoxAlert, ShowsOneModalWarningAtATimeWithoutANestedEventLoop) {
    const auto boxes = [] {
        std::vector<QMessageBox*> shown;
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible()) shown.push_back(box);
        }
        return shown;
    };
    MessageBoxAlert alerts;
    // Returns at once: the caller refreshes the tick while the box is up.
    alerts.showWarning("Unable to Change Login Item Settings", "Permission denied");
    ASSERT_EQ(boxes().size(), 1u);
    QMessageBox* box = boxes().front();
    EXPECT_EQ(box->text(), "Unable to Change Login Item Settings");
    EXPECT_EQ(box->informativeText(), "Permission denied");
    EXPECT_EQ(box->icon(), QMessageBox::Warning);
    EXPECT_TRUE(box->isModal());
    // A second warning while the first is shown replaces its text instead of stacking a second box.
    alerts.showWarning("Unable to Change Login Item Settings", "Read-only file system");
    ASSERT_EQ(boxes().size(), 1u);
    EXPECT_EQ(boxes().front(), box);
    EXPECT_EQ(box->informativeText(), "Read-only file system");
    box->accept();
    EXPECT_TRUE(waitUntil([&] { return boxes().empty(); }, std::chrono::seconds(10)));
    alerts.showWarning("Unable to Change Login Item Settings", "Again");
    ASSERT_EQ(boxes().size(), 1u);
    EXPECT_EQ(boxes().front()->informativeText(), "Again");
    boxes().front()->accept();
}
