#pragma once

#include "base/Error.h"

#include <QList>
#include <QPoint>
#include <QRect>
#include <QRectF>
#include <QString>

#include <optional>
#include <xcb/randr.h>

namespace ostrel {

class X11Connection;

/// One monitor of the X screen.
struct X11Monitor {
    /// 32-bit FNV-1a of the name, so that it survives restarts; of two names with one hash the later in the alphabet
    /// has it plus one.
    quint32 displayId = 0;
    QString name; ///< the connector's ("DP-1"), or the monitor's own where no connector belongs to it
    QRect pixels; ///< on the X screen: pixels from its top-left corner
    bool primary = false;

    bool operator==(const X11Monitor &) const = default;
};

/// All active monitors, in the server's order. Neither empty sizes nor duplicate identifiers occur.
struct X11MonitorLayout {
    QList<X11Monitor> monitors;
    /// Index of the main one: the primary; else the one at (0,0); else the first by (y, x). Absent without monitors.
    std::optional<qsizetype> mainIndex;

    /// The main monitor's corner on the X screen: what desktop coordinates count from.
    QPoint origin() const;
    /// From pixels on the X screen to desktop coordinates.
    QRectF toDesktop(const QRect &screenPixels) const;
};

/// Reads the monitors; two or three round trips. Where the server has no RandR 1.5 the whole X screen is one monitor.
/// @return Fault::NoXDisplay or Fault::TimedOut when the connection is lost
Result<X11MonitorLayout> readMonitors(X11Connection &connection);

/// Asks where the main monitor's corner is, for callers that place one thing on the desktop: sent at once, collected
/// later, one round trip.
class X11OriginRequest
{
public:
    explicit X11OriginRequest(X11Connection &connection);
    /// To be called once. (0,0) where the server has no RandR 1.5 or no monitor.
    QPoint collect();

private:
    X11Connection &m_connection;
    std::optional<xcb_randr_get_monitors_cookie_t> m_cookie;
};

/// Fills in `displayId` from the names.
void assignDisplayIds(QList<X11Monitor> &monitors);
/// The rule of `X11MonitorLayout::mainIndex`.
std::optional<qsizetype> mainMonitorIndex(const QList<X11Monitor> &monitors);

} // namespace ostrel
