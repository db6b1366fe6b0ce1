#include "platform/wayland/ShmBufferPool.h"

#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>

#include <algorithm>

#include "core/Logging.h"

namespace lorvane {

ShmBufferPool::~ShmBufferPool() {
    for (auto& buffer : buffers_) destroy(*buffer);
}

void ShmBufferPool::destroy(Buffer& buffer) {
    if (buffer.buffer) wl_buffer_destroy(buffer.buffer);
    buffer.image = QImage();
    if (buffer.memory) munmap(buffer.memory, buffer.bytes);
    buffer.buffer = nullptr;
    buffer.memory = nullptr;
}

std::unique_ptr<ShmBufferPool::Buffer> ShmBufferPool::make(QSize size) {
    const int stride = size.width() * 4;
    const std::size_t bytes = static_cast<std::size_t>(stride) * static_cast<std::size_t>(size.height());
    const int fd = memfd_create("lorvane-wave", MFD_CLOEXEC);
    if (fd < 0) return nullptr;
    if (ftruncate(fd, static_cast<off_t>(bytes)) != 0) {
        close(fd);
        return nullptr;
    }
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) {
        close(fd);
        return nullptr;
    }
    auto buffer = std::make_unique<Buffer>();
    buffer->memory = memory;
    buffer->bytes = bytes;
    wl_shm_pool* pool = wl_shm_create_pool(shm_, fd, static_cast<int32_t>(bytes));
    buffer->buffer =
        wl_shm_pool_create_buffer(pool, 0, size.width(), size.height(), stride, WL_SHM_FORMAT_ARGB8888);
    // The buffer keeps the memory; neither the pool nor our descriptor is needed any more.
    wl_shm_pool_destroy(pool);
    close(fd);
    static const wl_buffer_listener listener{&ShmBufferPool::released};
    wl_buffer_add_listener(buffer->buffer, &listener, buffer.get());
    buffer->image = QImage(static_cast<uchar*>(memory), size.width(), size.height(), stride,
                           QImage::Format_ARGB32_Premultiplied);
    return buffer;
}

ShmBufferPool::Buffer* ShmBufferPool::acquire(QSize size) {
    if (size.isEmpty()) return nullptr;
    // Buffers of another size go once the compositor has given them back.
    for (auto it = buffers_.begin(); it != buffers_.end();) {
        if ((*it)->image.size() == size || (*it)->busy) {
            ++it;
            continue;
        }
        destroy(**it);
        it = buffers_.erase(it);
    }
    for (auto& buffer : buffers_) {
        if (!buffer->busy && buffer->image.size() == size) return buffer.get();
    }
    if (buffers_.size() >= maxBuffers) return nullptr;
    auto made = make(size);
    if (!made) {
        qCWarning(lcOverlay, "No shared memory for the wave's buffer");
        return nullptr;
    }
    buffers_.push_back(std::move(made));
    return buffers_.back().get();
}

void ShmBufferPool::lend(wl_surface* surface, Buffer& buffer) {
    wl_surface_attach(surface, buffer.buffer, 0, 0);
    buffer.busy = true;
}

void ShmBufferPool::released(void* data, wl_buffer*) {
    // One of an old size is destroyed by the next acquire (this listener cannot reach the pool).
    static_cast<Buffer*>(data)->busy = false;
}

}  // namespace lorvane
