// lorvane-screenshots: draws the README's and the metainfo's pictures with the program's own
// offscreen renderer: the band over a dark desktop, and the fog. Usage: lorvane-screenshots DIR
// (needs an X display with OpenGL, e.g. under xvfb-run).
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <cmath>
#include <cstdio>
#include <memory>

#include "core/KeyValueStore.h"
#include "core/OverlayPreferences.h"
#include "core/VisualizerModel.h"
#include "core/render/VisualizerView.h"
#include "ui/OffscreenWaveRenderer.h"
#include "ui/VisualizerPainter.h"

using namespace lorvane;

namespace {

constexpr double fixedTime = 700000000.25;  // the same moment every time, so the pictures do not change

QImage picture(OffscreenWaveRenderer& renderer, OverlayDisplayMode mode, WaveColor color, SizeF size,
               const RgbaColor& background) {
    auto store = std::make_shared<MemoryKeyValueStore>();
    auto preferences = std::make_shared<OverlayPreferences>(store);
    auto model = std::make_shared<VisualizerModel>();
    preferences->setDisplayMode(mode);
    preferences->setColor(color);
    // A loud passage: bass-heavy spectrum, a beat a moment ago.
    std::vector<double> spectrum(96);
    for (int band = 0; band < 96; ++band) {
        spectrum[static_cast<std::size_t>(band)] = 0.9 * std::exp(-band / 45.0) + 0.08 * std::sin(band * 0.7);
    }
    model->updateLiveFrame({0.8, 1.4, 0.5, spectrum});
    const VisualizerView view{preferences, model};
    return renderer.renderView(view, size, 1.0, fixedTime, background);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: lorvane-screenshots DIR\n", stderr);
        return 2;
    }
    QGuiApplication app(argc, argv);
    OffscreenWaveRenderer renderer;
    if (!renderer.isValid()) {
        std::fputs("lorvane-screenshots: no OpenGL for the offscreen renderer\n", stderr);
        return 1;
    }
    const QDir dir(QString::fromLocal8Bit(argv[1]));

    // The band as it sits on a desktop: a transparent panel over a dark wallpaper.
    QImage band(1280, 360, QImage::Format_ARGB32_Premultiplied);
    {
        QPainter painter(&band);
        QLinearGradient wallpaper(0, 0, 1280, 360);
        wallpaper.setColorAt(0, QColor(24, 32, 48));
        wallpaper.setColorAt(1, QColor(48, 30, 60));
        painter.fillRect(band.rect(), wallpaper);
        const QImage panel =
            picture(renderer, OverlayDisplayMode::compact, WaveColor::aurora, {1280, 150}, transparentBackground);
        painter.drawImage(0, 105, panel);
    }
    const QImage fog =
        picture(renderer, OverlayDisplayMode::fullscreenFog, WaveColor::sunset, {1280, 720}, opaqueBackground);
    const bool saved = band.convertToFormat(QImage::Format_RGB32).save(dir.filePath(QStringLiteral("band.png"))) &&
                       fog.convertToFormat(QImage::Format_RGB32).save(dir.filePath(QStringLiteral("fog.png")));
    if (!saved) {
        std::fputs("lorvane-screenshots: cannot write the pictures\n", stderr);
        return 1;
    }
    return 0;
}
