#pragma once

#include "base/Error.h"
#include "platform/portal/PortalBus.h"

#include <QList>
#include <QPoint>
#include <QSize>
#include <QString>

#include <memory>
#include <optional>

namespace ostrel {

class BusSignals;

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
        QByteArray busAddress;
        QString restoreToken; ///< empty: the user is asked
        std::chrono::milliseconds patience;
        std::chrono::milliseconds userPatience;
        GCancellable *interrupt; ///< ends the waiting, from any thread
    };

    /// Blocks for the user's answer, unless the token is good.
    /// @return Fault::NoScreenPortal, TimedOut, Cancelled, PictureRefused; ScreenCaptureDeclined by the user
    static Result<std::unique_ptr<PortalSession>> open(const Opening &opening);
    PortalSession(const PortalSession &) = delete;
    PortalSession &operator=(const PortalSession &) = delete;
    ~PortalSession();

    const QList<PortalStreamFacts> &streams() const { return m_streams; }
    /// For the next session; empty where the desktop gives none.
    const QString &restoreToken() const { return m_restoreToken; }

    /// A connection to PipeWire on which the streams, and nothing else, can be seen. The caller closes it.
    /// @return Fault::NoScreenPortal
    Result<int> openPipeWire();

    enum class State {
        Open,
        Ended, ///< by the user, or by the desktop in the user's place
        Lost,  ///< the portal or the bus has gone
    };
    /// As far as signals tell that have come by now.
    State state();

private:
    explicit PortalSession(std::unique_ptr<PortalBus> bus);
    Result<> create();
    Result<PortalResponse> askForSession();
    Result<> selectMonitors(const QString &restoreToken);
    Result<> startStreams(std::chrono::milliseconds userPatience);
    void listen();

    const std::unique_ptr<PortalBus> m_bus;
    std::unique_ptr<BusSignals> m_signals;
    QByteArray m_handle;
    QList<PortalStreamFacts> m_streams;
    QString m_restoreToken;
    State m_state = State::Open;
};

} // namespace ostrel
