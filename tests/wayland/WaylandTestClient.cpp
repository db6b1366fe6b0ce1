// A small Wayland client for the layer-shell tests, with two jobs:
//   lorvane-wayland-test-client window
//       maps a white toplevel window, prints "ready" once it is on screen and "press X Y" (surface
//       coordinates) for every pointer button press it receives;
//   lorvane-wayland-test-client click X Y
//       moves a virtual pointer (zwlr_virtual_pointer_v1) to the layout point (X, Y) and clicks the
//       left button there.
#include <fcntl.h>
#include <linux/input-event-codes.h>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "wlr-virtual-pointer-unstable-v1-client-protocol.h"
#include "xdg-shell-client-protocol.h"

namespace {

struct Client {
    wl_display* display = nullptr;
    wl_compositor* compositor = nullptr;
    wl_shm* shm = nullptr;
    wl_seat* seat = nullptr;
    xdg_wm_base* wmBase = nullptr;
    zwlr_virtual_pointer_manager_v1* virtualPointers = nullptr;
    wl_output* output = nullptr;
    int outputWidth = 0, outputHeight = 0;
    wl_surface* surface = nullptr;
    wl_pointer* pointer = nullptr;
    double pointerX = 0, pointerY = 0;
    bool configured = false;
    bool running = true;
};

void global(void* data, wl_registry* registry, uint32_t name, const char* interface, uint32_t) {
    auto* c = static_cast<Client*>(data);
    if (!std::strcmp(interface, wl_compositor_interface.name))
        c->compositor = static_cast<wl_compositor*>(wl_registry_bind(registry, name, &wl_compositor_interface, 4));
    else if (!std::strcmp(interface, wl_shm_interface.name))
        c->shm = static_cast<wl_shm*>(wl_registry_bind(registry, name, &wl_shm_interface, 1));
    else if (!std::strcmp(interface, wl_seat_interface.name) && !c->seat)
        c->seat = static_cast<wl_seat*>(wl_registry_bind(registry, name, &wl_seat_interface, 5));
    else if (!std::strcmp(interface, xdg_wm_base_interface.name))
        c->wmBase = static_cast<xdg_wm_base*>(wl_registry_bind(registry, name, &xdg_wm_base_interface, 1));
    else if (!std::strcmp(interface, zwlr_virtual_pointer_manager_v1_interface.name))
        c->virtualPointers = static_cast<zwlr_virtual_pointer_manager_v1*>(
            wl_registry_bind(registry, name, &zwlr_virtual_pointer_manager_v1_interface, 1));
    else if (!std::strcmp(interface, wl_output_interface.name) && !c->output)
        c->output = static_cast<wl_output*>(wl_registry_bind(registry, name, &wl_output_interface, 2));
}
void globalRemove(void*, wl_registry*, uint32_t) {}
const wl_registry_listener registryListener{global, globalRemove};

void outputGeometry(void*, wl_output*, int32_t, int32_t, int32_t, int32_t, int32_t, const char*, const char*,
                    int32_t) {}
void outputMode(void* data, wl_output*, uint32_t flags, int32_t width, int32_t height, int32_t) {
    auto* c = static_cast<Client*>(data);
    if (flags & WL_OUTPUT_MODE_CURRENT) c->outputWidth = width, c->outputHeight = height;
}
void outputDone(void*, wl_output*) {}
void outputScale(void*, wl_output*, int32_t) {}
const wl_output_listener outputListener{outputGeometry, outputMode, outputDone, outputScale, nullptr, nullptr};

void ping(void*, xdg_wm_base* base, uint32_t serial) { xdg_wm_base_pong(base, serial); }
const xdg_wm_base_listener wmBaseListener{ping};

wl_buffer* whiteBuffer(Client& c, int width, int height) {
    const int stride = width * 4;
    const int size = stride * height;
    const int fd = memfd_create("lorvane-test-buffer", MFD_CLOEXEC);
    if (fd < 0 || ftruncate(fd, size) != 0) return nullptr;
    void* pixels = mmap(nullptr, static_cast<size_t>(size), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (pixels == MAP_FAILED) return nullptr;
    std::memset(pixels, 0xff, static_cast<size_t>(size));
    munmap(pixels, static_cast<size_t>(size));
    wl_shm_pool* pool = wl_shm_create_pool(c.shm, fd, size);
    wl_buffer* buffer = wl_shm_pool_create_buffer(pool, 0, width, height, stride, WL_SHM_FORMAT_XRGB8888);
    wl_shm_pool_destroy(pool);
    close(fd);
    return buffer;
}

void surfaceConfigure(void* data, xdg_surface* xdgSurface, uint32_t serial) {
    auto* c = static_cast<Client*>(data);
    xdg_surface_ack_configure(xdgSurface, serial);
    if (c->configured) return;
    c->configured = true;
    const int width = c->outputWidth > 0 ? c->outputWidth : 800;
    const int height = c->outputHeight > 0 ? c->outputHeight : 600;
    wl_surface_attach(c->surface, whiteBuffer(*c, width, height), 0, 0);
    wl_surface_damage(c->surface, 0, 0, width, height);
    wl_surface_commit(c->surface);
    wl_display_roundtrip(c->display);
    std::printf("ready\n");
    std::fflush(stdout);
}
const xdg_surface_listener surfaceListener{surfaceConfigure};

void toplevelConfigure(void*, xdg_toplevel*, int32_t, int32_t, wl_array*) {}
void toplevelClose(void* data, xdg_toplevel*) { static_cast<Client*>(data)->running = false; }
const xdg_toplevel_listener toplevelListener{toplevelConfigure, toplevelClose, nullptr, nullptr};

void enter(void* data, wl_pointer*, uint32_t, wl_surface*, wl_fixed_t x, wl_fixed_t y) {
    auto* c = static_cast<Client*>(data);
    c->pointerX = wl_fixed_to_double(x), c->pointerY = wl_fixed_to_double(y);
}
void leave(void*, wl_pointer*, uint32_t, wl_surface*) {}
void motion(void* data, wl_pointer*, uint32_t, wl_fixed_t x, wl_fixed_t y) {
    auto* c = static_cast<Client*>(data);
    c->pointerX = wl_fixed_to_double(x), c->pointerY = wl_fixed_to_double(y);
}
void button(void* data, wl_pointer*, uint32_t, uint32_t, uint32_t, uint32_t state) {
    auto* c = static_cast<Client*>(data);
    if (state != WL_POINTER_BUTTON_STATE_PRESSED) return;
    std::printf("press %.0f %.0f\n", c->pointerX, c->pointerY);
    std::fflush(stdout);
}
void axis(void*, wl_pointer*, uint32_t, uint32_t, wl_fixed_t) {}
void frame(void*, wl_pointer*) {}
void axisSource(void*, wl_pointer*, uint32_t) {}
void axisStop(void*, wl_pointer*, uint32_t, uint32_t) {}
void axisDiscrete(void*, wl_pointer*, uint32_t, int32_t) {}
const wl_pointer_listener pointerListener{enter, leave, motion, button, axis, frame, axisSource, axisStop, axisDiscrete,
                                          nullptr};

void capabilities(void* data, wl_seat* seat, uint32_t capabilities) {
    auto* c = static_cast<Client*>(data);
    if (!(capabilities & WL_SEAT_CAPABILITY_POINTER) || c->pointer) return;
    c->pointer = wl_seat_get_pointer(seat);
    wl_pointer_add_listener(c->pointer, &pointerListener, c);
}
void seatName(void*, wl_seat*, const char*) {}
const wl_seat_listener seatListener{capabilities, seatName};

int window(Client& c) {
    if (!c.compositor || !c.shm || !c.wmBase || !c.seat || !c.virtualPointers) return 1;
    xdg_wm_base_add_listener(c.wmBase, &wmBaseListener, &c);
    // A headless seat has a pointer only while some pointer device exists: keep one for our lifetime,
    // so the window holds its wl_pointer before any click arrives.
    zwlr_virtual_pointer_v1* keepPointer =
        zwlr_virtual_pointer_manager_v1_create_virtual_pointer(c.virtualPointers, c.seat);
    wl_seat_add_listener(c.seat, &seatListener, &c);
    wl_display_roundtrip(c.display);
    wl_display_roundtrip(c.display);
    if (!c.pointer) return 1;
    c.surface = wl_compositor_create_surface(c.compositor);
    xdg_surface* xdgSurface = xdg_wm_base_get_xdg_surface(c.wmBase, c.surface);
    xdg_surface_add_listener(xdgSurface, &surfaceListener, &c);
    xdg_toplevel* toplevel = xdg_surface_get_toplevel(xdgSurface);
    xdg_toplevel_add_listener(toplevel, &toplevelListener, &c);
    xdg_toplevel_set_title(toplevel, "pointer recorder");
    xdg_toplevel_set_app_id(toplevel, "lorvane-pointer-recorder");
    wl_surface_commit(c.surface);
    while (c.running && wl_display_dispatch(c.display) >= 0) {
    }
    zwlr_virtual_pointer_v1_destroy(keepPointer);
    return 0;
}

int click(Client& c, int x, int y) {
    if (!c.virtualPointers || c.outputWidth <= 0) return 1;
    zwlr_virtual_pointer_v1* pointer =
        zwlr_virtual_pointer_manager_v1_create_virtual_pointer(c.virtualPointers, c.seat);
    const auto width = static_cast<uint32_t>(c.outputWidth), height = static_cast<uint32_t>(c.outputHeight);
    zwlr_virtual_pointer_v1_motion_absolute(pointer, 0, static_cast<uint32_t>(x), static_cast<uint32_t>(y), width,
                                            height);
    zwlr_virtual_pointer_v1_frame(pointer);
    wl_display_roundtrip(c.display);
    zwlr_virtual_pointer_v1_button(pointer, 1, BTN_LEFT, WL_POINTER_BUTTON_STATE_PRESSED);
    zwlr_virtual_pointer_v1_frame(pointer);
    zwlr_virtual_pointer_v1_button(pointer, 2, BTN_LEFT, WL_POINTER_BUTTON_STATE_RELEASED);
    zwlr_virtual_pointer_v1_frame(pointer);
    wl_display_roundtrip(c.display);
    zwlr_virtual_pointer_v1_destroy(pointer);
    wl_display_roundtrip(c.display);
    return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
    const std::string job = argc > 1 ? argv[1] : "";
    Client c;
    c.display = wl_display_connect(nullptr);
    if (!c.display) {
        std::fprintf(stderr, "no Wayland display\n");
        return 2;
    }
    wl_registry* registry = wl_display_get_registry(c.display);
    wl_registry_add_listener(registry, &registryListener, &c);
    wl_display_roundtrip(c.display);
    if (c.output) wl_output_add_listener(c.output, &outputListener, &c);
    wl_display_roundtrip(c.display);
    int status = 2;
    if (job == "window") status = window(c);
    if (job == "click" && argc == 4) status = click(c, std::atoi(argv[2]), std::atoi(argv[3]));
    wl_display_disconnect(c.display);
    return status;
}
