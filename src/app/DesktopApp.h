#pragma once
// The whole program on a Linux desktop: the real services, windows and monitors behind the
// application controller. Built once by main() on the GUI thread.

#include <QPointer>
#include <memory>

#include "core/Clock.h"
#include "core/app/AppDelegate.h"
#include "core/app/OverlayPath.h"
#include "platform/linux/PulseOutputVolume.h"
#include "platform/linux/SoundSettingsLauncher.h"
#include "platform/linux/XdgAutostartLoginItem.h"
#include "platform/qt/QtMainQueue.h"
#include "ui/shell/MessageBoxAlert.h"

namespace lorvane {

class QtApplicationTerminator final : public ApplicationTerminating {
public:
    void terminate() override;
};

class QSettingsStore;
class SettingsView;

class DesktopApp {
public:
    struct Options {
        // Start in the tray only, without the settings window (the login entry's way).
        bool background = false;
        // The overlay path chosen at start-up, before the application object existed.
        OverlayPath overlayPath = OverlayPath::x11;
    };

    DesktopApp();
    explicit DesktopApp(Options options);
    ~DesktopApp();

    AppDelegate& delegate() { return *delegate_; }
    // The settings file; its saveProblem() says when changes cannot be saved.
    QSettingsStore& settingsStore() { return *settingsStore_; }
    // Launch at login; developmentBuildWarning() is the line to show while it starts a build-tree program.
    XdgAutostartLoginItem& loginItem() { return loginItem_; }

private:
    AppFactories makeFactories();
    // What the settings window shows of the login entry and the settings file.
    void showLoginEntryWarning();
    void showSettingsSaveProblem();
    void showTrayHost();

    QtMainQueue mainQueue_;
    ReferenceDateClock dates_;
    XdgAutostartLoginItem loginItem_;
    MessageBoxAlert alerts_;
    SoundSettingsLauncher soundSettings_;
    QtApplicationTerminator terminator_;
    SteadyClock uptime_;
    OverlayPath overlayPath_;
    // The one connection to the sound server, shared by the output volume and every capture run.
    std::shared_ptr<PulseConnection> soundServer_;
    PulseOutputVolume outputVolume_;
    std::shared_ptr<QSettingsStore> settingsStore_;
    QPointer<SettingsView> settingsView_;
    std::unique_ptr<AppDelegate> delegate_;
};

}  // namespace lorvane
