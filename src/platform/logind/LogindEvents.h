#pragma once

#include "base/Clock.h"
#include "base/Mailbox.h"
#include "capture/WorkspaceEvents.h"
#include "platform/logind/LockState.h"
#include "platform/logind/WorkspaceNews.h"

#include <QByteArray>

#include <chrono>
#include <functional>
#include <memory>

namespace ostrel {

class BusThread;

/// Sleep, shutdown and the session's lock, as logind tells them on the system bus and screen savers on the session bus.
/// Each bus is listened to on a thread of its own, from the moment on when somebody connects to one of the signals:
/// commands that don't care cost nothing. Where a bus or a service is missing, hangs or ends, nothing is told, it is
/// looked for again, and nobody waits. Main thread.
///
/// A request to lock the session counts as the lock. Where nobody confirms it in time, there is no locker that tells,
/// and the session counts as unlocked again: else nothing would be recorded ever after.
class LogindEvents final : public WorkspaceEvents
{
    Q_OBJECT

public:
    struct Buses {
        QByteArray system;
        QByteArray session;                         ///< empty where there is none
        std::chrono::milliseconds firstPause{1000}; ///< before a lost bus is looked for
    };

    static constexpr std::chrono::seconds confirmationPatience{10};

    /// The buses that the environment names.
    static Buses environmentBuses();

    explicit LogindEvents(Buses buses = environmentBuses(),
                          std::unique_ptr<Clock> clock = std::make_unique<SystemClock>());
    LogindEvents(const LogindEvents &) = delete;
    LogindEvents &operator=(const LogindEvents &) = delete;
    ~LogindEvents() override;

    bool isLocked() const override { return m_isLocked; }

protected:
    void connectNotify(const QMetaMethod &signal) override;

private:
    void start();
    void receive(const News::WillSleep &news);
    void receive(const News::DidWake &news);
    void receive(const News::WillShutDown &news);
    void receive(const News::LockRequest &news);
    void receive(const News::Lock &news);
    void lockStateChanged();

    const Buses m_buses;
    const std::unique_ptr<Clock> m_clock;
    LockState m_lockState;
    bool m_isLocked = false;               ///< as it was told
    std::function<void()> m_withdrawTimer; ///< there while an open request is waited for
    Mailbox m_news;
    std::unique_ptr<BusThread> m_systemBus;
    std::unique_ptr<BusThread> m_sessionBus;
};

} // namespace ostrel
