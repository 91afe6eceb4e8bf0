#include "platform/kwin/KWinWindows.h"
#include "TestKWin.h"
#include "support/LogRecorder.h"
#include "support/Printers.h"
#include "support/RunTask.h"
#include "support/SessionBus.h"

#include <QDir>
#include <QElapsedTimer>

#include <atomic>
#include <gtest/gtest.h>
#include <optional>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// More than anything takes that waits for nobody, on a busy machine.
constexpr int promptlyMs = 3000;

/// KWin's windows as a program hears of them, on a real bus.
class KWinOnBus : public testing::Test
{
protected:
    static QByteArray newsOf(const QByteArray &windows)
    {
        return R"({"monitors":[[0,0,1280,720]],"windows":[)" + windows + "]}";
    }
    static QByteArray window(const QByteArray &title, int x, const QByteArray &id = "1")
    {
        return R"({"id":")" + id + R"(","parent":"","pid":41,"instance":"a","class":"a","entry":"","title":")" + title +
               R"(","unresponsive":false,"popup":false,"seen":true,"place":[)" + QByteArray::number(x) + ",0,10,10]}";
    }

    void listen()
    {
        KWinPrivacy privacy{
            .excludes = [this](const WindowIdentity &each) { return m_rulesApply && each.title == u"Secret"; },
            .bundleIdentifierOf = [](const QString &) { return std::optional<QString>(); }};
        m_windows = std::make_unique<KWinWindows>(
            std::move(privacy), KWinSeams{.busAddress = m_bus.address(),
                                          .scriptFolder = scriptFolder(),
                                          .firstPause = 20ms,
                                          .restAfter = m_restAfter,
                                          .monotonicTime = [this] { return std::chrono::milliseconds(m_nowMs); }});
        EXPECT_FALSE(m_windows->places({}));
    }
    QString scriptFolder() const { return m_bus.path(QStringLiteral("run")); }
    QStringList scriptsLeft() const { return QDir(scriptFolder()).entryList({QStringLiteral("*.js")}); }

    void startKWin(TestKWin::Ways ways = {}) { m_kwin.emplace(m_bus.address(), ways); }
    void expectScriptRuns()
    {
        ASSERT_TRUE(pumpUntil([this] { return m_kwin->running() == 1; }));
    }
    void listenToKWin()
    {
        startKWin();
        listen();
        expectScriptRuns();
    }
    /// Of windows of which nothing was known before.
    void tellFirst(const QByteArray &json)
    {
        tell(json);
        m_nowMs += 1'000;
        ASSERT_TRUE(pumpUntil([this] { return isKnown(); }));
    }
    /// What is told is known when the call is answered.
    void tell(const QByteArray &json) { EXPECT_EQ(m_kwin->tell(json), QByteArray()); }
    std::chrono::milliseconds age()
    {
        const auto places = m_windows->places({});
        return places ? places->age : std::chrono::milliseconds::max();
    }

    bool isKnown() { return m_windows->places({}).has_value(); }
    QList<int> privateOnes(const QList<qint32> &processes = {})
    {
        QList<int> lefts;
        const auto places = m_windows->places(processes);
        if (!places)
            return {-1};
        for (const QRect &place : places->windows)
            lefts.push_back(place.x());
        return lefts;
    }

    SessionBus m_bus;
    std::optional<TestKWin> m_kwin;
    std::atomic<qint64> m_nowMs = 5'000;
    std::chrono::milliseconds m_restAfter = 60s;
    std::atomic<bool> m_rulesApply = true;
    std::unique_ptr<KWinWindows> m_windows;
};

TEST_F(KWinOnBus, windowsThatAreTold_areKnown)
{
    listenToKWin();
    EXPECT_FALSE(isKnown());
    tellFirst(newsOf(window("Letter", 1, "1") + ',' + window("Secret", 2, "2")));
    EXPECT_EQ(privateOnes(), (QList{2}));
    EXPECT_EQ(privateOnes({41}), (QList{1, 2}));
    EXPECT_EQ(m_windows->places({})->monitors, (QList{QRect(0, 0, 1280, 720)}));
}

