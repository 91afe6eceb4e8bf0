#pragma once

#include "platform/sessionbus/BusCall.h"

#include <QByteArray>

#include <chrono>
#include <functional>
#include <memory>

namespace ostrel {

class BusSignals;

/// Whether a session of the portal's was closed, and by whom. GNOME closes one when the user ends the sharing, and just
/// so when a monitor of it is unplugged; then it also tells that its monitors have changed, a moment earlier or later.
/// That, and a monitor less than there was all the time before, counts as unplugged. All else is the user's wish.
///
/// One thread at a time, with the connection's main context as its default. What is told is noted as it comes, and the
/// compositor is asked for its monitors then, not when that thread gets round to it.
class SessionClosing
{
public:
    /// For how long a change of monitors may explain that a session is closed afterwards.
    static constexpr std::chrono::seconds changeHolds{5};
    /// What comes within this time of each other has one cause: nobody unplugs a monitor and ends the sharing in it.
    static constexpr std::chrono::milliseconds oneCauseWithin{500};

    struct Timing {
        std::function<std::chrono::milliseconds()> monotonicTime; ///< any thread
        std::chrono::milliseconds patience;                       ///< for a change that is told after the closing
    };

    /// Blocks until the bus, and on GNOME the shell, have answered.
    SessionClosing(const BusLine &line, const QByteArray &session, Timing timing);
    SessionClosing(const SessionClosing &) = delete;
    SessionClosing &operator=(const SessionClosing &) = delete;
    ~SessionClosing();

    /// Whether the portal would be heard.
    bool isListening() const;
    bool isClosed() const;
    /// Whether the reason can be told, for a session that is closed: all that may be said of it was said, or the time
    /// for that is over.
    bool isExplained() const;

    enum class Reason {
        UsersWish,
        UnpluggedMonitor,
        Either, ///< a monitor was unplugged at about that time
    };
    /// As far as is known by now, for a session that is closed.
    Reason reason() const;

private:
    struct Notes;

    void listen(const QByteArray &session, const QByteArray &portal, const QByteArray &shell);

    const BusLine m_line;
    std::shared_ptr<Notes> m_notes;
    guint m_filter = 0;
    std::unique_ptr<BusSignals> m_signals;
};

} // namespace ostrel
