#include "platform/wlroots/WlrScreenCaptureAccess.h"

#include "platform/wlroots/WaylandOutputs.h"

#include <utility>

namespace ostrel {

WlrScreenCaptureAccess::WlrScreenCaptureAccess(QByteArray display) : m_display(std::move(display)) {}

bool WlrScreenCaptureAccess::preflight()
{
    auto connection = WaylandConnection::open(m_display);
    if (!connection)
        return false;
    const auto outputs = WaylandOutputs::open(std::move(*connection));
    return outputs && (*outputs)->offersScreencopy();
}

bool WlrScreenCaptureAccess::request()
{
    return preflight();
}

} // namespace ostrel
