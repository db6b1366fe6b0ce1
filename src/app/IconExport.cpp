// Writes the application and tray icons as PNG files in a hicolor theme layout, for installation.
// Usage: lorvane_icons <directory> <size>...

#include <QDir>
#include <QImage>
#include <QString>
#include <cstdio>
#include <cstdlib>

#include "ui/shell/WaveformIcon.h"

int main(int argc, char* argv[]) {
    if (argc < 3) {
        std::fputs("usage: lorvane_icons <directory> <size>...\n", stderr);
        return EXIT_FAILURE;
    }
    const QString root = QString::fromLocal8Bit(argv[1]) + QStringLiteral("/hicolor");
    for (int i = 2; i < argc; ++i) {
        const int size = std::atoi(argv[i]);
        if (size <= 0) return EXIT_FAILURE;
        const QString folder = root + QStringLiteral("/%1x%1").arg(size);
        if (!QDir().mkpath(folder + QStringLiteral("/apps")) || !QDir().mkpath(folder + QStringLiteral("/status"))) {
            return EXIT_FAILURE;
        }
        if (!lorvane::paintApplicationIcon(size).save(folder + QStringLiteral("/apps/lorvane.png"), "PNG") ||
            !lorvane::paintWaveformGlyph(size).save(folder + QStringLiteral("/status/lorvane-waveform.png"), "PNG")) {
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}
