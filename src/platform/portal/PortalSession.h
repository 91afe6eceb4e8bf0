#pragma once

#include "base/Error.h"
#include "platform/portal/PortalBus.h"
#include "platform/portal/PortalGrantFile.h"
#include "platform/portal/PortalMonitors.h"
#include "platform/portal/PortalSeams.h"

#include <QList>
#include <QPoint>
#include <QSize>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

namespace ostrel {

class BusSignals;
class SessionClosing;

/// A monitor that the user lets us see, as the portal describes it. What it doesn't tell is absent or empty.
struct PortalStreamFacts {
    quint32 node = 0; ///< in the session's part of PipeWire
    QString id;       ///< the same in every session that a restore token opens
    std::optional<QPoint> corner;
    std::optional<QSize> logicalSize;
};

/// Our right to see the screens, from the user's consent until somebody ends it. One thread at a time, but not always
/// the same.
class PortalSession
{
public:
    struct Opening {
        PortalSeams seams; ///< with the address of a bus
        /// With what, while these monitors are there; without a token the user is asked. Called once.
        std::function<PortalGrantFile::Grant(const ToldMonitors &now)> grantFor;
        GCancellable *interrupt;                         ///< ends the waiting, from any thread
        std::function<void(const Error &)> onUnanswered; ///< the user has not answered, and is asked no more
    };

    /// Blocks for the user's answer, unless the token is good.
    /// @return Fault::NoScreenPortal, TimedOut, Cancelled, PictureRefused; ScreenCaptureDeclined by the user,
    ///         ScreenQuestionUnanswered
    static Result<std::unique_ptr<PortalSession>> open(const Opening &opening);
    PortalSession(const PortalSession &) = delete;
    PortalSession &operator=(const PortalSession &) = delete;
    ~PortalSession();

    const QList<PortalStreamFacts> &streams() const { return m_streams; }
    /// For the next session; empty where the desktop gives none.
    const QString &restoreToken() const { return m_restoreToken; }
    /// The monitors that there were to choose from when the user was asked, now or earlier, by name and in order; empty
    /// where nobody told.
    const QStringList &monitors() const { return m_monitors; }

    /// A connection to PipeWire on which the streams, and nothing else, can be seen. The caller closes it.
    /// @return Fault::NoScreenPortal
    Result<int> openPipeWire();

    enum class State {
        Open,
        Unexplained, ///< it is over, and by whose wish may be told in a moment
        Ended,       ///< by the user, or by the desktop in the user's place
        Unplugged,   ///< a monitor has gone, and so the desktop has ended it
        Doubtful,    ///< a monitor has gone at about that time; the user may have ended it all the same
        Lost,        ///< the portal or the bus has gone
    };
    /// As far as signals tell that have come by now. Waits for none.
    State state();
    /// The same, but waits a moment for the session's end, if it has not ended, and for its reason: Open says that it
    /// goes on.
    /// @param interrupt ends the waiting, from any thread
    State explainedState(GCancellable *interrupt);

private:
    PortalSession(std::unique_ptr<PortalBus> bus, const PortalSeams &seams);
    Result<> create();
    Result<PortalResponse> askForSession();
    Result<> selectMonitors(const QString &restoreToken);
    Result<> startStreams(const std::function<void(const Error &)> &onUnanswered);
    Result<> listen();
    State end();
    bool isClosed() const;
    bool isLost() const { return m_isPortalGone || m_bus->isClosed(); }

    const std::unique_ptr<PortalBus> m_bus;
    const PortalSeams m_seams;
    std::unique_ptr<SessionClosing> m_closing;
    std::unique_ptr<BusSignals> m_signals;
    QByteArray m_handle;
    QList<PortalStreamFacts> m_streams;
    QStringList m_monitors;
    QString m_restoreToken;
    bool m_isPortalGone = false;
    std::optional<State> m_end; ///< when it is explained
};

} // namespace ostrel
