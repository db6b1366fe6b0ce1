// Lorvane's entry point. The program takes no arguments: it runs with no main window, owning one
// application controller, and a second start hands over to the running instance.

#include <QApplication>
#include <QDBusConnection>
#include <QWidget>
#include <cstdio>
#include <cstdlib>

#include "Version.h"
#include "app/DesktopApp.h"
#include "app/SingleInstance.h"
#include "app/UnixSignalQuit.h"
#include "platform/wayland/OverlayPathSelection.h"
#include "ui/shell/WaveformIcon.h"

int main(int argc, char* argv[]) {
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        std::fputs("Lorvane needs a graphical desktop session (no DISPLAY or WAYLAND_DISPLAY is set).\n", stderr);
        return EXIT_FAILURE;
    }
    // Picks Qt's platform plugin to match the overlay, so it must run before the application exists.
    const lorvane::OverlayPathChoice overlayPath = lorvane::selectOverlayPath();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Lorvane"));
    QApplication::setApplicationVersion(QStringLiteral(LORVANE_VERSION));
    // Ties the windows to the installed desktop entry (launcher, taskbar icon).
    QGuiApplication::setDesktopFileName(QStringLiteral("lorvane"));
    QApplication::setWindowIcon(lorvane::applicationIcon());
    // Closing the settings window only hides it; the program lives on in the tray.
    QApplication::setQuitOnLastWindowClosed(false);

    lorvane::SingleInstance instance(QDBusConnection::sessionBus());
    switch (instance.claim()) {
        case lorvane::SingleInstance::Outcome::handedOver:
            return EXIT_SUCCESS;
        case lorvane::SingleInstance::Outcome::unreachable:
            std::fputs("Lorvane is already running but does not answer.\n", stderr);
            return EXIT_FAILURE;
        case lorvane::SingleInstance::Outcome::primary:
        case lorvane::SingleInstance::Outcome::noBus:
            break;
    }

    lorvane::UnixSignalQuit signalQuit;
    lorvane::DesktopApp desktop(overlayPath.path);
    lorvane::AppDelegate& delegate = desktop.delegate();
    instance.reopenRequested = [&delegate] {
        bool visibleWindows = false;
        for (const QWidget* window : QApplication::topLevelWidgets()) visibleWindows |= window->isVisible();
        delegate.applicationShouldHandleReopen(visibleWindows);
    };
    QObject::connect(&app, &QCoreApplication::aboutToQuit, [&delegate] { delegate.applicationWillTerminate(); });
    delegate.applicationDidFinishLaunching();
    return app.exec();
}
