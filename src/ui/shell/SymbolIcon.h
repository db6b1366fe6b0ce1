#pragma once
// Small line symbols drawn in one colour, so the settings window looks the same under every icon
// theme (and under none).

#include <QColor>
#include <QIcon>
#include <QPixmap>

namespace lorvane {

enum class Symbol {
    waveform,
    musicNote,
    musicNoteList,
    waveformCircle,
    waveformCircleFill,
    radioWaves,
    speakerWave,
    gear,
    exclamationShield,
    speakerSlashCircle,
    arrowClockwise,
    lockShield,
};

QPixmap paintSymbol(Symbol symbol, int size, const QColor& color, qreal devicePixelRatio = 1.0);
// The symbol in the palette's text colour, for buttons and tabs.
QIcon symbolIcon(Symbol symbol, const QColor& color);

}  // namespace lorvane
