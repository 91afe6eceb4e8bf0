#include "LogindFixture.h"

#include "support/LogRecorder.h"

#include <QDir>

using namespace ostrel;
using testing::HasSubstr;

namespace {

using Sleep = LogindDesktop;

int countIn(const char *folder)
{
    return int(QDir(QLatin1String(folder)).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System).size());
}

int threads()
{
    return countIn("/proc/self/task");
}

int descriptors()
{
    return countIn("/proc/self/fd");
}

TEST_F(Sleep, eventsThatNobodyListensTo_startNoThread)
{
    const int before = threads();
    const LogindEvents events(buses());
    EXPECT_FALSE(events.isLocked());
    EXPECT_EQ(threads(), before);
}

TEST_F(Sleep, inhibitor_isTakenAndSaysWhoAndWhy)
{
    listenToLogind();
    EXPECT_THAT(m_logind->inhibitors().toStdString(),
                HasSubstr("'sleep:shutdown', 'Tamsk Ostrel', 'It hands over its last pictures.', 'delay'"));
    m_events.reset();
    expectInhibitors(0);
}

TEST_F(Sleep, sleep_isHeldUpUntilTheHoldGoesAndTheWakeTakesANewInhibitor)
{
    listenToLogind();
    m_logind->prepareForSleep(true);
    expectTold({QStringLiteral("sleep")});
    settleEvents();
    EXPECT_EQ(m_logind->inhibitorCount(), 1) << "the hold is kept";
    m_holds.clear();
    expectInhibitors(0);
    m_logind->prepareForSleep(false);
    expectTold({QStringLiteral("sleep"), QStringLiteral("wake")});
    expectInhibitors(1);
}

TEST_F(Sleep, holdThatNobodyKeeps_endsAtOnce)
{
    startLogind();
    LogindEvents events(buses());
    int sleeps = 0;
    QObject::connect(&events, &WorkspaceEvents::willSleep, &events, [&sleeps] { ++sleeps; });
    expectInhibitors(1);
    m_logind->prepareForSleep(true);
    expectInhibitors(0);
    EXPECT_EQ(sleeps, 1);
}

TEST_F(Sleep, sleepTwice_isToldTwiceAndOnlyTheFirstHoldsItUp)
{
    listenToLogind();
    m_logind->prepareForSleep(true);
    m_logind->prepareForSleep(true);
    expectTold({QStringLiteral("sleep"), QStringLiteral("sleep")});
    m_holds.erase(m_holds.begin());
    expectInhibitors(0);
    EXPECT_NE(m_holds.front(), nullptr);
    m_logind->prepareForSleep(false);
    expectInhibitors(1);
}

TEST_F(Sleep, wakeWithoutSleep_isToldAndTheInhibitorStaysTheOnlyOne)
{
    listenToLogind();
    m_logind->prepareForSleep(false);
    m_logind->prepareForSleep(false);
    expectTold({QStringLiteral("wake"), QStringLiteral("wake")});
    EXPECT_EQ(m_logind->inhibitorCount(), 1);
}

TEST_F(Sleep, shutdown_isHeldUpUntilTheHoldGoes)
{
    listenToLogind();
    m_logind->prepareForShutdown(true);
    expectTold({QStringLiteral("shutdown")});
    EXPECT_EQ(m_logind->inhibitorCount(), 1);
    m_holds.clear();
    expectInhibitors(0);
}

TEST_F(Sleep, shutdownCalledOff_takesTheInhibitorAnew)
{
    listenToLogind();
    m_logind->prepareForShutdown(true);
    expectTold({QStringLiteral("shutdown")});
    m_holds.clear();
    expectInhibitors(0);
    m_logind->prepareForShutdown(false);
    expectInhibitors(1);
    m_logind->prepareForSleep(true);
    expectTold({QStringLiteral("shutdown"), QStringLiteral("sleep")});
}

TEST_F(Sleep, shutdownDuringASleepThatIsHeldUp_isToldAndHoldsNothingMore)
{
    listenToLogind();
    m_logind->prepareForSleep(true);
    m_logind->prepareForShutdown(true);
    expectTold({QStringLiteral("sleep"), QStringLiteral("shutdown")});
    m_holds.erase(m_holds.begin());
    expectInhibitors(0);
}

TEST_F(Sleep, signalsOfAnotherShape_areIgnored)
{
    listenToLogind();
    MockService &logind = m_logind->service();
    logind.emitSignal("PrepareForSleep", "s", "[<'yes'>]");
    logind.emitSignal("PrepareForSleep", "bb", "[<true>, <true>]");
    logind.emitSignal("PrepareForSleep", "", "[]");
    logind.emitSignal("PrepareForShutdown", "u", "[<uint32 1>]");
    logind.emitSignal(m_logind->session(), "Lock", "b", "[<true>]");
    const MockService::Object properties{.service = m_logind->session().service,
                                         .path = m_logind->session().path,
                                         .interface = "org.freedesktop.DBus.Properties"};
    const QByteArray interface = "<'" + m_logind->session().interface + "'>";
    logind.emitSignal(properties, "PropertiesChanged", "ss", '[' + interface + ", <'LockedHint'>]");
    logind.emitSignal(properties, "PropertiesChanged", "sa{sv}as",
                      '[' + interface + ", <{'LockedHint': <'yes'>}>, <@as []>]");
    m_logind->prepareForSleep(false);
    expectTold({QStringLiteral("wake")});
}

