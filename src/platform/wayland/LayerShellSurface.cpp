#include "platform/wayland/LayerShellSurface.h"

#include <wayland-client.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "core/Logging.h"
// The generated header names a parameter `namespace`, a C++ keyword.
#define namespace namespace_
#include "wlr-layer-shell-unstable-v1-client-protocol.h"
#undef namespace

namespace lorvane {

namespace {
constexpr unsigned wantedLayerShellVersion = 4;
}  // namespace

// --- LayerShellConnection

LayerShellConnection::LayerShellConnection(wl_display* display)
    : events_(std::make_unique<WaylandEventQueue>(display)) {}

std::unique_ptr<LayerShellConnection> LayerShellConnection::connect(wl_display* display) {
    if (!display) return nullptr;
    std::unique_ptr<LayerShellConnection> connection(new LayerShellConnection(display));
    // The registry (and so every object bound from it) lives on our queue.
    connection->wrapper_ = static_cast<wl_display*>(wl_proxy_create_wrapper(display));
    wl_proxy_set_queue(reinterpret_cast<wl_proxy*>(connection->wrapper_), connection->events_->queue());
    connection->registry_ = wl_display_get_registry(connection->wrapper_);
    static const wl_registry_listener listener{&LayerShellConnection::global, &LayerShellConnection::globalRemove};
    wl_registry_add_listener(connection->registry_, &listener, connection.get());
    if (!connection->events_->roundtrip() || !connection->compositor_ || !connection->layerShell_) {
        qCWarning(lcOverlay, "The Wayland compositor offers no wlr layer-shell; there is no overlay");
        return nullptr;
    }
    connection->events_->start();
    return connection;
}

LayerShellConnection::~LayerShellConnection() {
    if (layerShell_) {
        if (layerShellVersion_ >= 3)
            zwlr_layer_shell_v1_destroy(layerShell_);
        else
            wl_proxy_destroy(reinterpret_cast<wl_proxy*>(layerShell_));
    }
    if (shm_) wl_shm_destroy(shm_);
    if (compositor_) wl_compositor_destroy(compositor_);
    if (registry_) wl_registry_destroy(registry_);
    if (wrapper_) wl_proxy_wrapper_destroy(wrapper_);
    events_->flush();
}

void LayerShellConnection::global(void* data, wl_registry* registry, uint32_t name, const char* interface,
                                  uint32_t version) {
    auto* self = static_cast<LayerShellConnection*>(data);
    if (std::strcmp(interface, wl_compositor_interface.name) == 0 && !self->compositor_) {
        self->compositorVersion_ = std::min(version, 4u);
        self->compositor_ = static_cast<wl_compositor*>(
            wl_registry_bind(registry, name, &wl_compositor_interface, self->compositorVersion_));
    } else if (std::strcmp(interface, wl_shm_interface.name) == 0 && !self->shm_) {
        self->shm_ = static_cast<wl_shm*>(wl_registry_bind(registry, name, &wl_shm_interface, 1));
    } else if (std::strcmp(interface, zwlr_layer_shell_v1_interface.name) == 0 && !self->layerShell_) {
        self->layerShellVersion_ = std::min(version, wantedLayerShellVersion);
        self->layerShell_ = static_cast<zwlr_layer_shell_v1*>(
            wl_registry_bind(registry, name, &zwlr_layer_shell_v1_interface, self->layerShellVersion_));
    }
}

void LayerShellConnection::globalRemove(void*, wl_registry*, uint32_t) {}

// --- LayerShellSurface

namespace {
uint32_t layerValue(LayerShellLayer layer) {
    return layer == LayerShellLayer::top ? ZWLR_LAYER_SHELL_V1_LAYER_TOP : ZWLR_LAYER_SHELL_V1_LAYER_BOTTOM;
}
}  // namespace

LayerShellSurface::LayerShellSurface(LayerShellConnection& connection, wl_output* output,
                                     const LayerSurfacePlacement& placement, Callbacks callbacks)
    : connection_(connection), callbacks_(std::move(callbacks)), output_(output), placement_(placement) {
    surface_ = wl_compositor_create_surface(connection.compositor());
    static const wl_surface_listener surfaceListener{&LayerShellSurface::enter, &LayerShellSurface::leave};
    wl_surface_add_listener(surface_, &surfaceListener, this);
    // Clicks and touches go to whatever lies below: an empty input region.
    wl_region* empty = wl_compositor_create_region(connection.compositor());
    wl_surface_set_input_region(surface_, empty);
    wl_region_destroy(empty);
    layerSurface_ = zwlr_layer_shell_v1_get_layer_surface(connection.layerShell(), surface_, output,
                                                          layerValue(placement.layer), "lorvane-overlay");
    static const zwlr_layer_surface_v1_listener listener{&LayerShellSurface::configure, &LayerShellSurface::close};
    zwlr_layer_surface_v1_add_listener(layerSurface_, &listener, this);
    zwlr_layer_surface_v1_set_keyboard_interactivity(layerSurface_,
                                                     ZWLR_LAYER_SURFACE_V1_KEYBOARD_INTERACTIVITY_NONE);
    applyPlacement(placement);
    // The first commit without a buffer asks the compositor for a configure.
    wl_surface_commit(surface_);
    connection.events().flush();
}

LayerShellSurface::~LayerShellSurface() {
    if (frame_) wl_callback_destroy(frame_);
    zwlr_layer_surface_v1_destroy(layerSurface_);
    wl_surface_destroy(surface_);
    connection_.events().flush();
}

bool LayerShellSurface::place(const LayerSurfacePlacement& placement) {
    if (placement == placement_) return true;
    if (placement.layer != placement_.layer && connection_.layerShellVersion() < 2) return false;
    applyPlacement(placement);
    wl_surface_commit(surface_);
    connection_.events().flush();
    return true;
}

void LayerShellSurface::applyPlacement(const LayerSurfacePlacement& placement) {
    if (placement.layer != placement_.layer) zwlr_layer_surface_v1_set_layer(layerSurface_, layerValue(placement.layer));
    placement_ = placement;
    uint32_t anchor = 0;
    if (placement.anchorTop) anchor |= ZWLR_LAYER_SURFACE_V1_ANCHOR_TOP;
    if (placement.anchorBottom) anchor |= ZWLR_LAYER_SURFACE_V1_ANCHOR_BOTTOM;
    if (placement.anchorLeft) anchor |= ZWLR_LAYER_SURFACE_V1_ANCHOR_LEFT;
    if (placement.anchorRight) anchor |= ZWLR_LAYER_SURFACE_V1_ANCHOR_RIGHT;
    zwlr_layer_surface_v1_set_anchor(layerSurface_, anchor);
    zwlr_layer_surface_v1_set_size(layerSurface_, 0, static_cast<uint32_t>(placement.height));
    zwlr_layer_surface_v1_set_margin(layerSurface_, placement.marginTop, 0, placement.marginBottom, 0);
    zwlr_layer_surface_v1_set_exclusive_zone(layerSurface_, placement.exclusiveZone);
}

void LayerShellSurface::requestFrame() {
    if (frame_) return;
    frame_ = wl_surface_frame(surface_);
    static const wl_callback_listener listener{&LayerShellSurface::done};
    wl_callback_add_listener(frame_, &listener, this);
}

bool LayerShellSurface::setBufferScale(int scale) {
    if (connection_.compositorVersion() < 3) return scale == 1;
    wl_surface_set_buffer_scale(surface_, scale);
    return true;
}

void LayerShellSurface::commit() {
    wl_surface_commit(surface_);
    connection_.events().flush();
}

void LayerShellSurface::damageBuffer(const QRect& pixels) {
    // Buffer coordinates need wl_surface version 4; before that the whole surface is damaged.
    if (pixels.isNull() || connection_.compositorVersion() < 4) {
        wl_surface_damage(surface_, 0, 0, INT32_MAX, INT32_MAX);
    } else {
        wl_surface_damage_buffer(surface_, pixels.x(), pixels.y(), pixels.width(), pixels.height());
    }
}

void LayerShellSurface::enter(void* data, wl_surface*, wl_output* output) {
    auto* self = static_cast<LayerShellSurface*>(data);
    if (std::find(self->entered_.begin(), self->entered_.end(), output) != self->entered_.end()) return;
    self->entered_.push_back(output);
    if (self->callbacks_.outputsChanged) self->callbacks_.outputsChanged();
}

void LayerShellSurface::leave(void* data, wl_surface*, wl_output* output) {
    auto* self = static_cast<LayerShellSurface*>(data);
    const auto found = std::find(self->entered_.begin(), self->entered_.end(), output);
    if (found == self->entered_.end()) return;
    self->entered_.erase(found);
    if (self->callbacks_.outputsChanged) self->callbacks_.outputsChanged();
}

void LayerShellSurface::configure(void* data, zwlr_layer_surface_v1* layerSurface, uint32_t serial, uint32_t width,
                                  uint32_t height) {
    auto* self = static_cast<LayerShellSurface*>(data);
    zwlr_layer_surface_v1_ack_configure(layerSurface, serial);
    self->configured_ = true;
    if (self->callbacks_.configured) self->callbacks_.configured(static_cast<int>(width), static_cast<int>(height));
}

void LayerShellSurface::close(void* data, zwlr_layer_surface_v1*) {
    auto* self = static_cast<LayerShellSurface*>(data);
    if (self->callbacks_.closed) self->callbacks_.closed();
}

void LayerShellSurface::done(void* data, wl_callback* callback, uint32_t) {
    auto* self = static_cast<LayerShellSurface*>(data);
    wl_callback_destroy(callback);
    self->frame_ = nullptr;
    if (self->callbacks_.frameDone) self->callbacks_.frameDone();
}

}  // namespace lorvane
