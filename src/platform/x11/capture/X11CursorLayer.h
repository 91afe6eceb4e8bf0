#pragma once

#include "capture/DisplaySource.h"
#include "platform/x11/capture/X11Cursor.h"

#include <QSize>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace ostrel {

/// A cursor drawn over a picture, and what lies under it: so the picture can be had back without asking the server
/// again. Pure work on pixels: rows of B, G, R and an unused byte, `stride` bytes apart.
class X11CursorLayer
{
public:
    /// @param size of all pictures that it is used on
    explicit X11CursorLayer(QSize size) : m_picture(QPoint(0, 0), size) {}

    /// Whether drawing this cursor instead of the present one leaves every pixel as it is.
    bool shows(const std::optional<X11CursorImage> &cursor) const;
    /// The rows that the present cursor lies on; none when there is none or it lies outside.
    std::optional<RowRange> rows() const;

    /// Puts what lies under the cursor back. Without a cursor there is nothing to do.
    void lift(std::uint8_t *pixels, std::ptrdiff_t stride);
    /// Draws a cursor and keeps what it covers. The one before has been lifted or forgotten.
    void lower(std::optional<X11CursorImage> cursor, std::uint8_t *pixels, std::ptrdiff_t stride);
    /// Says that the whole picture has been overwritten, the cursor with it.
    void forget() { m_cursor.reset(); }

private:
    QRect visible(const X11CursorImage &cursor) const { return cursor.place & m_picture; }

    const QRect m_picture;
    std::optional<X11CursorImage> m_cursor;
    std::vector<std::uint8_t> m_under; ///< what the visible part of the cursor covers, without gaps
};

/// Draws premultiplied ARGB over opaque pixels. Parts outside the picture are left out.
void blendCursor(const X11CursorImage &cursor, std::uint8_t *pixels, std::ptrdiff_t stride, const QRect &picture);

} // namespace ostrel
