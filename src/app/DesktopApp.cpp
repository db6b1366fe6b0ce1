#include "app/DesktopApp.h"

#include <QCoreApplication>

#include "Version.h"
#include "core/app/SettingsText.h"
#include "platform/linux/LinuxPlaybackMonitor.h"
#include "platform/linux/PulseCaptureSource.h"
#include "platform/linux/QSettingsStore.h"
#include "platform/wayland/OverlayControllerFactory.h"
#include "ui/shell/SettingsWindow.h"
#include "ui/shell/TrayMenu.h"

namespace lorvane {

void QtApplicationTerminator::terminate() { QCoreApplication::quit(); }

DesktopApp::DesktopApp(OverlayPath overlayPath)
    : loginItem_(QCoreApplication::applicationFilePath()), overlayPath_(overlayPath) {
    AppEnvironment environment;
    environment.defaults = std::make_shared<QSettingsStore>();
    environment.mainQueue = &mainQueue_;
    environment.dates = &dates_;
    environment.loginItem = &loginItem_;
    environment.alerts = &alerts_;
    environment.audioSettings = &soundSettings_;
    environment.application = &terminator_;
    environment.factories = makeFactories();
    delegate_ = std::make_unique<AppDelegate>(std::move(environment));
}

DesktopApp::~DesktopApp() = default;

AppFactories DesktopApp::makeFactories() {
    AppFactories factories;
    factories.makeOverlay = [this](OverlayPreferences& preferences,
                                   VisualizerModel& model) -> std::unique_ptr<OverlayPresenting> {
        return makeOverlayController(overlayPath_, preferences, model, uptime_);
    };
    factories.makeSettingsWindow = [](OverlayPreferences& preferences, VisualizerModel& model,
                                      PlaybackStatus& playbackStatus, SettingsActions actions,
                                      bool launchAtLoginEnabled) -> std::unique_ptr<SettingsWindowPresenting> {
        const QString version = QString::fromStdString(versionText(LORVANE_VERSION, LORVANE_BUILD));
        return std::make_unique<SettingsWindow>(preferences, model, playbackStatus, std::move(actions),
                                                launchAtLoginEnabled, version);
    };
    factories.makeStatusMenu = [](MenuCommandHandler handler) -> std::unique_ptr<StatusMenuPresenting> {
        return std::make_unique<TrayMenu>(std::move(handler));
    };
    factories.makePlaybackMonitor = [this](EnabledPlayersSupplier enabledPlayers,
                                           SnapshotCallback snapshotDidChange) -> std::unique_ptr<PlaybackMonitoring> {
        return makeLinuxPlaybackMonitor(std::move(enabledPlayers), std::move(snapshotDidChange), outputVolume_,
                                        mainQueue_);
    };
    factories.makeAudioLevelMonitor = [this](FrameCallback frameDidChange,
                                             FailureCallback captureDidFail) -> std::unique_ptr<AudioLevelMonitoring> {
        return makePulseAudioLevelMonitor(std::move(frameDidChange), std::move(captureDidFail), mainQueue_, uptime_);
    };
    return factories;
}

}  // namespace lorvane
