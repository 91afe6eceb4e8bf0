#include "platform/portal/PortalScreenCaptureAccess.h"

#include "base/Log.h"
#include "platform/portal/PortalCast.h"
#include "platform/portal/ScreenCastPortal.h"

#include <utility>

namespace ostrel {

PortalScreenCaptureAccess::PortalScreenCaptureAccess(std::shared_ptr<ScreenCastPortal> portal)
    : m_portal(std::move(portal))
{}

PortalScreenCaptureAccess::~PortalScreenCaptureAccess() = default;

bool PortalScreenCaptureAccess::preflight()
{
    return m_portal->isGranted();
}

bool PortalScreenCaptureAccess::request()
{
    auto cast = m_portal->open(ScreenCastPortal::Asker::User);
    if (!cast) {
        qCWarning(logPlatform, "%s", qUtf8Printable(cast.error().localizedDescription));
        return false;
    }
    cast->reset();
    m_portal->releaseUnused();
    return true;
}

} // namespace ostrel
