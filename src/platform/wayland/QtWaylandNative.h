#pragma once
// Qt's own Wayland connection and outputs. Qt 6.4 hands these out only through its private platform
// native interface (public from Qt 6.5); this is the one place that uses it.

struct wl_display;
struct wl_output;
class QScreen;

namespace lorvane {

// Qt's wl_display, or null when Qt does not run on its Wayland plugin.
wl_display* qtWaylandDisplay();
// The wl_output behind `screen` on Qt's connection, or null.
wl_output* qtWaylandOutput(QScreen* screen);

}  // namespace lorvane
