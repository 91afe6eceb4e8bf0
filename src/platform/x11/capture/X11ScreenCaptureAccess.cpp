#include "platform/x11/capture/X11ScreenCaptureAccess.h"

#include "platform/x11/base/X11Connection.h"

#include <utility>

namespace ostrel {

X11ScreenCaptureAccess::X11ScreenCaptureAccess() = default;

X11ScreenCaptureAccess::X11ScreenCaptureAccess(QByteArray display) : m_display(std::move(display)) {}

bool X11ScreenCaptureAccess::preflight()
{
    return X11Connection::open(m_display).has_value();
}

bool X11ScreenCaptureAccess::request()
{
    return preflight();
}

} // namespace ostrel
