#include "X11Probe.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <X11/Xlib-xcb.h>
#include <xcb/shape.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace lorvane::test {

X11Probe::X11Probe() : display_(XOpenDisplay(nullptr)) {}

X11Probe::~X11Probe() {
    if (display_) XCloseDisplay(display_);
}

XWindow X11Probe::root() const { return DefaultRootWindow(display_); }

unsigned long X11Probe::atom(const char* name) { return XInternAtom(display_, name, False); }

void X11Probe::sync() { XSync(display_, False); }

namespace {
struct Property {
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned char* data = nullptr;
    ~Property() {
        if (data) XFree(data);
    }
};

bool read(Display* d, Window w, Atom property, Property& out) {
    unsigned long after = 0;
    return XGetWindowProperty(d, w, property, 0, 4096, False, AnyPropertyType, &out.type, &out.format, &out.count,
                              &after, &out.data) == Success &&
           out.type != None;
}
}  // namespace

bool X11Probe::hasProperty(Window window, const char* property) {
    Property p;
    return read(display_, window, atom(property), p);
}

std::vector<std::string> X11Probe::atomNames(Window window, const char* property) {
    std::vector<std::string> names;
    Property p;
    if (!read(display_, window, atom(property), p) || p.format != 32) return names;
    const auto* atoms = reinterpret_cast<const Atom*>(p.data);
    for (unsigned long i = 0; i < p.count; ++i) {
        char* name = XGetAtomName(display_, atoms[i]);
        names.emplace_back(name ? name : "");
        if (name) XFree(name);
    }
    return names;
}

std::optional<std::vector<unsigned long>> X11Probe::cardinals(Window window, const char* property) {
    Property p;
    if (!read(display_, window, atom(property), p) || p.format != 32) return std::nullopt;
    // Xlib hands 32-bit items over as longs, sign-extended.
    const auto* values = reinterpret_cast<const unsigned long*>(p.data);
    std::vector<unsigned long> result;
    for (unsigned long i = 0; i < p.count; ++i) result.push_back(values[i] & 0xFFFFFFFFul);
    return result;
}

std::optional<std::vector<Window>> X11Probe::windows(Window window, const char* property) {
    Property p;
    if (!read(display_, window, atom(property), p) || p.format != 32) return std::nullopt;
    const auto* values = reinterpret_cast<const Window*>(p.data);
    return std::vector<Window>(values, values + p.count);
}

std::optional<bool> X11Probe::acceptsFocus(Window window) {
    XWMHints* hints = XGetWMHints(display_, window);
    if (!hints) return std::nullopt;
    std::optional<bool> result;
    if (hints->flags & InputHint) result = hints->input != 0;
    XFree(hints);
    return result;
}

std::vector<XRect> X11Probe::inputShape(Window window) {
    xcb_connection_t* c = XGetXCBConnection(display_);
    std::vector<XRect> result;
    xcb_shape_get_rectangles_reply_t* reply = xcb_shape_get_rectangles_reply(
        c, xcb_shape_get_rectangles(c, static_cast<xcb_window_t>(window), XCB_SHAPE_SK_INPUT), nullptr);
    if (!reply) return result;
    const xcb_rectangle_t* rects = xcb_shape_get_rectangles_rectangles(reply);
    for (int i = 0; i < xcb_shape_get_rectangles_rectangles_length(reply); ++i) {
        result.push_back({rects[i].x, rects[i].y, rects[i].width, rects[i].height});
    }
    std::free(reply);
    return result;
}

int X11Probe::depth(Window window) {
    XWindowAttributes attributes{};
    if (!XGetWindowAttributes(display_, window, &attributes)) return 0;
    return attributes.depth;
}

bool X11Probe::isViewable(Window window) {
    XWindowAttributes attributes{};
    if (!XGetWindowAttributes(display_, window, &attributes)) return false;
    return attributes.map_state == IsViewable;
}

XRect X11Probe::geometryOnRoot(Window window) {
    XWindowAttributes attributes{};
    if (!XGetWindowAttributes(display_, window, &attributes)) return {};
    int x = 0, y = 0;
    Window child = None;
    XTranslateCoordinates(display_, window, root(), 0, 0, &x, &y, &child);
    return {x, y, attributes.width, attributes.height};
}

