#pragma once

#include "capture/ScreenCaptureAccess.h"

#include <QByteArray>

#include <memory>
#include <mutex>

namespace ostrel {

class X11Connection;

/// X11 lets whoever reaches the display see all of it: being able to connect is the permission. Any thread.
///
/// The connection is kept for the next check, which comes every 1.5 s for as long as the application runs: connecting
/// anew each time puts us to sleep five times and makes the server set up a client that is gone at once.
class X11ScreenCaptureAccess final : public ScreenCaptureAccess
{
public:
    /// The display that $DISPLAY names.
    X11ScreenCaptureAccess();
    /// @param display as in $DISPLAY
    explicit X11ScreenCaptureAccess(QByteArray display);
    ~X11ScreenCaptureAccess() override;

    /// Looks whether the connection of the last check still stands, which asks the server nothing; else connects, a
    /// few milliseconds. A server that does not answer for 5 s counts as out of reach.
    bool preflight() override;
    /// There is nobody to ask; the same as `preflight`.
    bool request() override;

private:
    bool stillStands() const;

    const QByteArray m_display;
    std::mutex m_mutex; ///< of what follows
    std::unique_ptr<X11Connection> m_connection;
};

} // namespace ostrel