TEST_F(KWinOnBus, scriptOfKWin6_runsToo)
{
    startKWin({.scriptPath = "/Scripting/Script"});
    listen();
    expectScriptRuns();
    tellFirst(newsOf(window("Secret", 2)));
    EXPECT_EQ(privateOnes(), (QList{2}));
}

TEST_F(KWinOnBus, windowsOfTheFirstSecond_areNotKnownYet)
{
    listenToKWin();
    tell(newsOf(window("Secret", 1)));
    const int before = m_kwin->questions();
    EXPECT_TRUE(pumpUntil([&] { return !isKnown() && m_kwin->questions() > before + 1; }));
    m_nowMs += 999;
    EXPECT_FALSE(isKnown());
    m_nowMs += 1;
    EXPECT_TRUE(isKnown());
}

TEST_F(KWinOnBus, question_makesKWinConfirmWhatItHasTold)
{
    listenToKWin();
    tellFirst(newsOf(window("Secret", 1)));
    m_nowMs += 300;
    EXPECT_TRUE(pumpUntil([this] { return age() == 0ms; }));
    m_kwin->answerQuestions(false);
    const int before = m_kwin->questions();
    ASSERT_TRUE(pumpUntil([&] { return age() == 0ms && m_kwin->questions() > before; }));
    m_nowMs += 200;
    EXPECT_EQ(age(), 200ms);
    EXPECT_EQ(privateOnes(), (QList{1})) << "a KWin that hangs draws nothing";
    EXPECT_LE(m_kwin->questions(), before + 1) << "one at a time";
    m_kwin->answerQuestions(true);
    EXPECT_TRUE(pumpUntil([this] { return age() == 0ms; })) << "it is asked again";
}

TEST_F(KWinOnBus, effectThatShowsWindowsElsewhere_makesPrivateOnesBeAnywhereAndASecondLonger)
{
    listenToKWin();
    tellFirst(newsOf(window("Secret", 1)));
    const auto mayBeAnywhere = [this](const QList<qint32> &processes = {}) {
        const auto places = m_windows->places(processes);
        return places && places->mayBeAnywhere;
    };
    m_kwin->showEffects({"blur"});
    const int before = m_kwin->questions();
    ASSERT_TRUE(pumpUntil([&] { return isKnown() && m_kwin->questions() > before + 1; }));
    EXPECT_FALSE(mayBeAnywhere());
    m_kwin->showEffects({"blur", "overview"});
    EXPECT_TRUE(pumpUntil([&] { return mayBeAnywhere(); }));
    m_kwin->showEffects({});
    m_nowMs += 1'000;
    EXPECT_TRUE(mayBeAnywhere());
    m_nowMs += 1;
    EXPECT_TRUE(pumpUntil([&] { return !mayBeAnywhere(); }));
    EXPECT_TRUE(isKnown());
}

TEST_F(KWinOnBus, scriptThatAnotherProgramUnloads_isForgottenAndLoadedAgain)
{
    listenToKWin();
    tellFirst(newsOf(window("Secret", 1)));
    m_kwin->unloadAll();
    EXPECT_TRUE(pumpUntil([this] { return !isKnown(); }));
    expectScriptRuns();
    tellFirst(newsOf(window("Secret", 2)));
    EXPECT_EQ(privateOnes(), (QList{2}));
}

TEST_F(KWinOnBus, kwinThatKeepsNoScript_getsItAgainFromTimeToTime)
{
    LogRecorder log("com.tamsk.ostrel.Platform");
    startKWin({.keepsScripts = false});
    listen();
    ASSERT_TRUE(pumpUntil([this] { return m_kwin->asked() >= 3; }));
    EXPECT_GE(
        log.takeAll().filter(QStringLiteral("KWin does not tell its windows: it does not keep the script.")).size(), 2);
    EXPECT_FALSE(isKnown());
}

