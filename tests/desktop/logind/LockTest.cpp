#include "LogindFixture.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const QString locked = QStringLiteral("locked");
const QString unlocked = QStringLiteral("unlocked");

const MockService::Object screenSaver{.service = "org.freedesktop.ScreenSaver",
                                      .path = "/org/freedesktop/ScreenSaver",
                                      .interface = "org.freedesktop.ScreenSaver"};
const MockService::Object gnomeScreenSaver{
    .service = "org.gnome.ScreenSaver", .path = "/org/gnome/ScreenSaver", .interface = "org.gnome.ScreenSaver"};

class Lock : public LogindDesktop
{
protected:
    static void tellActive(MockService &saver, bool isActive)
    {
        saver.emitSignal("ActiveChanged", "b", isActive ? "[<true>]" : "[<false>]");
    }
    /// Where logind finds our session by something else than its name.
    void forgetSessionName() { m_noName = std::make_unique<ScopedVariable>("XDG_SESSION_ID", std::nullopt); }
    /// The lock is followed a moment after the inhibitor was taken: hints before that are read, requests would be lost.
    void listenToLock()
    {
        listenToLogind();
        m_logind->setLockedHint(true);
        expectTold({locked});
        m_logind->setLockedHint(false);
        expectTold({locked, unlocked});
        m_told.clear();
    }

private:
    std::unique_ptr<ScopedVariable> m_noName;
};

TEST_F(Lock, request_isToldUntilItsEnd)
{
    listenToLock();
    m_logind->requestLock(true);
    expectTold({locked});
    EXPECT_TRUE(m_events->isLocked());
    m_logind->requestLock(false);
    expectTold({locked, unlocked});
    EXPECT_FALSE(m_events->isLocked());
}

TEST_F(Lock, requestThatNobodyConfirms_endsWhenTheTimeIsOver)
{
    listenToLock();
    m_logind->requestLock(true);
    expectTold({locked});
    m_clock->advance(LogindEvents::confirmationPatience - 1ms);
    EXPECT_TRUE(m_events->isLocked());
    m_clock->advance(1ms);
    EXPECT_FALSE(m_events->isLocked());
    expectTold({locked, unlocked});
    m_logind->requestLock(true);
    expectTold({locked, unlocked, locked});
}

TEST_F(Lock, requestThatTheLockerConfirms_lastsUntilTheLockerSaysOtherwise)
{
    listenToLock();
    m_logind->requestLock(true);
    expectTold({locked});
    m_logind->setLockedHint(true);
    EXPECT_TRUE(pumpUntil([this] { return m_clock->pendingTimerCount() == 0; })) << "nothing is waited for any more";
    m_clock->advance(1h);
    EXPECT_TRUE(m_events->isLocked());
    m_logind->setLockedHint(false);
    expectTold({locked, unlocked});
}

TEST_F(Lock, lockedBeforeItIsListenedTo_isTold)
{
    startLogind();
    m_logind->setLockedHint(true);
    listen();
    expectTold({locked});
}

TEST_F(Lock, sessionOfAnother_isNobodysBusiness)
{
    listenToLock();
    m_logind->service().call({.service = "org.freedesktop.login1",
                              .path = "/org/freedesktop/login1",
                              .interface = "org.freedesktop.DBus.Mock"},
                             "AddSession", "('c8','seat0',uint32 1001,'other',true)");
    const MockService::Object other{.service = "org.freedesktop.login1",
                                    .path = "/org/freedesktop/login1/session/c8",
                                    .interface = "org.freedesktop.login1.Session"};
    m_logind->service().call(other, "Lock");
    m_logind->service().call(other, "SetLockedHint", "(true,)");
    m_logind->prepareForSleep(false);
    expectTold({QStringLiteral("wake")});
}

TEST_F(Lock, sessionThatIsNotNamed_isFoundByTheProcess)
{
    forgetSessionName();
    startLogind();
    m_logind->service().addMethod("GetSessionByPID", "u", "o",
                                  QByteArray("ret = '/org/freedesktop/login1/session/") + TestLogind::sessionId + '\'');
    m_logind->setLockedHint(true);
    listen();
    expectTold({locked});
}

