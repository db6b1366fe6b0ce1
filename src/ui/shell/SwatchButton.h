#pragma once
// One colour of the palette: a checkable rounded swatch with the scheme's gradient above its name. A
// ring in the palette's accent colour (or its text colour when the accent would not stand out) marks
// the checked colour; screen readers hear a radio button named after the colour.

#include <QAbstractButton>

#include "core/WaveColor.h"

namespace lorvane {

// WCAG's contrast ratio of two opaque colours (1 to 21).
double contrastRatio(const QColor& a, const QColor& b);

class SwatchButton final : public QAbstractButton {
    Q_OBJECT
public:
    static constexpr qreal cornerRadius = 5;
    // Contrast the ring keeps against the window behind it.
    static constexpr double minimumRingContrast = 3.0;

    explicit SwatchButton(WaveColor color, QWidget* parent = nullptr);

    WaveColor color() const { return color_; }
    bool isSelected() const { return isChecked(); }
    void setSelected(bool selected) { setChecked(selected); }

    // The checked ring's colour in a palette.
    static QColor ringColor(const QPalette& palette);
    // The gradient area inside the ring, in widget coordinates.
    QRectF swatchRect() const;

    QSize sizeHint() const override;
    // Narrower than the hint when space is short: the name is then elided.
    QSize minimumSizeHint() const override;

    // Makes screen readers see swatches as radio buttons; call once before the first swatch is shown.
    static void installAccessibility();

protected:
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    int swatchHeight() const;

    WaveColor color_;
};

}  // namespace lorvane
