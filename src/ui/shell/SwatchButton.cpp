#include "ui/shell/SwatchButton.h"

#include <QAccessibleWidget>
#include <QEvent>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QStyle>
#include <cmath>

namespace lorvane {

namespace {

QFont captionFont(const QFont& base) {
    QFont font = base;
    font.setPointSizeF(std::max(7.0, base.pointSizeF() * 0.85));
    return font;
}

double luminance(const QColor& colour) {
    auto channel = [](double c) { return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
    const QColor rgb = colour.toRgb();
    return 0.2126 * channel(rgb.redF()) + 0.7152 * channel(rgb.greenF()) + 0.0722 * channel(rgb.blueF());
}

// The ring and its gap around the gradient.
constexpr qreal ringWidth = 2;
constexpr qreal ringGap = 2;

// A swatch is one choice of an exclusive set: a radio button to assistive technology.
class SwatchAccessible final : public QAccessibleWidget {
public:
    explicit SwatchAccessible(SwatchButton* button) : QAccessibleWidget(button, QAccessible::RadioButton) {}

    QAccessible::State state() const override {
        QAccessible::State state = QAccessibleWidget::state();
        state.checkable = true;
        state.checked = button()->isChecked();
        return state;
    }
    QString text(QAccessible::Text t) const override {
        if (t == QAccessible::Name && button()->accessibleName().isEmpty()) return button()->text();
        return QAccessibleWidget::text(t);
    }
    QStringList actionNames() const override {
        return QStringList{pressAction()} + QAccessibleWidget::actionNames();
    }
    void doAction(const QString& name) override {
        if (name == pressAction() || name == toggleAction()) {
            if (button()->isEnabled()) button()->click();
            return;
        }
        QAccessibleWidget::doAction(name);
    }

private:
    SwatchButton* button() const { return static_cast<SwatchButton*>(widget()); }
};

QAccessibleInterface* swatchAccessibleFactory(const QString& className, QObject* object) {
    if (className == QLatin1String("lorvane::SwatchButton") && object && object->isWidgetType()) {
        return new SwatchAccessible(static_cast<SwatchButton*>(object));
    }
    return nullptr;
}

}  // namespace

double contrastRatio(const QColor& a, const QColor& b) {
    const double la = luminance(a), lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

void SwatchButton::installAccessibility() {
    static const bool installed = [] {
        QAccessible::installFactory(swatchAccessibleFactory);
        return true;
    }();
    (void)installed;
}

SwatchButton::SwatchButton(WaveColor color, QWidget* parent) : QAbstractButton(parent), color_(color) {
    installAccessibility();
    const QString name = QString::fromUtf8(displayName(color).data(), static_cast<qsizetype>(displayName(color).size()));
    setText(name);
    setToolTip(name);
    setAccessibleName(name);
    setAccessibleDescription(QStringLiteral("Draws the wave in %1").arg(name));
    setCheckable(true);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QColor SwatchButton::ringColor(const QPalette& palette) {
    const QColor window = palette.color(QPalette::Window);
    const QColor accent = palette.color(QPalette::Highlight);
    if (contrastRatio(accent, window) >= minimumRingContrast) return accent;
    return palette.color(QPalette::WindowText);
}

int SwatchButton::swatchHeight() const { return static_cast<int>(std::lround(fontMetrics().height() * 1.3)); }

QRectF SwatchButton::swatchRect() const {
    const qreal inset = ringWidth + ringGap;
    return {inset, inset, width() - 2 * inset, static_cast<qreal>(swatchHeight())};
}

QSize SwatchButton::sizeHint() const {
    const QFontMetrics caption(captionFont(font()));
    const int spacing = style()->pixelMetric(QStyle::PM_ButtonMargin, nullptr, this) / 2;
    const int inset = static_cast<int>(ringWidth + ringGap);
    const int width = std::max(caption.horizontalAdvance(text()) + 2 * spacing, swatchHeight() * 5 / 2) + 2 * inset;
    return {width, 2 * inset + swatchHeight() + spacing + caption.height()};
}

QSize SwatchButton::minimumSizeHint() const {
    const int inset = static_cast<int>(ringWidth + ringGap);
    return {2 * swatchHeight() + 2 * inset, sizeHint().height()};
}

void SwatchButton::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange) {
        updateGeometry();
        update();
    }
    QAbstractButton::changeEvent(event);
}

void SwatchButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF swatch = swatchRect();

    QLinearGradient gradient(swatch.topLeft(), swatch.topRight());
    const auto stops = colors(color_);
    for (std::size_t i = 0; i < stops.size(); ++i) {
        const double at = stops.size() < 2 ? 0.0 : static_cast<double>(i) / static_cast<double>(stops.size() - 1);
        gradient.setColorAt(at, QColor::fromRgbF(stops[i].red, stops[i].green, stops[i].blue, stops[i].alpha));
    }
    QPainterPath shape;
    shape.addRoundedRect(swatch, cornerRadius, cornerRadius);
    painter.fillPath(shape, gradient);

    // A faint edge, so white and black swatches keep their shape on a window of the same colour.
    QColor edge = palette().color(QPalette::WindowText);
    edge.setAlphaF(0.25);
    painter.setPen(QPen(edge, 1));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(shape);

    if (isChecked() || hasFocus()) {
        const qreal out = ringGap + ringWidth / 2;
        QPen ring(ringColor(palette()), ringWidth, isChecked() ? Qt::SolidLine : Qt::DotLine);
        painter.setPen(ring);
        painter.drawRoundedRect(swatch.adjusted(-out, -out, out, out), cornerRadius + out, cornerRadius + out);
    }
    if (isChecked() && hasFocus()) {
        // Focus on the checked swatch: a dotted line inside the ring's gap.
        QPen focus(palette().color(QPalette::WindowText), 1, Qt::DotLine);
        painter.setPen(focus);
        const qreal in = ringGap / 2;
        painter.drawRoundedRect(swatch.adjusted(-in, -in, in, in), cornerRadius + in, cornerRadius + in);
    }

    painter.setFont(captionFont(font()));
    painter.setPen(palette().color(isEnabled() ? QPalette::Active : QPalette::Disabled, QPalette::WindowText));
    const qreal top = swatch.bottom() + ringGap + ringWidth;
    const QRectF caption(0, top, width(), height() - top);
    const QString shown = QFontMetrics(painter.font()).elidedText(text(), Qt::ElideRight, width());
    painter.drawText(caption, Qt::AlignHCenter | Qt::AlignTop, shown);
}

}  // namespace lorvane
