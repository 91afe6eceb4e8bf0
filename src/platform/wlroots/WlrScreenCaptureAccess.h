#pragma once

#include "capture/ScreenCaptureAccess.h"

#include <QByteArray>

namespace ostrel {

/// A compositor that offers wlr-screencopy lets every program of the session use it: the offer is the permission.
class WlrScreenCaptureAccess final : public ScreenCaptureAccess
{
public:
    /// @param display as in $WAYLAND_DISPLAY; empty means that $WAYLAND_DISPLAY decides, at each check
    explicit WlrScreenCaptureAccess(QByteArray display = {});

    /// Connects anew; a few milliseconds. A compositor that does not answer for 5 s counts as out of reach.
    bool preflight() override;
    /// There is nobody to ask; the same as `preflight`.
    bool request() override;

private:
    const QByteArray m_display;
};

} // namespace ostrel
