#include "app/DesktopApp.h"

#include <QCoreApplication>
#include <QFileInfo>

#include "Version.h"
#include "core/app/SettingsText.h"
#include "platform/linux/LinuxPlaybackMonitor.h"
#include "platform/linux/PulseCaptureSource.h"
#include "platform/linux/QSettingsStore.h"
#include "platform/wayland/OverlayControllerFactory.h"
#include "ui/shell/SettingsView.h"
#include "ui/shell/SettingsWindow.h"
#include "ui/shell/TrayMenu.h"

namespace lorvane {

void QtApplicationTerminator::terminate() { QCoreApplication::quit(); }

namespace {

// A program inside the tree it was built in is a development build, whatever else it is.
bool runsFromBuildTree(const QString& executable) {
#ifdef LORVANE_BUILD_TREE
    const QString tree = QFileInfo(QStringLiteral(LORVANE_BUILD_TREE)).canonicalFilePath();
    const QString program = QFileInfo(executable).canonicalFilePath();
    return !tree.isEmpty() && program.startsWith(tree + QLatin1Char('/'));
#else
    Q_UNUSED(executable);
    return false;
#endif
}

}  // namespace

DesktopApp::DesktopApp() : DesktopApp(Options{}) {}

DesktopApp::DesktopApp(Options options)
    : loginItem_(QCoreApplication::applicationFilePath()),
      soundSettings_(&alerts_),
      overlayPath_(options.overlayPath),
      // A capture backing off because the sound server was gone is retried as soon as it is back.
      soundServer_(std::make_shared<PulseConnection>()),
      outputVolume_(soundServer_, [this] {
          mainQueue_.post([this] {
              if (delegate_) delegate_->soundServerDidAppear();
          });
      }),
      settingsStore_(std::make_shared<QSettingsStore>()) {
    loginItem_.setDevelopmentBuild(runsFromBuildTree(QCoreApplication::applicationFilePath()));
    loginItem_.migrateLegacyEntry();
    AppEnvironment environment;
    environment.defaults = settingsStore_;
    environment.startInBackground = options.background;
    environment.mainQueue = &mainQueue_;
    environment.steadyClock = &uptime_;
    environment.loginItem = &loginItem_;
    environment.alerts = &alerts_;
    environment.audioSettings = &soundSettings_;
    environment.application = &terminator_;
    environment.factories = makeFactories();
    delegate_ = std::make_unique<AppDelegate>(std::move(environment));
    // Without a tray host the settings window is the only way to reach the program: it says so.
    delegate_->trayHost().changed.connect([this] { showTrayHost(); });
    // An entry removed or a program deleted by hand shows in the tick at once.
    loginItem_.watch([this] {
        delegate_->loginItemDidChange();
        if (settingsView_) settingsView_->showLaunchAtLogin(delegate_->launchAtLoginEnabled());
        showLoginEntryWarning();
    });
}

void DesktopApp::showLoginEntryWarning() {
    if (settingsView_) settingsView_->setAutostartWarning(loginItem_.developmentBuildWarning());
}

void DesktopApp::showTrayHost() {
    if (settingsView_ && delegate_) settingsView_->setTrayHostPresent(delegate_->trayHost().available());
}

void DesktopApp::showSettingsSaveProblem() {
    if (!settingsView_) return;
    const std::optional<std::string> problem = settingsStore_->saveProblem();
    settingsView_->setSettingsNotSavedNotice(problem ? QString::fromStdString(*problem) : QString());
}

DesktopApp::~DesktopApp() = default;

AppFactories DesktopApp::makeFactories() {
    AppFactories factories;
    factories.makeOverlay = [this](OverlayPreferences& preferences,
                                   VisualizerModel& model) -> std::unique_ptr<OverlayPresenting> {
        return makeOverlayController(overlayPath_, preferences, model, uptime_);
    };
    factories.makeSettingsWindow = [this](OverlayPreferences& preferences, VisualizerModel& model,
                                          PlaybackStatus& playbackStatus, SettingsActions actions,
                                          bool launchAtLoginEnabled) -> std::unique_ptr<SettingsWindowPresenting> {
        const QString version = QString::fromStdString(versionText(LORVANE_VERSION, LORVANE_BUILD));
        auto window = std::make_unique<SettingsWindow>(preferences, model, playbackStatus, std::move(actions),
                                                       launchAtLoginEnabled, version);
        settingsView_ = window->view();
        showLoginEntryWarning();
        showSettingsSaveProblem();
        showTrayHost();
        settingsStore_->saveProblemDidChange = [this] { showSettingsSaveProblem(); };
        return window;
    };
    factories.makeStatusMenu = [](MenuCommandHandler handler) -> std::unique_ptr<StatusMenuPresenting> {
        return std::make_unique<TrayMenu>(std::move(handler));
    };
    factories.makePlaybackMonitor = [this](EnabledPlayersSupplier enabledPlayers, SnapshotCallback snapshotDidChange,
                                           PlayerSeenCallback playerSeen) -> std::unique_ptr<PlaybackMonitoring> {
        return std::make_unique<LinuxPlaybackMonitor>(
            LinuxPlaybackMonitor::Callbacks{std::move(enabledPlayers), std::move(snapshotDidChange),
                                            std::move(playerSeen)},
            outputVolume_);
    };
    factories.makeAudioLevelMonitor = [this](FrameCallback frameDidChange,
                                             FailureCallback captureDidFail) -> std::unique_ptr<AudioLevelMonitoring> {
        return makePulseAudioLevelMonitor(std::move(frameDidChange), std::move(captureDidFail), mainQueue_, uptime_,
                                          soundServer_);
    };
    return factories;
}

}  // namespace lorvane
