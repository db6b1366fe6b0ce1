#pragma once
// The few window-manager hints Qt has no API for. Each does nothing outside X11.

class QWindow;

namespace lorvane {

// Shows the window on every virtual desktop (_NET_WM_DESKTOP = 0xFFFFFFFF), before and after mapping.
void putOnAllDesktops(QWindow* window);

}  // namespace lorvane
