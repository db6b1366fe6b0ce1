#pragma once
// What the program asks of an X11 desktop that Qt has no API for, written straight to window
// properties: for the overlay its stacking layer, all desktops, no taskbar or pager entry, an empty
// input shape and KWin's blur behind it; for any window, a place on every desktop; and what the
// desktop tells: a compositing manager, the work area.
// Shared by the overlay and the shell. Every function does nothing (or answers false) outside X11.

#include <QRect>
#include <chrono>
#include <optional>

#include "core/render/OverlayPlacement.h"

class QWindow;

namespace lorvane::x11 {

bool isAvailable();

// Window type (desktop, or normal kept above), sticky on every desktop, skipped by taskbars and
// pagers. Window managers read these when they start managing a window: write them while it is
// unmapped.
void writeStackingProperties(QWindow& window, OverlayWindowLevel level);

// Makes every click pass through. Repeated after each mapping: a window manager that wraps the window
// in a frame copies the shape into the frame only when it is told of a change after managing it.
void clearInputShape(QWindow& window);

// After an unmap: waits (bounded) until the window manager has let go of the window, so that
// properties written next are read at the next mapping instead of being erased with the old ones.
void waitUntilWithdrawn(QWindow& window, std::chrono::milliseconds timeout);

// Shows the window on every virtual desktop (_NET_WM_DESKTOP = 0xFFFFFFFF), before and after mapping.
void putOnAllDesktops(QWindow* window);

// KWin's blur of what lies behind the window (the whole window), or none.
void setBlurBehind(QWindow& window, bool enabled);

// True when a compositing manager owns the screen's _NET_WM_CM selection.
bool compositingManagerRunning();

// True when an X11 tray (the older XEmbed protocol) owns the screen's _NET_SYSTEM_TRAY selection.
bool xembedTrayRunning();

// The window manager's work area on the current desktop (the screen minus the space panels reserve),
// in the root window's pixels; nothing without a window manager that publishes one.
std::optional<QRect> workArea();

// True for an xcb event saying the work area or the current desktop changed.
bool isWorkAreaChange(const void* xcbEvent);

}  // namespace lorvane::x11