TEST_F(Lock, processWithoutASession_followsTheOneOfItsUser)
{
    forgetSessionName();
    startLogind();
    // The common name answers with the identifier of the session that stands behind it.
    m_logind->service().call({.service = "org.freedesktop.login1",
                              .path = "/org/freedesktop/login1",
                              .interface = "org.freedesktop.DBus.Mock"},
                             "AddObject",
                             QByteArray("('/org/freedesktop/login1/session/auto','org.freedesktop.login1.Session',"
                                        "{'Id': <'") +
                                 TestLogind::sessionId + "'>},@a(ssss) [])");
    m_logind->setLockedHint(true);
    listen();
    expectTold({locked});
}

TEST_F(Lock, noSession_leavesSleepToBeTold)
{
    forgetSessionName();
    listenToLogind();
    m_logind->prepareForSleep(true);
    expectTold({QStringLiteral("sleep")});
}

TEST_F(Lock, screenSavers_areAskedAndHeard)
{
    for (const auto &object : {screenSaver, gnomeScreenSaver}) {
        m_told.clear();
        MockService saver(m_sessionBus, object);
        saver.addMethod("GetActive", "", "b", "ret = True");
        listen();
        expectTold({locked});
        tellActive(saver, false);
        expectTold({locked, unlocked});
        tellActive(saver, true);
        expectTold({locked, unlocked, locked});
    }
}

TEST_F(Lock, screenSaverThatTellsFromItsOtherPath_isHeard)
{
    MockService saver(m_sessionBus,
                      {.service = screenSaver.service, .path = "/ScreenSaver", .interface = screenSaver.interface});
    saver.addMethod("GetActive", "", "b", "ret = True");
    MockService other(m_sessionBus, gnomeScreenSaver);
    other.addMethod("GetActive", "", "b", "ret = True");
    listen();
    expectTold({locked}); // by the other: it is listened to both now
    tellActive(saver, true);
    tellActive(other, false);
    tellActive(other, true);
    tellActive(saver, false);
    tellActive(other, false);
    expectTold({locked, unlocked});
}

TEST_F(Lock, screenSaverThatEndsOrComes_takesItsLockAlong)
{
    std::optional<MockService> saver;
    saver.emplace(m_sessionBus, screenSaver);
    saver->addMethod("GetActive", "", "b", "ret = True");
    listen();
    expectTold({locked});
    saver.reset();
    expectTold({locked, unlocked});
    saver.emplace(m_sessionBus, screenSaver);
    tellActive(*saver, true);
    expectTold({locked, unlocked, locked});
}

TEST_F(Lock, severalWhoSaySo_areLockedUntilTheLastSaysOtherwise)
{
    MockService saver(m_sessionBus, screenSaver);
    saver.addMethod("GetActive", "", "b", "ret = True");
    startLogind();
    m_logind->setLockedHint(true);
    listen();
    expectTold({locked});
    expectInhibitors(1);
    m_logind->prepareForSleep(false);
    expectTold({locked, QStringLiteral("wake")}); // whoever has heard that has read the hint before
    tellActive(saver, false);
    m_logind->setLockedHint(false);
    expectTold({locked, QStringLiteral("wake"), unlocked});
}

TEST_F(Lock, screenSaverThatTalksNonsense_isNotLocked)
{
    MockService saver(m_sessionBus, screenSaver);
    saver.addMethod("GetActive", "", "s", "ret = 'yes'");
    MockService other(m_sessionBus, gnomeScreenSaver);
    other.addMethod("GetActive", "", "b", "ret = True");
    listen();
    expectTold({locked}); // by the other, which is asked later
    saver.emitSignal("ActiveChanged", "s", "[<'yes'>]");
    tellActive(other, false);
    expectTold({locked, unlocked});
}

TEST_F(Lock, eventsDestroyedWhileLockedOrByWhoeverHearsIt_end)
{
    listenToLock();
    m_logind->requestLock(true);
    expectTold({locked});
    m_events.reset(); // with the timer of an open request
    auto events = std::make_unique<LogindEvents>(buses());
    QObject::connect(events.get(), &WorkspaceEvents::lockedChanged, qApp, [&events] { events.reset(); });
    m_logind->setLockedHint(true);
    EXPECT_TRUE(pumpUntil([&events] { return !events; }));
}

} // namespace
