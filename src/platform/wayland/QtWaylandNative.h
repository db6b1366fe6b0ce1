#pragma once
// Qt's own Wayland connection. Qt 6.4 hands it out only through its private platform
// native interface (public from Qt 6.5); this is the one place that uses it.

struct wl_display;
struct wl_output;

namespace lorvane {

// Qt's wl_display, or null when Qt does not run on its Wayland plugin.
wl_display* qtWaylandDisplay();

// The integer scale of the output behind `output` as Qt knows it; 1 when Qt does not know it.
int qtWaylandOutputScale(wl_output* output);

}  // namespace lorvane
