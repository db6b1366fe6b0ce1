#include "ui/shell/WaveformIcon.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <array>

#include "core/WaveColor.h"

namespace lorvane {

namespace {

// Relative bar heights of the glyph, left to right.
constexpr std::array<double, 7> barHeights{0.30, 0.62, 0.92, 0.54, 0.80, 0.44, 0.24};

QColor toQColor(const RgbaColor& color) { return QColor::fromRgbF(color.red, color.green, color.blue, color.alpha); }

void paintBars(QPainter& painter, const QRectF& area, const QBrush& brush) {
    const int count = static_cast<int>(barHeights.size());
    const double pitch = area.width() / count;
    const double barWidth = pitch * 0.62;
    painter.setPen(Qt::NoPen);
    painter.setBrush(brush);
    for (int i = 0; i < count; ++i) {
        const double height = std::max(barWidth, area.height() * barHeights[static_cast<std::size_t>(i)]);
        const QRectF bar(area.left() + i * pitch + (pitch - barWidth) / 2, area.center().y() - height / 2, barWidth,
                         height);
        painter.drawRoundedRect(bar, barWidth / 2, barWidth / 2);
    }
}

QLinearGradient auroraGradient(const QRectF& area) {
    QLinearGradient gradient(area.topLeft(), area.topRight());
    const auto stops = colors(WaveColor::aurora);
    for (std::size_t i = 0; i < stops.size(); ++i) {
        gradient.setColorAt(static_cast<double>(i) / static_cast<double>(stops.size() - 1), toQColor(stops[i]));
    }
    return gradient;
}

QIcon iconFrom(QImage (*paint)(int)) {
    QIcon icon;
    for (int size : {16, 22, 24, 32, 48, 64, 128, 256}) icon.addPixmap(QPixmap::fromImage(paint(size)));
    return icon;
}

}  // namespace

QImage paintWaveformGlyph(int size) {
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const double margin = size * 0.08;
    const QRectF area(margin, margin, size - 2 * margin, size - 2 * margin);
    paintBars(painter, area, auroraGradient(area));
    return image;
}

QImage paintApplicationIcon(int size) {
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const double inset = size * 0.06;
    const QRectF tile(inset, inset, size - 2 * inset, size - 2 * inset);
    QLinearGradient background(tile.topLeft(), tile.bottomRight());
    const auto stops = colors(WaveColor::aurora);
    background.setColorAt(0, toQColor(stops[0]).darker(180));
    background.setColorAt(1, toQColor(stops[2]).darker(160));
    painter.setPen(Qt::NoPen);
    painter.setBrush(background);
    painter.drawRoundedRect(tile, tile.width() * 0.22, tile.height() * 0.22);
    const double margin = tile.width() * 0.2;
    paintBars(painter, tile.adjusted(margin, margin, -margin, -margin), QBrush(QColor(250, 250, 250)));
    return image;
}

QIcon waveformTrayIcon() {
    static const QIcon fallback = iconFrom(&paintWaveformGlyph);
    return QIcon::fromTheme(QStringLiteral("lorvane-waveform"), fallback);
}

QIcon applicationIcon() {
    static const QIcon fallback = iconFrom(&paintApplicationIcon);
    return QIcon::fromTheme(QStringLiteral("lorvane"), fallback);
}

}  // namespace lorvane
