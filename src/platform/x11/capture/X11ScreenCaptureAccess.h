#pragma once

#include "capture/ScreenCaptureAccess.h"

#include <QByteArray>

namespace ostrel {

/// X11 lets whoever reaches the display see all of it: being able to connect is the permission.
class X11ScreenCaptureAccess final : public ScreenCaptureAccess
{
public:
    /// The display that $DISPLAY names at each check.
    X11ScreenCaptureAccess();
    /// @param display as in $DISPLAY
    explicit X11ScreenCaptureAccess(QByteArray display);

    /// Connects anew; a few milliseconds. A server that does not answer for 5 s counts as out of reach.
    bool preflight() override;
    /// There is nobody to ask; the same as `preflight`.
    bool request() override;

private:
    const QByteArray m_display;
};

} // namespace ostrel