TEST_F(KWinOnBus, windowsThatNobodyAsksFor_areNotWatched)
{
    m_restAfter = 700ms;
    listenToKWin();
    EXPECT_TRUE(pumpUntil([this] { return m_kwin->running() == 0; }));
    const auto listener = TestKWin::listenerIn(m_kwin->script());
    m_kwin.reset();
    startKWin();
    // It is answered after all that the bus has said before, of the new KWin too.
    PlayedService stranger(m_bus.address(), "org.example.Stranger", [](GDBusMessage *) { return false; });
    ASSERT_EQ(stranger.call(listener, g_variant_new("(s)", "")), QByteArray("org.freedesktop.DBus.Error.AccessDenied"));
    EXPECT_EQ(m_kwin->asked(), 0);
    EXPECT_FALSE(isKnown());
    expectScriptRuns();
}

TEST_F(KWinOnBus, scriptFile_isTheUsersAloneAndIsRemoved)
{
    listenToKWin();
    EXPECT_EQ(m_kwin->scriptMode(), 0600);
    EXPECT_TRUE(m_kwin->script().contains("workspace"));
    EXPECT_FALSE(m_kwin->script().contains('@')) << "something was not filled in";
    EXPECT_TRUE(pumpUntil([this] { return !m_kwin->isScriptThere(); }));
    EXPECT_EQ(scriptsLeft(), QStringList());
}

TEST_F(KWinOnBus, windowThatMoves_isPrivateAtBothPlacesForASecond)
{
    listenToKWin();
    tellFirst(newsOf(window("Secret", 1)));
    m_nowMs = 9'000;
    tell(newsOf(window("Secret", 2)));
    m_nowMs = 10'000;
    EXPECT_EQ(privateOnes(), (QList{2, 1}));
    m_nowMs = 10'001;
    EXPECT_EQ(privateOnes(), (QList{2}));
    tell(newsOf(window("Letter", 2)));
    EXPECT_EQ(privateOnes(), (QList{2})) << "a picture may still show it";
    tell(newsOf({}));
    m_nowMs = 11'002;
    EXPECT_EQ(privateOnes(), QList<int>());
}

TEST_F(KWinOnBus, rulesThatChange_holdAtOnce)
{
    listenToKWin();
    tellFirst(newsOf(window("Secret", 1)));
    m_rulesApply = false;
    EXPECT_EQ(privateOnes(), QList<int>());
    m_rulesApply = true;
    EXPECT_EQ(privateOnes(), (QList{1}));
}

TEST_F(KWinOnBus, strangerThatTells_isNotHeard)
{
    listenToKWin();
    tellFirst(newsOf(window("Secret", 1)));
    PlayedService stranger(m_bus.address(), "org.example.Stranger", [](GDBusMessage *) { return false; });
    const QByteArray forged = newsOf(window("Letter", 1));
    EXPECT_EQ(stranger.call(TestKWin::listenerIn(m_kwin->script()), g_variant_new("(s)", forged.constData())),
              QByteArray("org.freedesktop.DBus.Error.AccessDenied"));
    m_nowMs = 60'000;
    EXPECT_EQ(privateOnes(), (QList{1}));
}

TEST_F(KWinOnBus, whatCanNotBeUnderstood_makesWindowsUnknownUntilItCan)
{
    listenToKWin();
    tellFirst(newsOf(window("Secret", 1)));
    tell("{}");
    EXPECT_FALSE(isKnown());
    tellFirst(newsOf(window("Secret", 2)));
    EXPECT_EQ(privateOnes(), (QList{2}));
}

TEST_F(KWinOnBus, kwinThatEnds_leavesWindowsUnknown)
{
    listenToKWin();
    tellFirst(newsOf(window("Secret", 1)));
    m_kwin.reset();
    EXPECT_TRUE(pumpUntil([this] { return !isKnown(); }));
}

