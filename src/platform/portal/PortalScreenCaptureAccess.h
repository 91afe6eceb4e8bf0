#pragma once

#include "capture/ScreenCaptureAccess.h"

#include <memory>

namespace ostrel {

class ScreenCastPortal;

/// The user's answer to the desktop portal's question is the permission. It is kept for later runs.
class PortalScreenCaptureAccess final : public ScreenCaptureAccess
{
public:
    explicit PortalScreenCaptureAccess(std::shared_ptr<ScreenCastPortal> portal);
    ~PortalScreenCaptureAccess() override;

    bool preflight() override;
    /// Opens the desktop's dialog, unless what was granted before is still good; blocks until it is answered.
    bool request() override;

private:
    const std::shared_ptr<ScreenCastPortal> m_portal;
};

} // namespace ostrel
