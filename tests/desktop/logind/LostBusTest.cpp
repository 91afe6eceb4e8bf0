#include "LogindFixture.h"

#include "support/LogRecorder.h"

#include <QElapsedTimer>

using namespace ostrel;

namespace {

using LostBus = LogindDesktop;

const QString sleep = QStringLiteral("sleep");
const QString wake = QStringLiteral("wake");
const QString locked = QStringLiteral("locked");
const QString unlocked = QStringLiteral("unlocked");

/// More than anything takes that waits for nobody, on a busy machine.
constexpr int promptlyMs = 1500;

TEST_F(LostBus, noBusesAtAll_tellNothingAndHoldNobodyUp)
{
    LogRecorder log("com.tamsk.ostrel.Platform");
    for (const QByteArray &address :
         {QByteArray("unix:path=/nonexistent/bus"), QByteArray("disabled:"), QByteArray("nonsense"), QByteArray()}) {
        listen({.system = address, .session = {}, .firstPause = std::chrono::milliseconds(1)});
        QStringList lines;
        ASSERT_TRUE(pumpUntil([&] { return !(lines += log.take(QtInfoMsg)).isEmpty(); }));
        EXPECT_TRUE(lines.first().startsWith(QStringLiteral("The system bus can't be reached: ")));
        m_events.reset();
        EXPECT_EQ(log.take(QtInfoMsg), QStringList()) << "it is said once";
        EXPECT_EQ(log.take(QtWarningMsg), QStringList());
    }
    EXPECT_EQ(m_told, QStringList());
}

TEST_F(LostBus, noSystemBus_leavesTheScreenSaverToBeHeard)
{
    MockService saver(m_sessionBus, {.service = "org.freedesktop.ScreenSaver",
                                     .path = "/org/freedesktop/ScreenSaver",
                                     .interface = "org.freedesktop.ScreenSaver"});
    saver.addMethod("GetActive", "", "b", "ret = True");
    listen({.system = "unix:path=/nonexistent/bus", .session = m_sessionBus.address()});
    expectTold({locked});
}

TEST_F(LostBus, logindThatComesLater_isFound)
{
    LogRecorder log("com.tamsk.ostrel.Platform");
    listen();
    QStringList lines;
    ASSERT_TRUE(pumpUntil([&] { return !(lines += log.take(QtInfoMsg)).isEmpty(); }));
    EXPECT_TRUE(lines.first().startsWith(QStringLiteral("logind is not on the system bus.")));
    startLogind();
    expectInhibitors(1);
}

TEST_F(LostBus, logindStartedAnew_getsAnotherInhibitorAndIsAskedForTheLock)
{
    listenToLogind();
    m_logind->setLockedHint(true);
    expectTold({locked});
    m_logind->restart(); // its session is not locked
    expectInhibitors(1);
    expectTold({locked, unlocked});
    m_logind->prepareForSleep(true);
    expectTold({locked, unlocked, sleep});
    m_holds.clear();
    expectInhibitors(0);
}

TEST_F(LostBus, logindThatEndsDuringASleep_isTheWake)
{
    listenToLogind();
    m_logind->prepareForSleep(true);
    expectTold({sleep});
    m_logind->restart();
    expectTold({sleep, wake});
    expectInhibitors(1);
}

TEST_F(LostBus, busThatEndsAndComesBack_isUsedAgain)
{
    LogRecorder log("com.tamsk.ostrel.Platform");
    listenToLogind();
    m_logind->setLockedHint(true);
    expectTold({locked});
    m_systemBus.restart();
    m_logind->restart();
    expectInhibitors(1);
    expectTold({locked, unlocked});
    m_logind->prepareForSleep(true);
    expectTold({locked, unlocked, sleep});
    EXPECT_EQ(log.take(QtInfoMsg).filter(QStringLiteral("The system bus has ended")).size(), 1);
}

TEST_F(LostBus, busThatEndsDuringASleep_isTheWake)
{
    listenToLogind();
    m_logind->prepareForSleep(true);
    expectTold({sleep});
    m_systemBus.process().kill();
    expectTold({sleep, wake});
    m_events.reset(); // while it looks for the bus
}

TEST_F(LostBus, busThatComesBackManyTimes_leavesOneInhibitor)
{
    listenToLogind();
    for (int i = 0; i < 3; ++i) {
        m_systemBus.restart();
        m_logind->restart();
        expectInhibitors(1);
    }
}

TEST_F(LostBus, busesThatHangFromTheStart_holdNobodyUp)
{
    m_systemBus.process().freeze();
    m_sessionBus.process().freeze();
    QElapsedTimer elapsed;
    elapsed.start();
    listen();
    m_events.reset();
    EXPECT_LT(elapsed.elapsed(), promptlyMs);
    m_systemBus.process().thaw();
    m_sessionBus.process().thaw();
}

TEST_F(LostBus, busesThatHangLater_holdNobodyUp)
{
    listenToLogind();
    m_systemBus.process().freeze();
    m_sessionBus.process().freeze();
    QElapsedTimer elapsed;
    elapsed.start();
    m_events.reset();
    EXPECT_LT(elapsed.elapsed(), promptlyMs);
    m_systemBus.process().thaw();
    m_sessionBus.process().thaw();
}

TEST_F(LostBus, logindThatHangs_holdsNobodyUp)
{
    startLogind();
    m_logind->service().process().freeze();
    QElapsedTimer elapsed;
    elapsed.start();
    listen();
    m_events.reset();
    EXPECT_LT(elapsed.elapsed(), promptlyMs);
    m_logind->service().process().thaw();
    expectInhibitors(0); // one that it gives after all goes to nobody
}

} // namespace
