#pragma once

#include <QRect>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <xcb/xfixes.h>

namespace ostrel {

class X11Connection;

/// The pointer's picture, which the screen's own picture lacks. One thread at a time.
class X11Cursor
{
public:
    /// Asks for the XFixes extension; one round trip. Without it there is no cursor in any picture.
    explicit X11Cursor(std::shared_ptr<X11Connection> connection);

    /// A request on its way.
    struct Request {
        xcb_xfixes_get_cursor_image_cookie_t cookie;
        bool sent = false;
    };
    Request request() const;

    /// Collects the answer and draws the cursor where it is.
    /// @param pixels rows of B, G, R and an unused byte, `stride` bytes apart, that show `area`
    /// @param area   of the X screen, in pixels
    void draw(Request request, std::uint8_t *pixels, std::ptrdiff_t stride, const QRect &area) const;
    /// Takes back a request whose answer is not wanted.
    void discard(Request request) const;

private:
    std::shared_ptr<X11Connection> m_connection;
    bool m_isAvailable = false;
};

/// Draws premultiplied ARGB over opaque pixels. Parts outside the picture are left out.
/// @param cursor  rows of `place.width()` pixels without gaps
/// @param place   where the cursor lies, relative to the picture's top-left corner
/// @param picture the picture's size at (0,0)
void blendCursor(const std::uint32_t *cursor, const QRect &place, std::uint8_t *pixels, std::ptrdiff_t stride,
                 const QRect &picture);

} // namespace ostrel
