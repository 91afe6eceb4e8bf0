#pragma once

#include "base/Error.h"
#include "capture/DisplaySource.h"
#include "platform/x11/capture/X11PixelFormat.h"

#include <QPoint>
#include <QSize>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <xcb/xproto.h>

namespace ostrel {

class X11Connection;

/// Keeps a picture of a rectangle of the root window, or of what stands in for it, and fetches rows of it anew, each to
/// where it belongs. Requests
/// are sent first and collected later, so that others can share their round trip. One thread at a time.
class X11Grabber
{
public:
    virtual ~X11Grabber() = default;

    /// The picture: rows of B, G, R and an unused byte, which may be drawn over. Noise until all rows were collected.
    virtual std::uint8_t *pixels() = 0;
    /// From one row to the next, in bytes.
    std::ptrdiff_t stride() const { return m_stride; }
    int height() const { return m_size.height(); }

    /// Where rows are read from: at first the root window, later any drawable of its depth.
    xcb_drawable_t source() const { return m_source; }
    void setSource(xcb_drawable_t source) { m_source = source; }

    /// Sends for rows of the picture. `collect` comes next; until then these rows must not be touched.
    /// @param corner of the rectangle in the source; pixels on the X screen where that is the root window
    virtual void request(QPoint corner, std::span<const RowRange> rows) = 0;
    /// Waits until the rows are in place. After a failure they are noise.
    /// @return Fault::PictureRefused where the rectangle is not all on the screen; Fault::NoXDisplay or
    ///         Fault::TimedOut when the connection is lost
    virtual Result<> collect() = 0;

    /// How many rows fit into one `look`.
    int longestLook() const;
    /// Fetches rows without touching the picture; one round trip.
    /// @return the first of them, `stride` bytes apart, until the next look; the errors of `collect`
    virtual Result<const std::uint8_t *> look(QPoint corner, RowRange rows) = 0;

protected:
    X11Grabber(QSize size, X11PixelFormat format, xcb_drawable_t source)
        : m_size(size), m_stride(std::ptrdiff_t(format.stride(size.width()))), m_source(source)
    {}

    std::size_t pictureBytes() const { return std::size_t(m_stride) * std::size_t(m_size.height()); }
    std::size_t lookBytes() const { return std::size_t(m_stride) * std::size_t(longestLook()); }

    const QSize m_size;
    const std::ptrdiff_t m_stride;
    xcb_drawable_t m_source;
};

/// Has the server write into memory that it shares with us: no picture passes through the connection.
/// @return null where that can't be had: a server elsewhere, without the extension, or in another container
std::unique_ptr<X11Grabber> makeSharedMemoryGrabber(std::shared_ptr<X11Connection> connection, QSize size,
                                                    X11PixelFormat format);

/// Has the picture sent over the connection: works with every server, and costs several times as much.
std::unique_ptr<X11Grabber> makeWireGrabber(std::shared_ptr<X11Connection> connection, QSize size,
                                            X11PixelFormat format);

} // namespace ostrel
