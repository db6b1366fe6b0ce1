#pragma once
// Plain geometry in points (device-independent pixels), origin at the top left, y growing downward.

namespace lorvane {

struct PointF {
    double x = 0, y = 0;
    friend bool operator==(const PointF&, const PointF&) = default;
};

struct SizeF {
    double width = 0, height = 0;
    friend bool operator==(const SizeF&, const SizeF&) = default;
};

struct RectF {
    double x = 0, y = 0, width = 0, height = 0;

    double left() const { return x; }
    double top() const { return y; }
    double right() const { return x + width; }
    double bottom() const { return y + height; }
    SizeF size() const { return {width, height}; }
    // Half-open on the far edges, so neighbouring screens never both contain a point.
    bool contains(PointF p) const { return p.x >= x && p.x < right() && p.y >= y && p.y < bottom(); }
    friend bool operator==(const RectF&, const RectF&) = default;
};

}  // namespace lorvane
