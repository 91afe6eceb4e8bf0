#include "platform/x11/capture/X11Grabber.h"

#include "base/Fault.h"
#include "platform/x11/base/X11Connection.h"
#include "platform/x11/capture/X11SharedSegment.h"

#include <limits>
#include <utility>
#include <xcb/shm.h>

namespace ostrel {

namespace {

constexpr uint32_t allPlanes = std::numeric_limits<uint32_t>::max();

Error refusal(const X11Connection &connection, const X11Reply<xcb_generic_error_t> &error)
{
    if (connection.isBroken())
        return faultError(Fault::NoXDisplay, QStringLiteral("the connection to it was lost"));
    return faultError(Fault::PictureRefused, QStringLiteral("X error %1").arg(error ? error->error_code : 0));
}

class SharedMemoryGrabber final : public X11Grabber
{
public:
    SharedMemoryGrabber(std::shared_ptr<X11Connection> connection, std::unique_ptr<X11SharedSegment> segment,
                        QSize size)
        : m_connection(std::move(connection)), m_segment(std::move(segment)), m_size(size)
    {}

    void request(QPoint corner) override
    {
        m_cookie = xcb_shm_get_image(m_connection->get(), m_connection->root(), int16_t(corner.x()),
                                     int16_t(corner.y()), uint16_t(m_size.width()), uint16_t(m_size.height()),
                                     allPlanes, XCB_IMAGE_FORMAT_Z_PIXMAP, m_segment->id(), 0);
    }

    Result<std::uint8_t *> collect() override
    {
        xcb_generic_error_t *error = nullptr;
        const X11Reply<xcb_shm_get_image_reply_t> written(
            xcb_shm_get_image_reply(m_connection->get(), m_cookie, &error));
        if (!written)
            return std::unexpected(refusal(*m_connection, X11Reply<xcb_generic_error_t>(error)));
        return m_segment->memory();
    }

    void discard() override { xcb_discard_reply(m_connection->get(), m_cookie.sequence); }

private:
    std::shared_ptr<X11Connection> m_connection;
    std::unique_ptr<X11SharedSegment> m_segment;
    QSize m_size;
    xcb_shm_get_image_cookie_t m_cookie{};
};

class WireGrabber final : public X11Grabber
{
public:
    WireGrabber(std::shared_ptr<X11Connection> connection, QSize size)
        : m_connection(std::move(connection)), m_size(size)
    {}

    void request(QPoint corner) override
    {
        m_picture.reset(); // never two pictures at a time
        m_cookie =
            xcb_get_image(m_connection->get(), XCB_IMAGE_FORMAT_Z_PIXMAP, m_connection->root(), int16_t(corner.x()),
                          int16_t(corner.y()), uint16_t(m_size.width()), uint16_t(m_size.height()), allPlanes);
    }

    Result<std::uint8_t *> collect() override
    {
        xcb_generic_error_t *error = nullptr;
        m_picture.reset(xcb_get_image_reply(m_connection->get(), m_cookie, &error));
        if (!m_picture)
            return std::unexpected(refusal(*m_connection, X11Reply<xcb_generic_error_t>(error)));
        return xcb_get_image_data(m_picture.get());
    }

    void discard() override { xcb_discard_reply(m_connection->get(), m_cookie.sequence); }

private:
    std::shared_ptr<X11Connection> m_connection;
    QSize m_size;
    xcb_get_image_cookie_t m_cookie{};
    X11Reply<xcb_get_image_reply_t> m_picture;
};

} // namespace

std::unique_ptr<X11Grabber> makeSharedMemoryGrabber(std::shared_ptr<X11Connection> connection, QSize size,
                                                    X11PixelFormat format)
{
    auto segment = X11SharedSegment::attach(connection, format.stride(size.width()) * std::size_t(size.height()));
    if (!segment)
        return nullptr;
    return std::make_unique<SharedMemoryGrabber>(std::move(connection), std::move(segment), size);
}

std::unique_ptr<X11Grabber> makeWireGrabber(std::shared_ptr<X11Connection> connection, QSize size)
{
    return std::make_unique<WireGrabber>(std::move(connection), size);
}

} // namespace ostrel
