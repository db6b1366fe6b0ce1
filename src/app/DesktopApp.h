#pragma once
// The whole program on a Linux desktop: the real services, windows and monitors behind the
// application controller. Built once by main() on the GUI thread.

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

class DesktopApp {
public:
    // `overlayPath` is the one chosen at start-up, before the application object existed.
    explicit DesktopApp(OverlayPath overlayPath = OverlayPath::x11);
    ~DesktopApp();

    AppDelegate& delegate() { return *delegate_; }

private:
    AppFactories makeFactories();

    QtMainQueue mainQueue_;
    ReferenceDateClock dates_;
    XdgAutostartLoginItem loginItem_;
    MessageBoxAlert alerts_;
    SoundSettingsLauncher soundSettings_;
    QtApplicationTerminator terminator_;
    SteadyClock uptime_;
    OverlayPath overlayPath_;
    PulseOutputVolume outputVolume_;
    std::unique_ptr<AppDelegate> delegate_;
};

}  // namespace lorvane
