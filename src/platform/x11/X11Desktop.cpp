#include "platform/x11/X11Desktop.h"

#include <xcb/shape.h>
#include <xcb/xcb.h>

#include <QGuiApplication>
#include <QWindow>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace lorvane::x11 {

namespace {

xcb_connection_t* connection() {
    if (QGuiApplication::platformName() != QLatin1String("xcb")) return nullptr;
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}

// Atoms live as long as the server; interned once per name (main thread only).
xcb_atom_t atom(xcb_connection_t* c, const char* name) {
    static std::map<std::string, xcb_atom_t> known;
    static xcb_connection_t* knownFor = nullptr;
    if (knownFor != c) {
        known.clear();
        knownFor = c;
    }
    if (const auto found = known.find(name); found != known.end()) return found->second;
    xcb_intern_atom_reply_t* reply =
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr);
    if (!reply) return XCB_ATOM_NONE;
    const xcb_atom_t result = reply->atom;
    std::free(reply);
    known.emplace(name, result);
    return result;
}

xcb_window_t rootOf(xcb_connection_t* c, xcb_window_t window) {
    xcb_query_tree_reply_t* tree = xcb_query_tree_reply(c, xcb_query_tree(c, window), nullptr);
    if (!tree) return XCB_WINDOW_NONE;
    const xcb_window_t root = tree->root;
    std::free(tree);
    return root;
}

// The X screen number of the display Qt connected to (":0.1" is screen 1).
int screenNumber() {
    const QByteArray display = qgetenv("DISPLAY");
    const int dot = display.lastIndexOf('.');
    const int colon = display.lastIndexOf(':');
    if (dot > colon && colon >= 0) return display.mid(dot + 1).toInt();
    return 0;
}

bool hasProperty(xcb_connection_t* c, xcb_window_t window, xcb_atom_t property, uint32_t* firstValue = nullptr) {
    xcb_get_property_reply_t* reply =
        xcb_get_property_reply(c, xcb_get_property(c, 0, window, property, XCB_ATOM_ANY, 0, 1), nullptr);
    if (!reply) return false;
    const bool present = reply->type != XCB_ATOM_NONE;
    if (present && firstValue && xcb_get_property_value_length(reply) >= 4) {
        std::memcpy(firstValue, xcb_get_property_value(reply), 4);
    }
    std::free(reply);
    return present;
}

}  // namespace

bool isAvailable() { return connection() != nullptr; }

void writeStackingProperties(QWindow& window, OverlayWindowLevel level) {
    xcb_connection_t* c = connection();
    if (!c) return;
    const xcb_window_t id = static_cast<xcb_window_t>(window.winId());
    const xcb_atom_t type =
        atom(c, level == OverlayWindowLevel::desktop ? "_NET_WM_WINDOW_TYPE_DESKTOP" : "_NET_WM_WINDOW_TYPE_NORMAL");
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom(c, "_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, 32, 1, &type);
    std::vector<xcb_atom_t> states{atom(c, "_NET_WM_STATE_SKIP_TASKBAR"), atom(c, "_NET_WM_STATE_SKIP_PAGER")};
    if (level == OverlayWindowLevel::floating) states.push_back(atom(c, "_NET_WM_STATE_ABOVE"));
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom(c, "_NET_WM_STATE"), XCB_ATOM_ATOM, 32,
                        static_cast<uint32_t>(states.size()), states.data());
    const uint32_t allDesktops = 0xFFFFFFFF;
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom(c, "_NET_WM_DESKTOP"), XCB_ATOM_CARDINAL, 32, 1,
                        &allDesktops);
    xcb_flush(c);
}

void clearInputShape(QWindow& window) {
    xcb_connection_t* c = connection();
    if (!c) return;
    xcb_shape_rectangles(c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED,
                         static_cast<xcb_window_t>(window.winId()), 0, 0, 0, nullptr);
    xcb_flush(c);
}

