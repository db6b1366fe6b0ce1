// Lorvane's entry point. The command line is read first, before anything needs a display or a bus;
// then the program runs with no main window, owning one application controller, and a second start
// hands over to the running instance.

#include <QApplication>
#include <QDBusConnection>
#include <QWidget>
#include <cstdio>
#include <cstdlib>

#include "Version.h"
#include "app/CommandLine.h"
#include "app/DesktopApp.h"
#include "app/SingleInstance.h"
#include "app/UnixSignalQuit.h"
#include "platform/wayland/OverlayPathSelection.h"
#include "core/Logging.h"
#include "ui/shell/WaveformIcon.h"

namespace {

QStringList argumentList(int argc, char* argv[]) {
    QStringList arguments;
    for (int i = 0; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);
    return arguments;
}

void print(std::FILE* stream, const QString& text) {
    if (!text.isEmpty()) std::fputs(text.toLocal8Bit().constData(), stream);
}

// --show-settings, --toggle-wave, --quit: a request to the running instance, which needs only the bus.
int sendAction(int argc, char* argv[], lorvane::InstanceAction action) {
    QCoreApplication app(argc, argv);
    lorvane::SingleInstance instance(QDBusConnection::sessionBus());
    switch (instance.send(action)) {
        case lorvane::SingleInstance::Outcome::handedOver:
            return EXIT_SUCCESS;
        case lorvane::SingleInstance::Outcome::notRunning:
            print(stderr, QStringLiteral("Lorvane is not running; start it first (lorvane, or lorvane --background).\n"));
            return EXIT_FAILURE;
        case lorvane::SingleInstance::Outcome::noBus:
            print(stderr, QStringLiteral("Lorvane cannot reach the D-Bus session bus, so it cannot ask the running "
                                         "Lorvane (DBUS_SESSION_BUS_ADDRESS is not usable).\n"));
            return EXIT_FAILURE;
        case lorvane::SingleInstance::Outcome::unreachable:
            print(stderr, instance.unreachableExplanation());
            return EXIT_FAILURE;
        case lorvane::SingleInstance::Outcome::primary:
            break;
    }
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char* argv[]) {
    const lorvane::CommandLine options =
        lorvane::parseCommandLine(argumentList(argc, argv), QStringLiteral(LORVANE_VERSION));
    if (options.exitCode) {
        print(stdout, options.output);
        print(stderr, options.error);
        return *options.exitCode;
    }
    if (options.verbose) lorvane::enableVerboseLogging();
    if (options.action != lorvane::InstanceAction::none) return sendAction(argc, argv, options.action);

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
    QGuiApplication::setDesktopFileName(QString::fromLatin1(lorvane::applicationId));
    QApplication::setWindowIcon(lorvane::applicationIcon());
    // Closing the settings window only hides it; the program lives on in the tray.
    QApplication::setQuitOnLastWindowClosed(false);

    lorvane::SingleInstance instance(QDBusConnection::sessionBus());
    // A start in the background never brings up the running instance's window.
    switch (instance.claim(options.background)) {
        case lorvane::SingleInstance::Outcome::handedOver:
            return EXIT_SUCCESS;
        case lorvane::SingleInstance::Outcome::unreachable:
        case lorvane::SingleInstance::Outcome::notRunning:
            print(stderr, instance.unreachableExplanation());
            return EXIT_FAILURE;
        case lorvane::SingleInstance::Outcome::primary:
        case lorvane::SingleInstance::Outcome::noBus:
            break;
    }

    lorvane::UnixSignalQuit signalQuit;
    lorvane::DesktopApp desktop(lorvane::DesktopApp::Options{options.background, overlayPath.path});
    lorvane::AppDelegate& delegate = desktop.delegate();
    instance.reopenRequested = [&delegate] {
        bool visibleWindows = false;
        for (const QWidget* window : QApplication::topLevelWidgets()) visibleWindows |= window->isVisible();
        delegate.applicationShouldHandleReopen(visibleWindows);
    };
    instance.showSettingsRequested = [&delegate] { delegate.openSettingsWindow(); };
    instance.toggleWaveRequested = [&delegate] { delegate.toggleOverlayEnabled(); };
    instance.quitRequested = [&delegate] { delegate.quitApplication(); };
    QObject::connect(&app, &QCoreApplication::aboutToQuit, [&delegate] { delegate.applicationWillTerminate(); });
    delegate.applicationDidFinishLaunching();
    return app.exec();
}
