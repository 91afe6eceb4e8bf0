#include "platform/x11/capture/X11Cursor.h"

#include "platform/x11/base/X11Connection.h"

#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

bool queryXFixes(X11Connection &connection)
{
    const auto *extension = xcb_get_extension_data(connection.get(), &xcb_xfixes_id);
    if (!extension || !extension->present)
        return false;
    // The server refuses every other request of the extension until it has been asked for its version.
    return connection.reply<xcb_xfixes_query_version_reply>(xcb_xfixes_query_version(connection.get(), 5, 0)) !=
           nullptr;
}

/// One channel: `source` is premultiplied, `alpha` its coverage.
std::uint8_t over(std::uint32_t source, std::uint32_t below, std::uint32_t alpha)
{
    constexpr std::uint32_t opaque = 255;
    // Not every cursor is premultiplied as it should be; too bright ones must not wrap around.
    return std::uint8_t(std::min(opaque, source + (below * (opaque - alpha) + opaque / 2) / opaque));
}

} // namespace

void blendCursor(const std::uint32_t *cursor, const QRect &place, std::uint8_t *pixels, std::ptrdiff_t stride,
                 const QRect &picture)
{
    const QRect visible = place & picture;
    for (int y = visible.top(); y <= visible.bottom(); ++y) {
        const std::uint32_t *source = cursor + std::ptrdiff_t(y - place.top()) * place.width();
        std::uint8_t *row = pixels + y * stride;
        for (int x = visible.left(); x <= visible.right(); ++x) {
            const std::uint32_t argb = source[x - place.left()];
            const std::uint32_t alpha = argb >> 24;
            std::uint8_t *pixel = row + std::ptrdiff_t(x) * 4;
            for (int channel = 0; channel < 3; ++channel) // blue, green, red: from the low end of ARGB
                pixel[channel] = over((argb >> (8 * channel)) & 0xff, pixel[channel], alpha);
        }
    }
}

X11Cursor::X11Cursor(std::shared_ptr<X11Connection> connection)
    : m_connection(std::move(connection)), m_isAvailable(queryXFixes(*m_connection))
{}

X11Cursor::Request X11Cursor::request() const
{
    if (!m_isAvailable)
        return {};
    return {.cookie = xcb_xfixes_get_cursor_image(m_connection->get()), .sent = true};
}

void X11Cursor::draw(Request request, std::uint8_t *pixels, std::ptrdiff_t stride, const QRect &area) const
{
    if (!request.sent)
        return;
    const auto image = m_connection->reply<xcb_xfixes_get_cursor_image_reply>(request.cookie);
    if (!image || xcb_xfixes_get_cursor_image_cursor_image_length(image.get()) < image->width * image->height)
        return;
    const QRect place(image->x - image->xhot - area.x(), image->y - image->yhot - area.y(), image->width,
                      image->height);
    blendCursor(xcb_xfixes_get_cursor_image_cursor_image(image.get()), place, pixels, stride,
                QRect(QPoint(0, 0), area.size()));
}

void X11Cursor::discard(Request request) const
{
    if (request.sent)
        xcb_discard_reply(m_connection->get(), request.cookie.sequence);
}

} // namespace ostrel
