#pragma once
// Reads and drives the private X desktop from the test's side, on a connection of its own: window
// properties, input shapes, stacking, focus, and helper windows (a panel with a strut, an ordinary
// application window that counts the clicks it receives).

#include <optional>
#include <string>
#include <vector>

struct _XDisplay;

namespace lorvane::test {

// An X window id (Xlib's XWindow), without pulling Xlib's macros into the tests.
using XWindow = unsigned long;

struct XRect {
    int x = 0, y = 0, width = 0, height = 0;
    friend bool operator==(const XRect&, const XRect&) = default;
};

class X11Probe {
public:
    X11Probe();  // connects to $DISPLAY
    ~X11Probe();
    X11Probe(const X11Probe&) = delete;
    X11Probe& operator=(const X11Probe&) = delete;

    bool isConnected() const { return display_ != nullptr; }
    XWindow root() const;

    std::vector<std::string> atomNames(XWindow window, const char* property);
    std::optional<std::vector<unsigned long>> cardinals(XWindow window, const char* property);
    std::optional<std::vector<XWindow>> windows(XWindow window, const char* property);
    bool hasProperty(XWindow window, const char* property);
    std::optional<bool> acceptsFocus(XWindow window);  // WM_HINTS input field
    std::vector<XRect> inputShape(XWindow window);
    int depth(XWindow window);
    bool isViewable(XWindow window);
    XRect geometryOnRoot(XWindow window);
    // The window manager's frame around a client (the client itself when it is not reparented).
    XWindow frame(XWindow window);
    // Managed windows, bottom to top.
    std::vector<XWindow> stackingOrder();
    XWindow activeWindow();
    // Managed windows whose _NET_WM_PID is `pid`.
    std::vector<XWindow> clientsOf(long pid);
    // The colour of one root pixel as the screen shows it (0xRRGGBB).
    unsigned long screenPixel(int x, int y);

    // A dock (panel) reserving `thickness` pixels at the top of the span [x, x + width).
    XWindow createTopPanel(int x, int width, int thickness);
    // An ordinary, focused application window that listens for button presses.
    XWindow createApplicationWindow(const XRect& rect);
    void destroy(XWindow window);
    void raise(XWindow window);
    void warpPointer(int x, int y);
    // Button presses received by a window created here since the last call.
    int takeButtonPresses(XWindow window);
    void sync();

private:
    unsigned long atom(const char* name);
    _XDisplay* display_ = nullptr;
    std::vector<std::pair<XWindow, int>> presses_;
};

}  // namespace lorvane::test
