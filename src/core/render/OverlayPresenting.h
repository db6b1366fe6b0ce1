#pragma once
// The overlay as the application controller drives it: the one interface every platform's overlay
// implements (the X11 window today; a Wayland layer surface can stand beside it). The controller
// decides when the overlay is on screen; the overlay decides where, from the preferences and the
// screens, and draws the wave by itself while it is shown.

namespace lorvane {

class OverlayPresenting {
public:
    virtual ~OverlayPresenting() = default;
    // Re-reads the preferences and puts the overlay above ordinary windows or down on the desktop.
    virtual void applyWindowLevel() = 0;
    // Re-reads mode and position and places the overlay on the screen under the pointer.
    virtual void reposition() = 0;
    // Shows the overlay, where the last two calls put it, without activating the application.
    virtual void orderFrontRegardless() = 0;
    // Hides the overlay; it draws nothing while hidden.
    virtual void orderOut() = 0;
};

}  // namespace lorvane
