#include "platform/x11/capture/X11CursorLayer.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace ostrel {

namespace {

constexpr std::ptrdiff_t bytesPerPixel = 4;

/// One channel: `source` is premultiplied, `alpha` its coverage.
std::uint8_t over(std::uint32_t source, std::uint32_t below, std::uint32_t alpha)
{
    constexpr std::uint32_t opaque = 255;
    // Not every cursor is premultiplied as it should be; too bright ones must not wrap around.
    return std::uint8_t(std::min(opaque, source + (below * (opaque - alpha) + opaque / 2) / opaque));
}

} // namespace

void blendCursor(const X11CursorImage &cursor, std::uint8_t *pixels, std::ptrdiff_t stride, const QRect &picture)
{
    const QRect &place = cursor.place;
    const QRect visible = place & picture;
    for (int y = visible.top(); y <= visible.bottom(); ++y) {
        const std::uint32_t *source = cursor.pixels.data() + std::ptrdiff_t(y - place.top()) * place.width();
        std::uint8_t *row = pixels + y * stride;
        for (int x = visible.left(); x <= visible.right(); ++x) {
            const std::uint32_t argb = source[x - place.left()];
            const std::uint32_t alpha = argb >> 24;
            std::uint8_t *pixel = row + x * bytesPerPixel;
            for (int channel = 0; channel < 3; ++channel) // blue, green, red: from the low end of ARGB
                pixel[channel] = over((argb >> (8 * channel)) & 0xff, pixel[channel], alpha);
        }
    }
}

bool X11CursorLayer::shows(const std::optional<X11CursorImage> &cursor) const
{
    const bool isSeen = cursor && !visible(*cursor).isEmpty();
    return rows().has_value() == isSeen && (!isSeen || m_cursor == cursor);
}

std::optional<RowRange> X11CursorLayer::rows() const
{
    if (!m_cursor)
        return std::nullopt;
    const QRect seen = visible(*m_cursor);
    if (seen.isEmpty())
        return std::nullopt;
    return RowRange{.begin = seen.top(), .end = seen.bottom() + 1};
}

void X11CursorLayer::lift(std::uint8_t *pixels, std::ptrdiff_t stride)
{
    if (!m_cursor)
        return;
    const QRect seen = visible(*m_cursor);
    const std::ptrdiff_t rowBytes = seen.width() * bytesPerPixel;
    for (int y = seen.top(); y <= seen.bottom(); ++y)
        std::memcpy(pixels + y * stride + seen.left() * bytesPerPixel, &m_under[std::size_t(y - seen.top()) * rowBytes],
                    std::size_t(rowBytes));
    m_cursor.reset();
}

void X11CursorLayer::lower(std::optional<X11CursorImage> cursor, std::uint8_t *pixels, std::ptrdiff_t stride)
{
    m_cursor = std::move(cursor);
    if (!m_cursor)
        return;
    const QRect seen = visible(*m_cursor);
    const std::ptrdiff_t rowBytes = seen.width() * bytesPerPixel;
    m_under.resize(std::size_t(rowBytes) * std::size_t(seen.height()));
    for (int y = seen.top(); y <= seen.bottom(); ++y)
        std::memcpy(&m_under[std::size_t(y - seen.top()) * rowBytes], pixels + y * stride + seen.left() * bytesPerPixel,
                    std::size_t(rowBytes));
    blendCursor(*m_cursor, pixels, stride, m_picture);
}

} // namespace ostrel
