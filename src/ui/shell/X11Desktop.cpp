#include "ui/shell/X11Desktop.h"

#include <xcb/xcb.h>

#include <QGuiApplication>
#include <QWindow>
#include <QtGui/qguiapplication_platform.h>
#include <cstdlib>
#include <cstring>

namespace lorvane {

namespace {

xcb_atom_t internAtom(xcb_connection_t* connection, const char* name) {
    const auto cookie = xcb_intern_atom(connection, 0, static_cast<uint16_t>(std::strlen(name)), name);
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(connection, cookie, nullptr);
    if (!reply) return XCB_ATOM_NONE;
    const xcb_atom_t atom = reply->atom;
    std::free(reply);
    return atom;
}

}  // namespace

void putOnAllDesktops(QWindow* window) {
    if (!window) return;
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection()) return;
    xcb_connection_t* connection = x11->connection();
    const auto id = static_cast<xcb_window_t>(window->winId());
    const xcb_atom_t desktop = internAtom(connection, "_NET_WM_DESKTOP");
    if (desktop == XCB_ATOM_NONE) return;
    constexpr uint32_t allDesktops = 0xFFFFFFFF;

    // Read by the window manager when the window is mapped...
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, desktop, XCB_ATOM_CARDINAL, 32, 1, &allDesktops);

    // ...and, for a window already mapped, asked for through the root window.
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    if (screen && window->isVisible()) {
        xcb_client_message_event_t event{};
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 32;
        event.window = id;
        event.type = desktop;
        event.data.data32[0] = allDesktops;
        event.data.data32[1] = 2;  // a request from a pager or user action, which window managers honour
        xcb_send_event(connection, 0, screen->root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&event));
    }
    xcb_flush(connection);
}

}  // namespace lorvane
