#include "platform/x11/capture/X11Cursor.h"

#include "platform/x11/base/X11Connection.h"

#include <utility>
#include <xcb/xfixes.h>

namespace ostrel {

namespace {

/// @return the number of the event that tells a new shape
std::optional<std::uint8_t> selectShapes(X11Connection &connection)
{
    const auto firstEvent = connection.firstEventOf(xcb_xfixes_id);
    if (!firstEvent)
        return std::nullopt;
    // The server refuses every other request of the extension until it has been asked for its version.
    if (!connection.reply<xcb_xfixes_query_version_reply>(xcb_xfixes_query_version(connection.get(), 5, 0)))
        return std::nullopt;
    xcb_xfixes_select_cursor_input(connection.get(), connection.root(), XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR);
    return std::uint8_t(*firstEvent + XCB_XFIXES_CURSOR_NOTIFY);
}

std::optional<X11CursorImage> imageOf(const xcb_xfixes_get_cursor_image_reply_t &answer)
{
    if (xcb_xfixes_get_cursor_image_cursor_image_length(&answer) < answer.width * answer.height)
        return std::nullopt;
    const std::uint32_t *pixels = xcb_xfixes_get_cursor_image_cursor_image(&answer);
    return X11CursorImage{
        .place = QRect(answer.x - answer.xhot, answer.y - answer.yhot, answer.width, answer.height),
        .pixels = {pixels, pixels + std::size_t(answer.width) * answer.height},
    };
}

} // namespace

X11Cursor::X11Cursor(std::shared_ptr<X11Connection> connection,
                     std::function<std::chrono::milliseconds()> monotonicTime, std::chrono::milliseconds rest)
    : m_connection(std::move(connection)), m_monotonicTime(std::move(monotonicTime)),
      m_shapeEvent(selectShapes(*m_connection)), m_pointer(m_connection, rest),
      m_events(m_connection, [this](const auto &event) { handle(event); })
{}

std::optional<X11CursorImage> X11Cursor::current(QPoint corner)
{
    if (!m_shapeEvent)
        return std::nullopt;
    m_connection->dispatchEvents();
    if (!isKnown())
        ask();
    std::optional<X11CursorImage> cursor = m_cursor;
    if (cursor)
        cursor->place.translate(-corner);
    return cursor;
}

bool X11Cursor::isKnown() const
{
    return !m_hasNewShape && m_pointer.hasStayed() && m_monotonicTime() - m_askedAt < longestTrust;
}

void X11Cursor::ask()
{
    // First: what is told from now on is told of a later pointer, or needlessly, but not too early.
    m_hasNewShape = false;
    m_pointer.mark();
    m_askedAt = m_monotonicTime();
    const auto sent = xcb_xfixes_get_cursor_image(m_connection->get());
    const auto answer = m_connection->reply<xcb_xfixes_get_cursor_image_reply>(sent);
    m_cursor = answer ? imageOf(*answer) : std::nullopt;
}

void X11Cursor::handle(const xcb_generic_event_t &event)
{
    if (typeOf(event) == m_shapeEvent)
        m_hasNewShape = true;
}

} // namespace ostrel