XWindow X11Probe::frame(Window window) {
    Window current = window;
    for (;;) {
        Window rootWindow = None, parent = None, *children = nullptr;
        unsigned int count = 0;
        if (!XQueryTree(display_, current, &rootWindow, &parent, &children, &count)) return current;
        if (children) XFree(children);
        if (parent == rootWindow || parent == None) return current;
        current = parent;
    }
}

std::vector<Window> X11Probe::stackingOrder() {
    return windows(root(), "_NET_CLIENT_LIST_STACKING").value_or(std::vector<Window>{});
}

XWindow X11Probe::activeWindow() {
    const auto active = windows(root(), "_NET_ACTIVE_WINDOW");
    return active && !active->empty() ? active->front() : None;
}

std::vector<XWindow> X11Probe::clientsOf(long pid) {
    std::vector<XWindow> result;
    for (XWindow window : windows(root(), "_NET_CLIENT_LIST").value_or(std::vector<XWindow>{})) {
        const auto owner = cardinals(window, "_NET_WM_PID");
        if (owner && !owner->empty() && static_cast<long>(owner->front()) == pid) result.push_back(window);
    }
    return result;
}

unsigned long X11Probe::screenPixel(int x, int y) {
    XImage* image = XGetImage(display_, root(), x, y, 1, 1, AllPlanes, ZPixmap);
    if (!image) return 0;
    const unsigned long pixel = XGetPixel(image, 0, 0) & 0xFFFFFF;
    XDestroyImage(image);
    return pixel;
}

XWindow X11Probe::createTopPanel(int x, int width, int thickness) {
    const Window window = XCreateSimpleWindow(display_, root(), x, 0, static_cast<unsigned>(width),
                                              static_cast<unsigned>(thickness), 0, 0, 0x303030);
    const Atom dock = atom("_NET_WM_WINDOW_TYPE_DOCK");
    XChangeProperty(display_, window, atom("_NET_WM_WINDOW_TYPE"), XA_ATOM, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(&dock), 1);
    // left, right, top, bottom, then the start and end of each edge's span.
    const long strut[12] = {0, 0, thickness, 0, 0, 0, 0, 0, x, x + width - 1, 0, 0};
    XChangeProperty(display_, window, atom("_NET_WM_STRUT_PARTIAL"), XA_CARDINAL, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(strut), 12);
    XChangeProperty(display_, window, atom("_NET_WM_STRUT"), XA_CARDINAL, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(strut), 4);
    XMapWindow(display_, window);
    XSync(display_, False);
    return window;
}

XWindow X11Probe::createApplicationWindow(const XRect& rect) {
    const Window window = XCreateSimpleWindow(display_, root(), rect.x, rect.y, static_cast<unsigned>(rect.width),
                                              static_cast<unsigned>(rect.height), 0, 0, 0x406080);
    XSelectInput(display_, window, ButtonPressMask | StructureNotifyMask);
    XSizeHints hints{};
    hints.flags = USPosition | USSize;
    hints.x = rect.x;
    hints.y = rect.y;
    hints.width = rect.width;
    hints.height = rect.height;
    XSetWMNormalHints(display_, window, &hints);
    XStoreName(display_, window, "application");
    XMapWindow(display_, window);
    XSync(display_, False);
    presses_.emplace_back(window, 0);
    return window;
}

void X11Probe::destroy(Window window) {
    XDestroyWindow(display_, window);
    XSync(display_, False);
    std::erase_if(presses_, [window](const auto& entry) { return entry.first == window; });
}

void X11Probe::raise(Window window) {
    XRaiseWindow(display_, window);
    XSync(display_, False);
}

void X11Probe::warpPointer(int x, int y) {
    XWarpPointer(display_, None, root(), 0, 0, 0, 0, x, y);
    XSync(display_, False);
}

int X11Probe::takeButtonPresses(Window window) {
    XSync(display_, False);
    while (XPending(display_)) {
        XEvent event;
        XNextEvent(display_, &event);
        if (event.type != ButtonPress) continue;
        for (auto& [target, count] : presses_) {
            if (target == event.xbutton.window) ++count;
        }
    }
    for (auto& [target, count] : presses_) {
        if (target == window) return std::exchange(count, 0);
    }
    return 0;
}

}  // namespace lorvane::test
