#pragma once

#include "platform/sessionbus/BusCall.h"

#include <QByteArray>
#include <QSet>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace ostrel {

class BusSignals;

/// Whether a session of the portal's was closed, and by whom. GNOME closes one when the user ends the sharing, and just
/// so when a monitor of it is unplugged; then it also tells that its monitors have changed, a moment earlier or later.
/// That, and a monitor less than there was at first, counts as unplugged. All else is the user's wish.
///
/// One thread at a time, with the connection's main context as its default. When something was told is noted as it
/// comes, not when that thread gets round to it.
class SessionClosing
{
public:
    /// For how long a change of monitors may explain that a session is closed afterwards.
    static constexpr std::chrono::seconds changeHolds{5};

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
    /// Whether that was because a monitor was unplugged, as far as is known by now. May ask the shell, and waits for
    /// its answer.
    bool isByUnpluggedMonitor();

private:
    struct Notes;
    using Monitors = QSet<QByteArray>;

    void listen(const QByteArray &session, const QByteArray &portal, const QByteArray &shell);
    bool hasMonitorsChanged() const;
    std::optional<Monitors> readMonitors() const;

    const BusLine m_line;
    const std::chrono::milliseconds m_patience;
    std::shared_ptr<Notes> m_notes;
    guint m_filter = 0;
    std::unique_ptr<BusSignals> m_signals;
    std::optional<Monitors> m_monitors; ///< at first; absent where nobody tells
};

} // namespace ostrel
