#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <xcb/shm.h>

namespace ostrel {

class X11Connection;

/// Memory that the X server writes pictures into. It is gone when the last of both has let go, however they end.
class X11SharedSegment
{
public:
    /// A few round trips. @param bytes at least 4
    /// @return null when the server can't reach our memory
    static std::unique_ptr<X11SharedSegment> attach(std::shared_ptr<X11Connection> connection, std::size_t bytes);

    ~X11SharedSegment();
    X11SharedSegment(const X11SharedSegment &) = delete;
    X11SharedSegment &operator=(const X11SharedSegment &) = delete;

    xcb_shm_seg_t id() const { return m_id; }
    std::uint8_t *memory() const { return m_memory; }

private:
    X11SharedSegment(std::shared_ptr<X11Connection> connection, std::uint8_t *memory);
    bool isSeenByServer() const;

    std::shared_ptr<X11Connection> m_connection;
    std::uint8_t *m_memory;
    xcb_shm_seg_t m_id;
};

} // namespace ostrel
