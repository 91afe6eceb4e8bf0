#include "ReceivedStream.h"
#include "TestPictures.h"
#include "TestPortal.h"
#include "TestShell.h"
#include "base/Fault.h"
#include "platform/portal/PortalDisplaySource.h"
#include "platform/portal/PortalScreenCaptureAccess.h"
#include "platform/portal/ScreenCastPortal.h"
#include "platform/portal/SessionClosing.h"
#include "support/PipeWireSession.h"
#include "support/SessionBus.h"
#include "support/TestHome.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// What a session is opened with when no token speaks for the user.
const QByteArray askingTheUser = "";

/// Sessions that end, on a desktop that does what the test says. Time passes by hand, but for the waiting.
class SharingEnd : public testing::Test
{
protected:
    static constexpr std::chrono::milliseconds longTime = 30s; ///< none of it is ever waited for
    static constexpr QSize size{64, 32};

    SharingEnd() { m_service.behave({.streams = {{.node = m_pictures.node()}}, .newToken = "token"}); }

    /// A program that waits for so long for the reason of an end; it has no session yet.
    void startProgram(std::chrono::milliseconds reasonPatience)
    {
        m_portal = std::make_shared<ScreenCastPortal>(
            PortalSeams{.userPatience = 200ms, .reasonPatience = reasonPatience, .monotonicTime = [this] {
                            ++m_readings;
                            return m_now.load();
                        }});
        m_source = std::make_unique<PortalDisplaySource>(m_portal);
    }
    void openSession(std::chrono::milliseconds reasonPatience)
    {
        startProgram(reasonPatience);
        ASSERT_TRUE(content());
        ASSERT_EQ(m_service.seen().questions, 1);
    }
    Result<ShareableContent> content()
    {
        return m_queue.sync([this] { return m_source->shareableContent(); });
    }
    bool isGranted() { return PortalScreenCaptureAccess(m_portal).preflight(); }

    /// What is told by this is there, and when it came is noted.
    template <class Tell>
    void letCome(Tell tell)
    {
        const int before = m_readings;
        tell();
        waitUntil(QStringLiteral("the time to be noted"), 20s, [&] { return m_readings > before; });
    }
    void pass(std::chrono::milliseconds time) { m_now = m_now.load() + time; }

    /// @param token with which, if any
    void expectSessionOpenedAnew(const QByteArray &token)
    {
        const auto found = content();
        ASSERT_TRUE(found) << qPrintable(found.error().localizedDescription);
        EXPECT_EQ(m_service.seen().tokens, (QList<QByteArray>{"", token}));
        EXPECT_TRUE(isGranted());
    }
    void expectEndRespected()
    {
        for (int i = 0; i < 3; ++i) {
            const auto found = content();
            ASSERT_FALSE(found);
            EXPECT_TRUE(isFault(found.error(), Fault::ScreenSharingEnded));
        }
        EXPECT_EQ(m_service.seen().sessions, 1) << "nothing is asked for behind the user's back";
        EXPECT_FALSE(isGranted());
    }

    /// The pictures end, as they do a moment before the session does.
    void losePictures(const ReceivedStream &stream)
    {
        m_pictures.waitForViewer();
        m_lostPictures.reset();
        stream.waitForEnd();
    }

    const TestHome m_home;
    SessionBus m_bus;
    PipeWireSession m_pipeWire{m_bus.environment(), m_bus.path(QStringLiteral("."))};
    std::unique_ptr<TestPictures> m_lostPictures =
        std::make_unique<TestPictures>(m_pipeWire.socket(), TestPictures::Look{.size = size});
    TestPictures &m_pictures = *m_lostPictures;
    TestPortal m_service{m_bus.address(), m_pipeWire.socket()};
    std::atomic<std::chrono::milliseconds> m_now = 1'000'000ms;
    std::atomic<int> m_readings = 0;
    std::shared_ptr<ScreenCastPortal> m_portal;
    std::unique_ptr<PortalDisplaySource> m_source;
    SerialQueue m_queue{QStringLiteral("samples")};
};

class SharingEndOnGnome : public SharingEnd
{
protected:
    using Monitors = QList<QByteArray>;

