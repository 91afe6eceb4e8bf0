#pragma once

#include "platform/logind/LogindEvents.h"

#include "support/ManualClock.h"
#include "support/Printers.h"
#include "support/RunTask.h"
#include "support/ScopedVariable.h"
#include "support/SessionBus.h"
#include "support/TestLogind.h"

#include <QCoreApplication>
#include <QStringList>
#include <QThread>

#include <gmock/gmock.h>

#include <memory>
#include <optional>
#include <vector>

namespace ostrel {

/// Both buses, a logind on one of them, and the events that a recorder gets.
class LogindDesktop : public testing::Test
{
protected:
    void startLogind() { m_logind.emplace(m_systemBus); }

    LogindEvents::Buses buses() const
    {
        return {.system = m_systemBus.address(),
                .session = m_sessionBus.address(),
                .firstPause = std::chrono::milliseconds(20)};
    }

    /// Listens to everything, from now on.
    void listen() { listen(buses()); }
    void listen(const LogindEvents::Buses &buses)
    {
        auto clock = std::make_unique<ManualClock>([] { settleEvents(); });
        m_clock = clock.get();
        m_events = std::make_unique<LogindEvents>(buses, std::move(clock));
        const auto held = [this](const char *what) {
            return [this, what](std::shared_ptr<SystemHold> hold) {
                tell(what);
                m_holds.push_back(std::move(hold));
            };
        };
        QObject::connect(m_events.get(), &WorkspaceEvents::willSleep, m_events.get(), held("sleep"));
        QObject::connect(m_events.get(), &WorkspaceEvents::willShutDown, m_events.get(), held("shutdown"));
        QObject::connect(m_events.get(), &WorkspaceEvents::didWake, m_events.get(), [this] { tell("wake"); });
        QObject::connect(m_events.get(), &WorkspaceEvents::lockedChanged, m_events.get(), [this](bool isLocked) {
            EXPECT_EQ(m_events->isLocked(), isLocked);
            tell(isLocked ? "locked" : "unlocked");
        });
    }
    /// The same, and waits until logind has been told to wait for us.
    void listenToLogind()
    {
        startLogind();
        listen();
        expectInhibitors(1);
    }

    void expectTold(const QStringList &told)
    {
        EXPECT_TRUE(pumpUntil([&] { return m_told.size() >= told.size(); }));
        EXPECT_EQ(m_told, told);
    }
    void expectInhibitors(int count)
    {
        EXPECT_TRUE(pumpUntil([&] { return m_logind->inhibitorCount() == count; })) << m_logind->inhibitorCount();
    }

    SystemBus m_systemBus;
    SessionBus m_sessionBus;
    const ScopedVariable m_session{"XDG_SESSION_ID", QByteArray(TestLogind::sessionId)};
    std::optional<TestLogind> m_logind;
    ManualClock *m_clock = nullptr; ///< of the events
    std::unique_ptr<LogindEvents> m_events;
    QStringList m_told;
    std::vector<std::shared_ptr<SystemHold>> m_holds;

private:
    void tell(const char *what)
    {
        EXPECT_EQ(QThread::currentThread(), QCoreApplication::instance()->thread());
        m_told.append(QLatin1String(what));
    }
};

} // namespace ostrel
