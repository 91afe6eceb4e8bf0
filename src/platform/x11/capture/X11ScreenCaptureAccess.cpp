#include "platform/x11/capture/X11ScreenCaptureAccess.h"

#include "platform/x11/base/X11Connection.h"

#include <utility>

namespace ostrel {

X11ScreenCaptureAccess::X11ScreenCaptureAccess() = default;

X11ScreenCaptureAccess::X11ScreenCaptureAccess(QByteArray display) : m_display(std::move(display)) {}

X11ScreenCaptureAccess::~X11ScreenCaptureAccess() = default;

bool X11ScreenCaptureAccess::preflight()
{
    const std::scoped_lock lock(m_mutex);
    if (stillStands())
        return true;
    m_connection.reset();
    if (auto opened = X11Connection::open(m_display))
        m_connection = std::move(*opened);
    return m_connection != nullptr;
}

/// A server that has gone is found out by reading what it sent last.
bool X11ScreenCaptureAccess::stillStands() const
{
    if (!m_connection)
        return false;
    m_connection->dispatchEvents();
    return !m_connection->isBroken();
}

bool X11ScreenCaptureAccess::request()
{
    return preflight();
}

} // namespace ostrel