TEST_F(KWinOnBus, kwinThatIsStartedAnew_getsTheScriptAgain)
{
    listenToKWin();
    tellFirst(newsOf(window("Secret", 1)));
    m_kwin.reset();
    startKWin();
    expectScriptRuns();
    EXPECT_FALSE(isKnown());
    tellFirst(newsOf(window("Secret", 2)));
    EXPECT_EQ(privateOnes(), (QList{2})) << "what was before the end is forgotten";
}

TEST_F(KWinOnBus, kwinThatComesLater_getsTheScript)
{
    listen();
    startKWin();
    expectScriptRuns();
}

TEST_F(KWinOnBus, kwinThatRefuses_isAskedAgain)
{
    LogRecorder log("com.tamsk.ostrel.Platform");
    startKWin({.takesScripts = false});
    listen();
    ASSERT_TRUE(pumpUntil([this] { return m_kwin->asked() >= 2; }));
    EXPECT_GE(log.takeAll().filter(QStringLiteral("KWin does not tell its windows: it takes no script.")).size(), 1);
    EXPECT_FALSE(isKnown());
    m_kwin->takeScripts();
    expectScriptRuns();
}

TEST_F(KWinOnBus, busThatEndsAndComesBack_isUsedAgain)
{
    listenToKWin();
    tellFirst(newsOf(window("Secret", 1)));
    m_kwin.reset();
    m_bus.restart();
    EXPECT_TRUE(pumpUntil([this] { return !isKnown(); }));
    startKWin();
    expectScriptRuns();
    tellFirst(newsOf(window("Secret", 2)));
    EXPECT_EQ(privateOnes(), (QList{2}));
}

TEST_F(KWinOnBus, end_unloadsTheScript)
{
    listenToKWin();
    m_windows.reset();
    EXPECT_TRUE(pumpUntil([this] { return m_kwin->running() == 0; }));
}

TEST_F(KWinOnBus, endBeforeKWinSaysThatTheScriptRuns_unloadsIt)
{
    startKWin({.saysThatTheyRun = false});
    listen();
    expectScriptRuns();
    m_windows.reset();
    EXPECT_TRUE(pumpUntil([this] { return m_kwin->running() == 0; }));
    EXPECT_EQ(scriptsLeft(), QStringList());
}

TEST_F(KWinOnBus, otherProgramsScript_staysAtTheEnd)
{
    listenToKWin();
    const auto first = std::move(m_windows);
    listen();
    ASSERT_TRUE(pumpUntil([this] { return m_kwin->running() == 2; }));
    m_windows.reset();
    EXPECT_TRUE(pumpUntil([this] { return m_kwin->running() == 1; }));
}

TEST_F(KWinOnBus, desktopWithoutKWin_knowsNothingAndWritesNothing)
{
    listen();
    PlayedService stranger(m_bus.address(), "org.example.Stranger", [](GDBusMessage *) { return false; });
    const auto isHeardAt = [&stranger](const QByteArray &connection) {
        PlayedService::Method listener = TestKWin::listenerIn({});
        listener.destination = connection;
        return stranger.call(listener, g_variant_new("(s)", "")) == "org.freedesktop.DBus.Error.AccessDenied";
    };
    ASSERT_TRUE(pumpUntil([&] { return isHeardAt(":1.0") || isHeardAt(":1.1"); })) << "it is not on the bus";
    EXPECT_FALSE(isKnown());
    EXPECT_EQ(scriptsLeft(), QStringList());
}

TEST_F(KWinOnBus, busThatHangs_holdsNobodyUp)
{
    listenToKWin();
    tellFirst(newsOf(window("Secret", 1)));
    m_bus.process().freeze();
    m_nowMs += 200;
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_EQ(privateOnes(), (QList{1}));
    EXPECT_GE(age(), 200ms) << "nobody can say that these are all";
    m_windows.reset();
    EXPECT_LT(elapsed.elapsed(), promptlyMs);
    m_bus.process().thaw();
}

} // namespace
