#pragma once
// One wlr layer surface on Qt's Wayland connection, with its objects on their own event queue: a
// wl_surface with the layer role, no input region and no keyboard focus, placed by anchors and
// margins. It reports the sizes the compositor configures, frame callbacks and its closing.

#include <QRect>
#include <functional>
#include <memory>
#include <vector>

#include "core/render/LayerSurfacePlacement.h"
#include "platform/wayland/WaylandEventQueue.h"

struct wl_compositor;
struct wl_output;
struct wl_registry;
struct wl_shm;
struct wl_surface;
struct wl_callback;
struct zwlr_layer_shell_v1;
struct zwlr_layer_surface_v1;

namespace lorvane {

// The compositor's globals that layer surfaces need, bound once on a queue of their own.
class LayerShellConnection {
public:
    // Null when Qt is not on Wayland or the compositor lacks wl_compositor or zwlr_layer_shell_v1.
    static std::unique_ptr<LayerShellConnection> connect(wl_display* display);
    ~LayerShellConnection();

    WaylandEventQueue& events() { return *events_; }
    wl_compositor* compositor() const { return compositor_; }
    zwlr_layer_shell_v1* layerShell() const { return layerShell_; }
    // Shared memory for buffers drawn on the CPU; null on a compositor without it.
    wl_shm* shm() const { return shm_; }
    unsigned layerShellVersion() const { return layerShellVersion_; }
    unsigned compositorVersion() const { return compositorVersion_; }

private:
    explicit LayerShellConnection(wl_display* display);
    static void global(void* data, wl_registry*, uint32_t name, const char* interface, uint32_t version);
    static void globalRemove(void*, wl_registry*, uint32_t);

    std::unique_ptr<WaylandEventQueue> events_;
    wl_display* wrapper_ = nullptr;
    wl_registry* registry_ = nullptr;
    wl_compositor* compositor_ = nullptr;
    zwlr_layer_shell_v1* layerShell_ = nullptr;
    wl_shm* shm_ = nullptr;
    unsigned layerShellVersion_ = 0;
    unsigned compositorVersion_ = 0;
};

class LayerShellSurface {
public:
    struct Callbacks {
        std::function<void(int width, int height)> configured;  // surface-local size; ready to draw
        std::function<void()> frameDone;                          // the compositor wants the next frame
        std::function<void()> closed;                             // the compositor dropped the surface
        std::function<void()> outputsChanged;                     // it entered or left an output
    };

    // Maps nothing until the first buffer; `output` null lets the compositor choose.
    LayerShellSurface(LayerShellConnection& connection, wl_output* output, const LayerSurfacePlacement& placement,
                      Callbacks callbacks);
    ~LayerShellSurface();
    LayerShellSurface(const LayerShellSurface&) = delete;
    LayerShellSurface& operator=(const LayerShellSurface&) = delete;

    // Re-places the surface; returns false when only a new surface can honour it (a layer change on a
    // compositor with layer-shell version 1).
    bool place(const LayerSurfacePlacement& placement);
    // Asks for a frame callback with the next commit.
    void requestFrame();
    // Commits what was attached, damaged and set, and sends it.
    void commit();
    bool isConfigured() const { return configured_; }
    bool isFramePending() const { return frame_ != nullptr; }
    wl_surface* surface() const { return surface_; }
    wl_output* output() const { return output_; }
    // The outputs the surface is shown on, as the compositor last said.
    const std::vector<wl_output*>& enteredOutputs() const { return entered_; }
    // Buffers from the next commit on are `scale` times the surface-local size (where the
    // compositor can be told; answers whether it could).
    bool setBufferScale(int scale);
    // Tells the compositor which of the buffer's pixels changed (all of them for a null rectangle).
    void damageBuffer(const QRect& pixels);
    const LayerSurfacePlacement& placement() const { return placement_; }

private:
    void applyPlacement(const LayerSurfacePlacement& placement);
    static void configure(void* data, zwlr_layer_surface_v1*, uint32_t serial, uint32_t width, uint32_t height);
    static void close(void* data, zwlr_layer_surface_v1*);
    static void done(void* data, wl_callback* callback, uint32_t);
    static void enter(void* data, wl_surface*, wl_output* output);
    static void leave(void* data, wl_surface*, wl_output* output);

    LayerShellConnection& connection_;
    Callbacks callbacks_;
    wl_output* output_;
    LayerSurfacePlacement placement_;
    wl_surface* surface_ = nullptr;
    zwlr_layer_surface_v1* layerSurface_ = nullptr;
    wl_callback* frame_ = nullptr;
    std::vector<wl_output*> entered_;
    bool configured_ = false;
};

}  // namespace lorvane
