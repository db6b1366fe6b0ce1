#include "ui/shell/SwatchButton.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

namespace lorvane {

namespace {

QFont captionFont(const QFont& base) {
    QFont font = base;
    font.setPointSizeF(std::max(7.0, base.pointSizeF() * 0.8));
    return font;
}

}  // namespace

SwatchButton::SwatchButton(WaveColor color, QWidget* parent) : QAbstractButton(parent), color_(color) {
    const QString name = QString::fromUtf8(displayName(color).data(), static_cast<qsizetype>(displayName(color).size()));
    setText(name);
    setToolTip(name);
    setAccessibleName(name);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::TabFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void SwatchButton::setSelected(bool selected) {
    if (selected_ == selected) return;
    selected_ = selected;
    update();
}

QSize SwatchButton::sizeHint() const {
    const QFontMetrics metrics(captionFont(font()));
    return {std::max(64, metrics.horizontalAdvance(text()) + 8), swatchHeight + 4 + metrics.height() + 2};
}

void SwatchButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF swatch(1, 1, width() - 2, swatchHeight);

    QLinearGradient gradient(swatch.topLeft(), swatch.topRight());
    const auto stops = colors(color_);
    for (std::size_t i = 0; i < stops.size(); ++i) {
        const double at = stops.size() < 2 ? 0.0 : static_cast<double>(i) / static_cast<double>(stops.size() - 1);
        gradient.setColorAt(at, QColor::fromRgbF(stops[i].red, stops[i].green, stops[i].blue, stops[i].alpha));
    }
    QPainterPath shape;
    shape.addRoundedRect(swatch, cornerRadius, cornerRadius);
    painter.fillPath(shape, gradient);

    QColor outline = palette().color(QPalette::WindowText);
    qreal lineWidth = 1;
    if (selected_) {
        outline = palette().color(QPalette::Highlight);
        lineWidth = 2;
    } else {
        outline.setAlphaF(0.16);
    }
    painter.setPen(QPen(outline, lineWidth));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(shape);

    if (hasFocus()) {
        QPen focus(palette().color(QPalette::Highlight), 1, Qt::DotLine);
        painter.setPen(focus);
        painter.drawRoundedRect(swatch.adjusted(-1, -1, 1, 1), cornerRadius + 1, cornerRadius + 1);
    }

    painter.setFont(captionFont(font()));
    painter.setPen(palette().color(QPalette::WindowText));
    const QRectF caption(0, swatchHeight + 4, width(), height() - swatchHeight - 4);
    painter.drawText(caption, Qt::AlignHCenter | Qt::AlignTop, text());
}

}  // namespace lorvane