    /// The user has shared these monitors in a recording of before.
    void shareBefore(const Monitors &monitors, const QByteArray &token)
    {
        m_shell.changeSilently(monitors);
        bringTokens(token);
        ASSERT_TRUE(PortalScreenCaptureAccess(std::make_shared<ScreenCastPortal>()).request());
    }
    void bringTokens(const QByteArray &token)
    {
        m_service.behave({.streams = {{.node = m_pictures.node()}}, .newToken = token});
    }
    /// Other monitors are there, and the program has asked for them.
    void changeMonitors(const Monitors &monitors)
    {
        const int before = m_shell.answers();
        letCome([&] { m_shell.change(monitors); });
        waitUntil(QStringLiteral("a question for the monitors"), 20s, [&] { return m_shell.answers() > before; });
    }
    /// @return the token that a recording is started with while these monitors are there
    QByteArray tokenWith(const Monitors &monitors)
    {
        m_shell.changeSilently(monitors);
        if (!PortalScreenCaptureAccess(std::make_shared<ScreenCastPortal>()).request())
            failTest(QStringLiteral("nothing is granted"));
        return m_service.seen().tokens.last();
    }
    /// @return the token that the session is opened anew with, after GNOME has ended it
    QByteArray tokenAfterUnplugging(const Monitors &monitors, std::chrono::milliseconds beforeTheEnd = 0ms)
    {
        changeMonitors(monitors);
        pass(beforeTheEnd);
        letCome([this] { m_service.endSharing(); });
        const auto found = content();
        if (!found)
            failTest(found.error().localizedDescription);
        return m_service.seen().tokens.last();
    }

    TestShell m_shell{m_bus.address(), {"DP-1", "DP-2"}};
};

TEST_F(SharingEndOnGnome, monitorThatIsUnpluggedBeforeTheSessionIsClosed_hasTheUserAskedOnceMore)
{
    openSession(longTime);
    letCome([this] { m_shell.change({"DP-1"}); });
    pass(5s);
    letCome([this] { m_service.endSharing(); });
    expectSessionOpenedAnew(askingTheUser);
}

TEST_F(SharingEndOnGnome, unpluggingThatIsToldAfterTheSessionIsClosed_isWaitedForAndHasTheUserAskedOnceMore)
{
    openSession(longTime);
    letCome([this] { m_service.endSharing(); });
    EXPECT_TRUE(isGranted()) << "who can't wait is not told that it was withdrawn";
    Result<ShareableContent> found;
    std::jthread opening([&] { found = content(); });
    m_shell.change({"DP-1"});
    opening.join();
    EXPECT_TRUE(found);
    EXPECT_EQ(m_service.seen().tokens, (QList<QByteArray>{"", askingTheUser}));
}

TEST_F(SharingEndOnGnome, tokenOfBeforeAMonitorWasUnplugged_opensNothingUntilTheUserHasAnswered)
{
    openSession(longTime);
    letCome([this] { m_shell.change({"DP-1"}); });
    letCome([this] { m_service.endSharing(); });
    m_service.behave({.streams = {}, .answer = TestPortal::Answer::None});
    EXPECT_TRUE(isFault(content().error(), Fault::ScreenQuestionUnanswered));
    EXPECT_TRUE(m_source->wouldAskUser());
    pass(30s);
    m_service.behave({.streams = {{.node = m_pictures.node()}}, .newToken = "another"});
    EXPECT_TRUE(content());
    EXPECT_EQ(m_service.seen().tokens, (QList<QByteArray>{"", askingTheUser, askingTheUser}));
    EXPECT_FALSE(m_source->wouldAskUser());
}

TEST_F(SharingEndOnGnome, userWhoDeclinesAfterAMonitorWasUnplugged_isAskedNoMore)
{
    openSession(longTime);
    letCome([this] { m_shell.change({"DP-1"}); });
    letCome([this] { m_service.endSharing(); });
    m_service.behave({.streams = {}, .answer = TestPortal::Answer::Declines});
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(isFault(content().error(), Fault::ScreenCaptureDeclined));
    EXPECT_EQ(m_service.seen().questions, 2);
    EXPECT_FALSE(isGranted());
}

TEST_F(SharingEndOnGnome, monitorsThatAreLeft_areOpenedByTheTokenForJustTheseWhereTheUserHasSharedThemBefore)
{
    shareBefore({"DP-1"}, "for one");
    shareBefore({"DP-1", "DP-2"}, "for two");
    startProgram(longTime);
    ASSERT_TRUE(content());
    EXPECT_EQ(m_service.seen().tokens.last(), "for two");
    EXPECT_EQ(tokenAfterUnplugging({"DP-1"}, SessionClosing::oneCauseWithin), "for one");
}

TEST_F(SharingEndOnGnome, monitorThatIsUnpluggedAtAboutTheTimeOfTheEnd_leavesEveryTokenInDoubt)
{
    shareBefore({"DP-1"}, "for one");
    shareBefore({"DP-1", "DP-2"}, "for two");
    startProgram(longTime);
    ASSERT_TRUE(content());
    EXPECT_EQ(tokenAfterUnplugging({"DP-1"}, SessionClosing::oneCauseWithin + 1ms), askingTheUser);
}

