// Lorvane's entry point. The program takes no arguments.
#include <QApplication>
#include <QGuiApplication>
#include <cstdio>
#include <cstdlib>

int main(int argc, char* argv[]) {
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        std::fputs("Lorvane needs a graphical desktop session (no DISPLAY or WAYLAND_DISPLAY is set).\n", stderr);
        return EXIT_FAILURE;
    }
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    return app.exec();
}
