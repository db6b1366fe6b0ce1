#pragma once
// One colour of the palette: a rounded swatch with the scheme's gradient above its name. The outline
// marks the selected colour.

#include <QAbstractButton>

#include "core/WaveColor.h"

namespace lorvane {

class SwatchButton final : public QAbstractButton {
    Q_OBJECT
public:
    static constexpr int swatchHeight = 24;
    static constexpr qreal cornerRadius = 5;

    explicit SwatchButton(WaveColor color, QWidget* parent = nullptr);

    WaveColor color() const { return color_; }
    bool isSelected() const { return selected_; }
    void setSelected(bool selected);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    WaveColor color_;
    bool selected_ = false;
};

}  // namespace lorvane