TEST_F(SharingEndOnGnome, monitorThatIsBackAtOnce_isOpenedByTheTokenForAllAsItWasSeenToBeGone)
{
    openSession(longTime);
    changeMonitors({"DP-1"});
    letCome([this] { m_service.endSharing(); });
    m_shell.changeSilently({"DP-1", "DP-2"});
    expectSessionOpenedAnew("token");
}

TEST_F(SharingEndOnGnome, sets_areEachAskedForOnceHoweverOftenTheyChange)
{
    bringTokens("laptop 1");
    EXPECT_EQ(tokenWith({"eDP-1"}), askingTheUser);
    bringTokens("desk 1");
    EXPECT_EQ(tokenWith({"eDP-1", "DP-2"}), askingTheUser);
    bringTokens("laptop 2");
    EXPECT_EQ(tokenWith({"eDP-1"}), "laptop 1");
    bringTokens("desk 2");
    EXPECT_EQ(tokenWith({"DP-2", "eDP-1"}), "desk 1");
    EXPECT_EQ(tokenWith({"eDP-1"}), "laptop 2");
    EXPECT_EQ(tokenWith({"eDP-1", "DP-3"}), askingTheUser) << "another one";
}

TEST_F(SharingEndOnGnome, monitorThatIsSwitchedOff_makesAnotherSet)
{
    bringTokens("lid open");
    EXPECT_EQ(tokenWith({"eDP-1", "DP-2"}), askingTheUser);
    m_shell.switchOff("eDP-1");
    EXPECT_EQ(tokenWith({"eDP-1", "DP-2"}), askingTheUser);
}

TEST_F(SharingEndOnGnome, monitorsThatChangeWhileTheUserThinks_areThoseThatTheTokenIsKeptFor)
{
    m_service.behave({.streams = {}, .answer = TestPortal::Answer::None});
    const auto portal = std::make_shared<ScreenCastPortal>();
    std::jthread asking([&] { EXPECT_TRUE(PortalScreenCaptureAccess(portal).request()); });
    waitUntil(QStringLiteral("the question"), 20s, [this] { return m_service.seen().questions == 1; });
    m_shell.changeSilently({"DP-1"});
    m_service.answerLate({.streams = {}, .newToken = "for one"});
    asking.join();
    EXPECT_EQ(tokenWith({"DP-1"}), "for one");
}

TEST_F(SharingEndOnGnome, monitorThatWentLongBefore_isNotWhyTheSharingEndsNow)
{
    openSession(200ms);
    changeMonitors({"DP-1"});
    pass(SessionClosing::changeHolds + 1ms);
    changeMonitors({"DP-1", "DP-3"});
    letCome([this] { m_service.endSharing(); });
    expectEndRespected();
}

TEST_F(SharingEndOnGnome, monitorThatCameMeanwhileAndWent_isNotWhyTheSharingEnds)
{
    openSession(200ms);
    changeMonitors({"DP-1", "DP-2", "DP-3"});
    pass(SessionClosing::changeHolds + 1ms);
    changeMonitors({"DP-1", "DP-2"});
    letCome([this] { m_service.endSharing(); });
    expectEndRespected();
}

TEST_F(SharingEndOnGnome, monitorThatWasThereAllTheTime_isMissedAfterOtherChangesToo)
{
    openSession(longTime);
    changeMonitors({"DP-1", "DP-2", "DP-3"});
    pass(SessionClosing::changeHolds + 1ms);
    EXPECT_EQ(tokenAfterUnplugging({"DP-2", "DP-3"}), askingTheUser);
}

TEST_F(SharingEndOnGnome, sessionThatIsClosedWithoutAChangeOfMonitors_wasEndedByTheUser)
{
    openSession(200ms);
    letCome([this] { m_service.endSharing(); });
    expectEndRespected();
}

TEST_F(SharingEndOnGnome, sessionThatIsClosedAndNobodyOpensAnew_isSeenAsEndedWhenTheTimeForAReasonIsOver)
{
    openSession(200ms);
    letCome([this] { m_service.endSharing(); });
    EXPECT_TRUE(isGranted());
    pass(201ms);
    EXPECT_FALSE(isGranted());
}

TEST_F(SharingEndOnGnome, sessionThatIsClosedLongAfterAMonitorWasUnplugged_wasEndedByTheUser)
{
    openSession(200ms);
    letCome([this] { m_shell.change({"DP-1"}); });
    pass(SessionClosing::changeHolds + 1ms);
    letCome([this] { m_service.endSharing(); });
    expectEndRespected();
}

TEST_F(SharingEndOnGnome, changesThatAreLookedAtLate_countByTheTimeWhenTheyCame)
{
    openSession(200ms);
    letCome([this] { m_service.endSharing(); });
    pass(201ms);
    letCome([this] { m_shell.change({"DP-1"}); });
    expectEndRespected();
}

