#include "ui/shell/SymbolIcon.h"

#include <QPainter>
#include <QPainterPath>
#include <cmath>

namespace lorvane {

namespace {

// Everything is drawn on a 24 × 24 grid and scaled.
void bars(QPainter& p, QPointF center, qreal scale, std::initializer_list<qreal> heights) {
    const qreal pitch = 2.6 * scale;
    qreal x = center.x() - pitch * (static_cast<qreal>(heights.size()) - 1) / 2;
    for (qreal h : heights) {
        p.drawLine(QPointF(x, center.y() - h * scale / 2), QPointF(x, center.y() + h * scale / 2));
        x += pitch;
    }
}

QPainterPath shield() {
    QPainterPath path;
    path.moveTo(12, 2.5);
    path.lineTo(20, 5.5);
    path.cubicTo(20, 13, 17, 18.5, 12, 21.5);
    path.cubicTo(7, 18.5, 4, 13, 4, 5.5);
    path.closeSubpath();
    return path;
}

void note(QPainter& p, QPointF head, qreal stem) {
    p.save();
    p.setBrush(p.pen().color());
    p.drawEllipse(head, 2.6, 2.1);
    p.restore();
    const QPointF top(head.x() + 2.4, head.y() - stem);
    p.drawLine(QPointF(head.x() + 2.4, head.y()), top);
    p.drawLine(top, QPointF(top.x() + 4.5, top.y() + 2));
}

void draw(QPainter& p, Symbol symbol, const QColor& color) {
    QPen pen(color, 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(pen);
    p.setBrush(Qt::NoBrush);
    switch (symbol) {
        case Symbol::waveform:
            bars(p, {12, 12}, 1.0, {5, 11, 17, 9, 14, 7, 4});
            break;
        case Symbol::musicNote:
            note(p, {9, 17}, 12);
            break;
        case Symbol::musicNoteList:
            p.drawLine(QPointF(3, 6), QPointF(13, 6));
            p.drawLine(QPointF(3, 11), QPointF(13, 11));
            p.drawLine(QPointF(3, 16), QPointF(9, 16));
            note(p, {15.5, 18}, 11);
            break;
        case Symbol::waveformCircle:
            p.drawEllipse(QPointF(12, 12), 9.5, 9.5);
            p.setPen(QPen(color, 1.6, Qt::SolidLine, Qt::RoundCap));
            bars(p, {12, 12}, 0.62, {5, 11, 16, 9, 5});
            break;
        case Symbol::waveformCircleFill:
            p.setBrush(color);
            p.drawEllipse(QPointF(12, 12), 10, 10);
            p.setPen(QPen(Qt::white, 1.6, Qt::SolidLine, Qt::RoundCap));
            bars(p, {12, 12}, 0.62, {5, 11, 16, 9, 5});
            break;
        case Symbol::radioWaves:
            p.setBrush(color);
            p.drawEllipse(QPointF(12, 12), 2.2, 2.2);
            p.setBrush(Qt::NoBrush);
            for (qreal r : {6.0, 10.0}) {
                p.drawArc(QRectF(12 - r, 12 - r, 2 * r, 2 * r), -40 * 16, 80 * 16);
                p.drawArc(QRectF(12 - r, 12 - r, 2 * r, 2 * r), 140 * 16, 80 * 16);
            }
            break;
        case Symbol::speakerWave: {
            QPainterPath speaker;
            speaker.moveTo(3, 9);
            speaker.lineTo(7, 9);
            speaker.lineTo(12, 4.5);
            speaker.lineTo(12, 19.5);
            speaker.lineTo(7, 15);
            speaker.lineTo(3, 15);
            speaker.closeSubpath();
            p.drawPath(speaker);
            p.drawArc(QRectF(10, 8, 8, 8), -50 * 16, 100 * 16);
            p.drawArc(QRectF(8.5, 4.5, 13, 15), -50 * 16, 100 * 16);
            break;
        }
        case Symbol::gear: {
            QPainterPath gear;
            constexpr int teeth = 8;
            for (int i = 0; i < teeth * 2; ++i) {
                const qreal angle = i * M_PI / teeth;
                const qreal r = (i % 2 == 0) ? 9.5 : 7.2;
                const QPointF point(12 + r * std::cos(angle), 12 + r * std::sin(angle));
                if (i == 0) {
                    gear.moveTo(point);
                } else {
                    gear.lineTo(point);
                }
            }
            gear.closeSubpath();
            p.drawPath(gear);
            p.drawEllipse(QPointF(12, 12), 3, 3);
            break;
        }
        case Symbol::exclamationShield:
            p.setBrush(color);
            p.drawPath(shield());
            p.setPen(QPen(Qt::white, 2, Qt::SolidLine, Qt::RoundCap));
            p.drawLine(QPointF(12, 7.5), QPointF(12, 13));
            p.drawPoint(QPointF(12, 16.5));
            break;
        case Symbol::speakerSlashCircle: {
            p.setBrush(color);
            p.drawEllipse(QPointF(12, 12), 10, 10);
            p.setPen(QPen(Qt::white, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
            p.setBrush(Qt::white);
            QPainterPath speaker;
            speaker.moveTo(6.5, 10);
            speaker.lineTo(9, 10);
            speaker.lineTo(12.5, 7);
            speaker.lineTo(12.5, 17);
            speaker.lineTo(9, 14);
            speaker.lineTo(6.5, 14);
            speaker.closeSubpath();
            p.drawPath(speaker);
            p.drawLine(QPointF(6, 6), QPointF(18, 18));
            break;
        }
        case Symbol::arrowClockwise: {
            p.drawArc(QRectF(4, 4, 16, 16), 60 * 16, -300 * 16);
            const QPointF tip(12 + 8 * std::cos(M_PI / 3), 12 - 8 * std::sin(M_PI / 3));
            p.drawLine(tip, tip + QPointF(-4.2, -0.8));
            p.drawLine(tip, tip + QPointF(0.6, 4.2));
            break;
        }
        case Symbol::lockShield:
            p.drawPath(shield());
            p.setBrush(color);
            p.drawRoundedRect(QRectF(8.5, 11, 7, 5.5), 1, 1);
            p.setBrush(Qt::NoBrush);
            p.drawArc(QRectF(9.5, 7.5, 5, 7), 0, 180 * 16);
            break;
    }
}

}  // namespace

QPixmap paintSymbol(Symbol symbol, int size, const QColor& color, qreal devicePixelRatio) {
    QPixmap pixmap(QSize(size, size) * devicePixelRatio);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(size / 24.0, size / 24.0);
    draw(painter, symbol, color);
    return pixmap;
}

QIcon symbolIcon(Symbol symbol, const QColor& color) {
    QIcon icon;
    for (int size : {16, 24, 32, 48}) icon.addPixmap(paintSymbol(symbol, size, color));
    return icon;
}

const char* themeIconName(Symbol symbol) {
    switch (symbol) {
        case Symbol::waveform:
            return "view-media-visualization";
        case Symbol::musicNote:
            return "audio-x-generic";
        case Symbol::musicNoteList:
            return "view-media-playlist";
        case Symbol::waveformCircle:
            return "audio-card";
        case Symbol::waveformCircleFill:
            return "audio-volume-high";
        case Symbol::radioWaves:
            return "applications-multimedia";
        case Symbol::speakerWave:
            return "audio-speakers";
        case Symbol::gear:
            return "preferences-system";
        case Symbol::exclamationShield:
            return "dialog-warning";
        case Symbol::speakerSlashCircle:
            return "audio-volume-muted";
        case Symbol::arrowClockwise:
            return "view-refresh";
        case Symbol::lockShield:
            return "preferences-system-privacy";
    }
    return "";
}

QIcon themedIcon(Symbol symbol, const QColor& color) {
    return QIcon::fromTheme(QString::fromLatin1(themeIconName(symbol)), symbolIcon(symbol, color));
}

}  // namespace lorvane
