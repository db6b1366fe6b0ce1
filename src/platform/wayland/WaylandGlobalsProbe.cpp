#include "platform/wayland/WaylandGlobalsProbe.h"

#include <wayland-client.h>

namespace lorvane {

namespace {

void global(void* data, wl_registry*, uint32_t, const char* interface, uint32_t) {
    static_cast<std::vector<std::string>*>(data)->emplace_back(interface);
}

void globalRemove(void*, wl_registry*, uint32_t) {}

const wl_registry_listener registryListener{global, globalRemove};

}  // namespace

std::optional<std::vector<std::string>> probeWaylandGlobals() {
    wl_display* display = wl_display_connect(nullptr);
    if (!display) return std::nullopt;
    std::vector<std::string> globals;
    wl_registry* registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &registryListener, &globals);
    const bool answered = wl_display_roundtrip(display) >= 0;
    wl_registry_destroy(registry);
    wl_display_disconnect(display);
    if (!answered) return std::nullopt;
    return globals;
}

}  // namespace lorvane
