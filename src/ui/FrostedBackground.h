#pragma once
// The frosted glass behind the full-screen fog. On X11 this is the compositor's blur of what lies
// behind the window (KWin reads _KDE_NET_WM_BLUR_BEHIND_REGION; other compositors ignore it); the
// fog's light white tint is drawn by the wave view itself in every case.

class QWindow;

namespace lorvane {

class FrostedBackground {
public:
    // Asks for the blur behind `window`, or withdraws the request; repeated calls with the same
    // value do nothing.
    void apply(QWindow& window, bool enabled);
    bool isApplied() const { return applied_; }

private:
    bool applied_ = false;
    bool known_ = false;
};

}  // namespace lorvane
