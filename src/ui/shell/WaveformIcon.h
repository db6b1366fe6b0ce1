#pragma once
// Lorvane's icons: the installed theme icons first, else the same SVG files compiled into the program.

#include <QIcon>

namespace lorvane {

// The one application id: desktop entry, icons, metainfo and D-Bus name.
inline constexpr const char* applicationId = "com.tarnhollow.Lorvane";

// Themed "com.tarnhollow.Lorvane-symbolic" (monochrome, recoloured by the panel's theme), else the
// built-in copy.
QIcon waveformTrayIcon();
// Themed "com.tarnhollow.Lorvane", else the built-in copy.
QIcon applicationIcon();

}  // namespace lorvane
