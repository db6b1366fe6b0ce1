#pragma once
// Small line symbols drawn in one colour: the settings window's icons when the icon theme lacks them
// (or there is no theme).

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
// The icon theme's icon for the symbol's meaning, else the drawn symbol in `color`.
QIcon themedIcon(Symbol symbol, const QColor& color);
// The freedesktop icon name standing for the symbol.
const char* themeIconName(Symbol symbol);

}  // namespace lorvane