void waitUntilWithdrawn(QWindow& window, std::chrono::milliseconds timeout) {
    xcb_connection_t* c = connection();
    if (!c) return;
    const xcb_window_t id = static_cast<xcb_window_t>(window.winId());
    const xcb_window_t root = rootOf(c, id);
    if (!hasProperty(c, root, atom(c, "_NET_SUPPORTING_WM_CHECK"))) return;  // no window manager
    const xcb_atom_t wmState = atom(c, "WM_STATE");
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        uint32_t state = 0;
        // Gone, or WithdrawnState (0).
        if (!hasProperty(c, id, wmState, &state) || state == 0) return;
        if (std::chrono::steady_clock::now() > deadline) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

void putOnAllDesktops(QWindow* window) {
    xcb_connection_t* c = window ? connection() : nullptr;
    if (!c) return;
    const auto id = static_cast<xcb_window_t>(window->winId());
    const xcb_atom_t desktop = atom(c, "_NET_WM_DESKTOP");
    if (desktop == XCB_ATOM_NONE) return;
    constexpr uint32_t allDesktops = 0xFFFFFFFF;

    // Read by the window manager when the window is mapped...
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, desktop, XCB_ATOM_CARDINAL, 32, 1, &allDesktops);

    // ...and, for a window already mapped, asked for through the root window.
    const xcb_window_t root = rootOf(c, id);
    if (root != XCB_WINDOW_NONE && window->isVisible()) {
        xcb_client_message_event_t event{};
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 32;
        event.window = id;
        event.type = desktop;
        event.data.data32[0] = allDesktops;
        event.data.data32[1] = 2;  // a request from a pager or user action, which window managers honour
        xcb_send_event(c, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&event));
    }
    xcb_flush(c);
}

void setBlurBehind(QWindow& window, bool enabled) {
    xcb_connection_t* c = connection();
    if (!c) return;
    const xcb_window_t id = static_cast<xcb_window_t>(window.winId());
    const xcb_atom_t property = atom(c, "_KDE_NET_WM_BLUR_BEHIND_REGION");
    if (enabled) {
        // An empty region asks for the whole window.
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, property, XCB_ATOM_CARDINAL, 32, 0, nullptr);
    } else {
        xcb_delete_property(c, id, property);
    }
    xcb_flush(c);
}

namespace {
bool selectionOwned(const std::string& name) {
    xcb_connection_t* c = connection();
    if (!c) return false;
    xcb_get_selection_owner_reply_t* reply =
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, atom(c, name.c_str())), nullptr);
    if (!reply) return false;
    const bool owned = reply->owner != XCB_WINDOW_NONE;
    std::free(reply);
    return owned;
}
}  // namespace

bool compositingManagerRunning() { return selectionOwned("_NET_WM_CM_S" + std::to_string(screenNumber())); }

bool xembedTrayRunning() { return selectionOwned("_NET_SYSTEM_TRAY_S" + std::to_string(screenNumber())); }

}  // namespace lorvane::x11

namespace lorvane::x11 {

namespace {
std::vector<uint32_t> cardinals(xcb_connection_t* c, xcb_window_t window, xcb_atom_t property) {
    std::vector<uint32_t> values;
    xcb_get_property_reply_t* reply =
        xcb_get_property_reply(c, xcb_get_property(c, 0, window, property, XCB_ATOM_CARDINAL, 0, 1024), nullptr);
    if (!reply) return values;
    if (reply->format == 32) {
        const auto* data = static_cast<const uint32_t*>(xcb_get_property_value(reply));
        values.assign(data, data + xcb_get_property_value_length(reply) / 4);
    }
    std::free(reply);
    return values;
}

xcb_window_t rootWindow(xcb_connection_t* c) {
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = 0; i < screenNumber() && screens.rem; ++i) xcb_screen_next(&screens);
    return screens.rem ? screens.data->root : xcb_window_t{XCB_WINDOW_NONE};
}
}  // namespace

std::optional<QRect> workArea() {
    xcb_connection_t* c = connection();
    if (!c) return std::nullopt;
    const xcb_window_t root = rootWindow(c);
    const auto areas = cardinals(c, root, atom(c, "_NET_WORKAREA"));
    const auto current = cardinals(c, root, atom(c, "_NET_CURRENT_DESKTOP"));
    // One rectangle per desktop; a panel may reserve space on some desktops only.
    std::size_t desktop = current.empty() ? 0 : current.front();
    if (4 * desktop + 4 > areas.size()) desktop = 0;
    if (areas.size() < 4) return std::nullopt;
    const uint32_t* area = areas.data() + 4 * desktop;
    return QRect(static_cast<int>(area[0]), static_cast<int>(area[1]), static_cast<int>(area[2]),
                 static_cast<int>(area[3]));
}

bool isWorkAreaChange(const void* xcbEvent) {
    const auto* event = static_cast<const xcb_generic_event_t*>(xcbEvent);
    if ((event->response_type & 0x7F) != XCB_PROPERTY_NOTIFY) return false;
    xcb_connection_t* c = connection();
    if (!c) return false;
    const auto* change = static_cast<const xcb_property_notify_event_t*>(xcbEvent);
    return change->atom == atom(c, "_NET_WORKAREA") || change->atom == atom(c, "_NET_CURRENT_DESKTOP");
}

}  // namespace lorvane::x11