TEST_F(SharingEndOnGnome, sessionThatIsClosedAfterAMonitorWasPluggedIn_wasEndedByTheUser)
{
    openSession(200ms);
    letCome([this] { m_shell.change({"DP-1", "DP-2", "DP-3"}); });
    letCome([this] { m_service.endSharing(); });
    expectEndRespected();
}

TEST_F(SharingEndOnGnome, wordOfChangedMonitorsFromSomebodyElse_countsForNothing)
{
    PlayedService forger(m_bus.address(), "org.example.Forger", [](GDBusMessage *) { return false; });
    openSession(200ms);
    m_shell.changeSilently({"DP-1"});
    const QByteArray client = m_service.client();
    PlayedService::Signal forged = TestShell::monitorsChanged;
    forger.tell(forged);
    forged.destination = client.constData();
    forger.tell(forged);
    forger.waitUntilTold();
    letCome([this] { m_service.endSharing(); });
    expectEndRespected();
}

TEST_F(SharingEndOnGnome, wordOfAClosedSessionFromSomebodyElse_countsForNothing)
{
    PlayedService forger(m_bus.address(), "org.example.Forger", [](GDBusMessage *) { return false; });
    openSession(200ms);
    const QByteArray client = m_service.client();
    const QByteArray session = m_service.session();
    forger.tell({.destination = client.constData(),
                 .path = session.constData(),
                 .interface = "org.freedesktop.portal.Session",
                 .name = "Closed"});
    forger.waitUntilTold();
    letCome([this] { m_shell.change({"DP-1", "DP-2"}); }); // so that it has come as well
    EXPECT_TRUE(content());
    EXPECT_EQ(m_service.seen().sessions, 1);
}

TEST_F(SharingEndOnGnome, shellThatDoesNotSayWhichMonitorsAreLeft_leavesTheUsersWishInForce)
{
    openSession(200ms);
    m_shell.hang();
    letCome([this] { m_shell.change({"DP-1"}); });
    letCome([this] { m_service.endSharing(); });
    expectEndRespected();
}

TEST_F(SharingEnd, sessionThatIsClosedOnAnotherDesktop_isSeenAsEndedAtOnce)
{
    openSession(longTime);
    m_service.endSharing();
    waitUntil(QStringLiteral("word of it"), 20s, [this] { return !isGranted(); });
    expectEndRespected();
}

TEST_F(SharingEnd, userWhoEndsTheSharing_isNotOverruledByARestartBeforeTheSessionIsClosed)
{
    openSession(longTime);
    const ReceivedStream stream(m_queue, *m_source, content()->displays.first());
    losePictures(stream);
    Result<ShareableContent> found;
    std::jthread opening([&] { found = content(); });
    m_service.endSharing();
    opening.join();
    ASSERT_FALSE(found);
    EXPECT_TRUE(isFault(found.error(), Fault::ScreenSharingEnded));
    EXPECT_EQ(m_service.seen().sessions, 1);
}

TEST_F(SharingEnd, picturesThatEndWhileTheSessionGoesOn_areOpenedAnewWhenTheTimeForAReasonIsOver)
{
    openSession(200ms);
    const ReceivedStream stream(m_queue, *m_source, content()->displays.first());
    losePictures(stream);
    expectSessionOpenedAnew("token");
}

TEST_F(SharingEnd, waitingForAReason_endsWhenItIsInterrupted)
{
    openSession(longTime);
    const ReceivedStream stream(m_queue, *m_source, content()->displays.first());
    losePictures(stream);
    Result<ShareableContent> found;
    std::atomic<bool> isOver = false;
    std::jthread opening([&] {
        found = content();
        isOver = true;
    });
    waitUntil(QStringLiteral("the end of the waiting"), 20s, [&] {
        m_source->interruptWaiting(); // those that are about to wait
        return isOver.load();
    });
    opening.join();
    EXPECT_TRUE(isFault(found.error(), Fault::Cancelled));
    EXPECT_EQ(m_service.seen().sessions, 1);
}

TEST_F(SharingEnd, questionThatNobodyAnswers_isNotPutAgainAtOnceUnlessByTheUsersOwnWish)
{
    m_service.behave({.streams = {}, .answer = TestPortal::Answer::None});
    startProgram(longTime);
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(isFault(content().error(), Fault::ScreenQuestionUnanswered));
    EXPECT_EQ(m_service.seen().questions, 1);
    EXPECT_FALSE(PortalScreenCaptureAccess(m_portal).request());
    EXPECT_EQ(m_service.seen().questions, 2);
    pass(29'999ms);
    EXPECT_FALSE(content());
    EXPECT_EQ(m_service.seen().questions, 2);
    pass(1ms);
    EXPECT_FALSE(content());
    EXPECT_EQ(m_service.seen().questions, 3);
}

} // namespace