TEST_F(Sleep, inhibitorRefused_isAskedForAgainUntilItIsGiven)
{
    LogRecorder log("com.tamsk.ostrel.Platform");
    MockService logind(m_systemBus, {.service = "org.freedesktop.login1",
                                     .path = "/org/freedesktop/login1",
                                     .interface = "org.freedesktop.login1.Manager"});
    logind.addMethod("Inhibit", "ssss", "h", "raise dbus.exceptions.DBusException('no', name='org.example.No')");
    listen();
    QStringList lines;
    ASSERT_TRUE(pumpUntil([&] { return (lines += log.take(QtInfoMsg)).size() >= 2; }));
    EXPECT_THAT(lines.join(u'\n').toStdString(), HasSubstr("logind doesn't wait for us before a sleep: "));
    logind.addMethod("Inhibit", "ssss", "h",
                     "open('" + m_systemBus.path(QStringLiteral("asked")).toUtf8() + "', 'a').write('x'); ret = 0");
    EXPECT_TRUE(pumpUntil([&] { return QFile::exists(m_systemBus.path(QStringLiteral("asked"))); }));
    EXPECT_EQ((lines + log.take(QtInfoMsg)).filter(QStringLiteral("doesn't wait")).size(), 1) << "it is said once";
}

TEST_F(Sleep, answersWithoutADescriptor_countAsARefusalAndSleepIsStillTold)
{
    MockService logind(m_systemBus, {.service = "org.freedesktop.login1",
                                     .path = "/org/freedesktop/login1",
                                     .interface = "org.freedesktop.login1.Manager"});
    logind.addMethod("Inhibit", "ssss", "s", "ret = 'no descriptor'");
    LogRecorder log("com.tamsk.ostrel.Platform");
    listen();
    QStringList lines;
    ASSERT_TRUE(pumpUntil([&] { return !(lines += log.take(QtInfoMsg)).isEmpty(); }));
    logind.emitSignal("PrepareForSleep", "b", "[<true>]");
    expectTold({QStringLiteral("sleep")});
    EXPECT_NE(m_holds.front(), nullptr);
}

TEST_F(Sleep, hundredCycles_leaveNoDescriptorAndNoThread)
{
    startLogind();
    listen({.system = m_systemBus.address(), .session = {}});
    expectInhibitors(1);
    // Counted in the midst of a sleep: an inhibitor that is on its way to us would be one descriptor or none.
    const auto fallAsleep = [this] {
        m_told.clear();
        m_logind->prepareForSleep(true);
        expectTold({QStringLiteral("sleep")});
        m_holds.clear();
        expectInhibitors(0);
    };
    fallAsleep();
    const int threadsBefore = threads();
    const int descriptorsBefore = descriptors();
    for (int i = 0; i < 100; ++i) {
        m_logind->prepareForSleep(false);
        expectTold({QStringLiteral("sleep"), QStringLiteral("wake")});
        expectInhibitors(1);
        fallAsleep();
    }
    // GLib may have held the first answer's own descriptor when they were counted.
    EXPECT_TRUE(pumpUntil([&] { return descriptors() <= descriptorsBefore; }))
        << descriptors() << " instead of " << descriptorsBefore;
    EXPECT_EQ(threads(), threadsBefore);
}

TEST_F(Sleep, destroyedEvents_leaveNoDescriptorAndNoThread)
{
    listenToLogind();
    m_events.reset(); // GLib's own thread has started
    const int threadsBefore = threads();
    EXPECT_TRUE(pumpUntil([this] { return m_logind->inhibitorCount() == 0; }));
    const int descriptorsBefore = descriptors();
    for (int i = 0; i < 20; ++i) {
        listen();
        expectInhibitors(1);
        m_events.reset();
        expectInhibitors(0);
    }
    EXPECT_TRUE(pumpUntil([&] { return descriptors() <= descriptorsBefore; })) << descriptors();
    EXPECT_TRUE(pumpUntil([&] { return threads() <= threadsBefore; })) << threads();
}

TEST_F(Sleep, eventsDestroyedWhileAHoldIsKept_leaveItWithItsKeeper)
{
    listenToLogind();
    m_logind->prepareForSleep(true);
    expectTold({QStringLiteral("sleep")});
    m_events.reset();
    EXPECT_EQ(m_logind->inhibitorCount(), 1);
    m_holds.clear();
    expectInhibitors(0);
}

TEST_F(Sleep, eventsDestroyedBeforeASleepIsHeard_giveItsHoldBack)
{
    listenToLogind();
    for (const bool isShutdown : {false, true}) {
        if (isShutdown)
            m_logind->prepareForShutdown(true);
        else
            m_logind->prepareForSleep(true);
        m_events.reset();
        expectInhibitors(0);
        listen();
        expectInhibitors(1);
    }
    EXPECT_EQ(m_told, QStringList());
}

TEST_F(Sleep, eventsDestroyedByWhoeverHearsThem_end)
{
    startLogind();
    for (const bool isShutdown : {false, true}) {
        auto events = std::make_unique<LogindEvents>(buses());
        const auto destroy = [&events] { events.reset(); };
        QObject::connect(events.get(), &WorkspaceEvents::willSleep, qApp, destroy);
        QObject::connect(events.get(), &WorkspaceEvents::willShutDown, qApp, destroy);
        expectInhibitors(1);
        if (isShutdown)
            m_logind->prepareForShutdown(true);
        else
            m_logind->prepareForSleep(true);
        EXPECT_TRUE(pumpUntil([&events] { return !events; }));
        expectInhibitors(0);
    }
}

} // namespace
