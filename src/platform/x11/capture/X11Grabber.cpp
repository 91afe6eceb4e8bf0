#include "platform/x11/capture/X11Grabber.h"

#include "base/Fault.h"
#include "platform/x11/base/X11Connection.h"
#include "platform/x11/capture/X11SharedSegment.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>
#include <xcb/shm.h>

namespace ostrel {

namespace {

constexpr uint32_t allPlanes = std::numeric_limits<uint32_t>::max();

Error refusal(const X11Connection &connection, const X11Reply<xcb_generic_error_t> &error)
{
    if (connection.isBroken())
        return connection.brokenError();
    return faultError(Fault::PictureRefused, QStringLiteral("X error %1").arg(error ? error->error_code : 0));
}

/// The segment holds the picture and after it the rows of a look.
class SharedMemoryGrabber final : public X11Grabber
{
public:
    SharedMemoryGrabber(std::shared_ptr<X11Connection> connection, QSize size, X11PixelFormat format)
        : X11Grabber(size, format, connection->root()), m_connection(std::move(connection)),
          m_segment(X11SharedSegment::attach(m_connection, pictureBytes() + lookBytes()))
    {}

    bool isUsable() const { return m_segment != nullptr; }

    std::uint8_t *pixels() override { return m_segment->memory(); }

    void request(QPoint corner, std::span<const RowRange> rows) override
    {
        for (const RowRange &range : rows)
            m_sent.push_back(send(corner, range, std::size_t(range.begin) * std::size_t(m_stride)));
    }

    Result<> collect() override
    {
        Result<> outcome;
        for (const Cookie cookie : std::exchange(m_sent, {})) {
            if (auto written = collect(cookie); !written)
                outcome = written;
        }
        return outcome;
    }

    Result<const std::uint8_t *> look(QPoint corner, RowRange rows) override
    {
        if (const auto written = collect(send(corner, rows, pictureBytes())); !written)
            return std::unexpected(written.error());
        return m_segment->memory() + pictureBytes();
    }

private:
    using Cookie = xcb_shm_get_image_cookie_t;

    Cookie send(QPoint corner, RowRange rows, std::size_t offset)
    {
        return xcb_shm_get_image(m_connection->get(), m_source, int16_t(corner.x()), int16_t(corner.y() + rows.begin),
                                 uint16_t(m_size.width()), uint16_t(rows.end - rows.begin), allPlanes,
                                 XCB_IMAGE_FORMAT_Z_PIXMAP, m_segment->id(), uint32_t(offset));
    }

    Result<> collect(Cookie cookie)
    {
        const auto [written, error] = m_connection->replyOrError<xcb_shm_get_image_reply>(cookie);
        if (!written)
            return std::unexpected(refusal(*m_connection, error));
        return {};
    }

    const std::shared_ptr<X11Connection> m_connection;
    const std::unique_ptr<X11SharedSegment> m_segment;
    std::vector<Cookie> m_sent;
};

class WireGrabber final : public X11Grabber
{
public:
    WireGrabber(std::shared_ptr<X11Connection> connection, QSize size, X11PixelFormat format)
        : X11Grabber(size, format, connection->root()), m_connection(std::move(connection)),
          m_pixels(std::make_unique_for_overwrite<std::uint8_t[]>(pictureBytes()))
    {}

    std::uint8_t *pixels() override { return m_pixels.get(); }

    /// Only the first piece goes out now: a picture that is sent at once would take up its size once more on each side.
    void request(QPoint corner, std::span<const RowRange> rows) override
    {
        m_corner = corner;
        for (RowRange range : rows) {
            for (; range.begin < range.end; range.begin += longestLook())
                m_pieces.push_back({range.begin, std::min(range.end, range.begin + longestLook())});
        }
        if (!m_pieces.empty())
            m_sent = send(corner, m_pieces.front());
    }

    Result<> collect() override
    {
        const auto pieces = std::exchange(m_pieces, {});
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            if (const auto piece = collect(i == 0 ? m_sent : send(m_corner, pieces[i]), pieces[i]); !piece)
                return std::unexpected(piece.error());
            std::memcpy(m_pixels.get() + pieces[i].begin * m_stride, xcb_get_image_data(m_piece.get()),
                        bytesOf(pieces[i]));
        }
        m_piece.reset();
        return {};
    }

    Result<const std::uint8_t *> look(QPoint corner, RowRange rows) override
    {
        if (const auto piece = collect(send(corner, rows), rows); !piece)
            return std::unexpected(piece.error());
        return xcb_get_image_data(m_piece.get());
    }

private:
    std::size_t bytesOf(RowRange rows) const { return std::size_t(rows.end - rows.begin) * std::size_t(m_stride); }

    xcb_get_image_cookie_t send(QPoint corner, RowRange rows)
    {
        m_piece.reset(); // never two at a time
        return xcb_get_image(m_connection->get(), XCB_IMAGE_FORMAT_Z_PIXMAP, m_source, int16_t(corner.x()),
                             int16_t(corner.y() + rows.begin), uint16_t(m_size.width()),
                             uint16_t(rows.end - rows.begin), allPlanes);
    }

    Result<> collect(xcb_get_image_cookie_t cookie, RowRange rows)
    {
        auto [picture, error] = m_connection->replyOrError<xcb_get_image_reply>(cookie);
        if (!picture || std::size_t(xcb_get_image_data_length(picture.get())) < bytesOf(rows))
            return std::unexpected(refusal(*m_connection, error));
        m_piece = std::move(picture);
        return {};
    }

    const std::shared_ptr<X11Connection> m_connection;
    const std::unique_ptr<std::uint8_t[]> m_pixels;
    QPoint m_corner;
    std::vector<RowRange> m_pieces; ///< that have been asked for, but for the first not sent yet
    xcb_get_image_cookie_t m_sent{};
    X11Reply<xcb_get_image_reply_t> m_piece;
};

} // namespace

int X11Grabber::longestLook() const
{
    constexpr int parts = 32; // 3 percent of the picture's memory
    return std::max(1, m_size.height() / parts);
}

std::unique_ptr<X11Grabber> makeSharedMemoryGrabber(std::shared_ptr<X11Connection> connection, QSize size,
                                                    X11PixelFormat format)
{
    auto grabber = std::make_unique<SharedMemoryGrabber>(std::move(connection), size, format);
    return grabber->isUsable() ? std::move(grabber) : nullptr;
}

std::unique_ptr<X11Grabber> makeWireGrabber(std::shared_ptr<X11Connection> connection, QSize size,
                                            X11PixelFormat format)
{
    return std::make_unique<WireGrabber>(std::move(connection), size, format);
}

} // namespace ostrel
