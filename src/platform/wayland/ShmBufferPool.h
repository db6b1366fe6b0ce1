#pragma once
// Shared-memory buffers for drawing a Wayland surface on the CPU: premultiplied ARGB8888 images in
// memfd memory, each lent to the compositor on commit and taken back when it releases it. Each
// buffer remembers what it last held, so a frame redraws only what changed since then.

#include <QImage>
#include <QRect>
#include <memory>
#include <optional>
#include <vector>

#include "core/WaveColor.h"

struct wl_buffer;
struct wl_shm;
struct wl_surface;

namespace lorvane {

class ShmBufferPool {
public:
    struct Buffer {
        wl_buffer* buffer = nullptr;
        QImage image;  // over the shared memory, in Qt's premultiplied ARGB32 (ARGB8888 in memory)
        void* memory = nullptr;
        std::size_t bytes = 0;
        bool busy = false;  // lent to the compositor
        // What it held when last drawn: the panel's fill, and the pixels the wave reached.
        std::optional<RgbaColor> fill;
        QRect reach;
    };

    // Never more buffers than this; with all of them lent, a frame waits.
    static constexpr std::size_t maxBuffers = 3;

    explicit ShmBufferPool(wl_shm* shm) : shm_(shm) {}
    ~ShmBufferPool();
    ShmBufferPool(const ShmBufferPool&) = delete;
    ShmBufferPool& operator=(const ShmBufferPool&) = delete;

    // A buffer of `size` pixels the compositor does not hold, or null when none is free (or the
    // memory cannot be had).
    Buffer* acquire(QSize size);
    // Attaches `buffer` to `surface` (the caller damages and commits); it is busy until released.
    void lend(wl_surface* surface, Buffer& buffer);
    std::size_t count() const { return buffers_.size(); }

private:
    std::unique_ptr<Buffer> make(QSize size);
    static void destroy(Buffer& buffer);
    static void released(void* data, wl_buffer* buffer);

    wl_shm* shm_;
    std::vector<std::unique_ptr<Buffer>> buffers_;
};

}  // namespace lorvane
