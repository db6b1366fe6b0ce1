#pragma once
// Lorvane's icons, drawn in code: the tray's waveform and the application icon. The installed theme
// icons of the same names win; these are the fallback shipped inside the program.

#include <QIcon>
#include <QImage>

namespace lorvane {

// A row of rounded bars mirrored about the middle, in the aurora colours.
QImage paintWaveformGlyph(int size);
// The glyph in white on a rounded square with the aurora gradient.
QImage paintApplicationIcon(int size);

// Themed "lorvane-waveform" first, else the drawn glyph.
QIcon waveformTrayIcon();
// Themed "lorvane" first, else the drawn application icon.
QIcon applicationIcon();

}  // namespace lorvane
