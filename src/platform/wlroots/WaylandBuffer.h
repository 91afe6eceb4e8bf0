#pragma once

#include "base/Error.h"
#include "platform/wlroots/WaylandHandles.h"

#include <QSize>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace ostrel {

/// How a compositor lays out a picture in memory.
struct WaylandPixelLayout {
    std::uint32_t format = 0;  ///< of wl_shm
    QSize size;                ///< pixels
    std::ptrdiff_t stride = 0; ///< bytes from row to row

    bool operator==(const WaylandPixelLayout &) const = default;
};

/// Memory that the compositor writes a picture into.
class WaylandBuffer
{
public:
    /// @return Fault::PictureRefused when there is no memory to share
    static Result<std::unique_ptr<WaylandBuffer>> make(wl_shm *sharedMemory, const WaylandPixelLayout &layout);
    ~WaylandBuffer();
    WaylandBuffer(const WaylandBuffer &) = delete;
    WaylandBuffer &operator=(const WaylandBuffer &) = delete;

    const WaylandPixelLayout &layout() const { return m_layout; }
    wl_buffer *get() const { return m_buffer.get(); }
    std::uint8_t *pixels() { return static_cast<std::uint8_t *>(m_memory); }
    const std::uint8_t *pixels() const { return static_cast<const std::uint8_t *>(m_memory); }

private:
    WaylandBuffer(WaylandPixelLayout layout, void *memory, std::size_t bytes, WaylandHandle<wl_buffer> buffer);

    WaylandPixelLayout m_layout;
    void *m_memory;
    std::size_t m_bytes;
    WaylandHandle<wl_buffer> m_buffer;
};

} // namespace ostrel
