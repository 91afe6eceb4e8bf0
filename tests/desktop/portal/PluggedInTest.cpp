#include "TestPictures.h"
#include "TestPortal.h"
#include "TestShell.h"
#include "base/Fault.h"
#include "base/SerialQueue.h"
#include "platform/portal/PortalDisplaySource.h"
#include "platform/portal/PortalGrantFile.h"
#include "platform/portal/PortalScreenCaptureAccess.h"
#include "platform/portal/ScreenCastPortal.h"
#include "support/LogRecorder.h"
#include "support/PipeWireSession.h"
#include "support/SessionBus.h"
#include "support/TestHome.h"

#include <gmock/gmock.h>

#include <memory>
#include <optional>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const QString laptop = QStringLiteral("Maker Panel");
const QString external = QStringLiteral("Maker Monitor");

/// A session of a laptop's panel, on a desktop whose compositor tells its monitors, and nobody else does: like KDE's.
class PluggedIn : public testing::Test
{
protected:
    PluggedIn() { m_service.behave({.streams = {{.node = m_pictures.node()}}, .newToken = "another"}); }
    ~PluggedIn() override
    {
        m_queue.sync([this] { m_source.reset(); });
    }

    void grant(const QStringList &monitors, const char *token) const
    {
        PortalGrantFile({}).keep({.monitors = monitors, .restoreToken = QString::fromLatin1(token)}, {});
    }
    static QString tokenFor(const QStringList &monitors) { return PortalGrantFile({}).grantFor(monitors).restoreToken; }
    /// A display is captured from now on.
    void open()
    {
        m_queue.sync([this] {
            const auto content = m_source->shareableContent();
            ASSERT_TRUE(content) << qPrintable(content.error().localizedDescription);
        });
    }
    /// It is captured no more.
    void close()
    {
        m_queue.sync([this] { m_source = std::make_unique<PortalDisplaySource>(m_portal); });
        m_portal->releaseUnused();
    }
    bool haveDisplaysChanged()
    {
        return m_queue.sync([this] { return m_source->haveDisplaysChanged(); });
    }
    bool wouldAskAgain()
    {
        return m_queue.sync([this] { return m_source->wouldAskAgain(); });
    }
    QList<QByteArray> tokens() const { return m_service.seen().tokens; }

    const TestHome m_home;
    SessionBus m_bus;
    PipeWireSession m_pipeWire{m_bus.environment(), m_bus.path(QStringLiteral("."))};
    TestPortal m_service{m_bus.address(), m_pipeWire.socket()};
    TestPictures m_pictures{m_pipeWire.socket(), {.size = {64, 32}}};
    SerialQueue m_queue{QStringLiteral("samples")};
    QStringList m_monitors{laptop}; ///< used on the queue, or while it rests
    int m_looks = 0;
    std::optional<int> m_changesAfterLooks; ///< then the external monitor is there, too
    PortalSeams m_seams{.reasonPatience = 30s, .compositorsMonitors = [this] {
                            const QStringList told = m_monitors;
                            if (++m_looks == m_changesAfterLooks)
                                m_monitors = {external, laptop};
                            return told;
                        }};
    std::shared_ptr<ScreenCastPortal> m_portal = std::make_shared<ScreenCastPortal>(m_seams);
    std::unique_ptr<PortalDisplaySource> m_source = std::make_unique<PortalDisplaySource>(m_portal);
    LogRecorder m_log;
};

TEST_F(PluggedIn, sameMonitors_areNoChange)
{
    grant({laptop}, "for the laptop");
    open();
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_THAT(m_log.take(QtWarningMsg), IsEmpty());
}

TEST_F(PluggedIn, monitorThatComes_isNoChangeAndSaidOnce)
{
    grant({external, laptop}, "for the desk");
    grant({laptop}, "for the laptop");
    open();
    m_monitors = {external, laptop};
    EXPECT_FALSE(haveDisplaysChanged()) << "this desktop's portal might ask all the same";
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_TRUE(wouldAskAgain());
    const QStringList said = m_log.take(QtWarningMsg);
    ASSERT_EQ(said.size(), 1);
    EXPECT_THAT(said.first().toStdString(), HasSubstr("only those that you have shared are recorded"));
}

TEST_F(PluggedIn, nextRecordingWithAMonitorThatWasSharedBefore_comesWithItsOwnToken)
{
    grant({external, laptop}, "for the desk");
    grant({laptop}, "for the laptop");
    open();
    close();
    m_monitors = {external, laptop};
    EXPECT_FALSE(m_source->wouldAskUser());
    open();
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_THAT(tokens(), ElementsAre("for the laptop", "for the desk"));
    EXPECT_THAT(m_log.take(QtWarningMsg), IsEmpty());
}

TEST_F(PluggedIn, nextRecordingWithAMonitorThatIsNew_goesOnWithWhatWasSharedAndSaysSo)
{
    grant({laptop}, "for the laptop");
    m_monitors = {external, laptop};
    EXPECT_FALSE(m_source->wouldAskUser());
    open();
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_THAT(tokens(), ElementsAre("for the laptop"));
    EXPECT_EQ(tokenFor({laptop}), QStringLiteral("another"));
    EXPECT_FALSE(PortalGrantFile({}).hasTokenForJust({external, laptop})) << "it shows the laptop alone";
    const QStringList said = m_log.take(QtWarningMsg);
    ASSERT_EQ(said.size(), 1);
    EXPECT_THAT(said.first().toStdString(), HasSubstr("ostrel permissions allow screenRecording"));
}

TEST_F(PluggedIn, usersOwnRequestWithAMonitorThatIsNew_asksAboutAll)
{
    grant({laptop}, "for the laptop");
    m_monitors = {external, laptop};
    EXPECT_TRUE(PortalScreenCaptureAccess(m_portal).request());
    EXPECT_THAT(tokens(), ElementsAre(""));
    EXPECT_EQ(tokenFor({external, laptop}), QStringLiteral("another"));
    EXPECT_EQ(tokenFor({laptop}), QStringLiteral("for the laptop"));
}

TEST_F(PluggedIn, severalThatWereShared_theOneOfMonitorsThatAreThereOpensTheNext)
{
    grant({laptop}, "for the laptop");
    grant({QStringLiteral("Maker At Home"), laptop}, "for the desk at home");
    m_monitors = {external, laptop};
    open();
    EXPECT_THAT(tokens(), ElementsAre("for the laptop"));
}

TEST_F(PluggedIn, noneOfWhichAllAreThere_theNewestIsTriedAndTheNextIsForThoseThatAre)
{
    grant({QStringLiteral("Maker At Home"), laptop}, "for the desk at home");
    open();
    EXPECT_THAT(tokens(), ElementsAre("for the desk at home"));
    EXPECT_TRUE(PortalGrantFile({}).hasTokenForJust({laptop}));
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_THAT(m_log.take(QtWarningMsg), IsEmpty());
}

TEST_F(PluggedIn, monitorThatComesWhileATokenOpensTheSession_getsNoTokenThatDoesNotShowIt)
{
    grant({external, laptop}, "for the desk");
    grant({laptop}, "for the laptop");
    m_changesAfterLooks = 1;
    open();
    EXPECT_THAT(tokens(), ElementsAre("for the laptop"));
    EXPECT_EQ(tokenFor({laptop}), QStringLiteral("another"));
    EXPECT_EQ(tokenFor({external, laptop}), QStringLiteral("for the desk"));
}

TEST_F(PluggedIn, sessionWithoutAToken_isKeptUntilTheUserAsksForOtherMonitors)
{
    m_service.behave({.streams = {{.node = m_pictures.node()}}, .newToken = ""});
    open();
    close();
    m_monitors = {external, laptop};
    EXPECT_FALSE(m_source->wouldAskUser());
    open();
    EXPECT_EQ(m_service.seen().sessions, 1) << "the next one would ask again";
    close();
    EXPECT_TRUE(PortalScreenCaptureAccess(m_portal).request());
    EXPECT_EQ(m_service.seen().sessions, 2);
}

TEST_F(PluggedIn, compositorThatGoesMeanwhile_isNoChange)
{
    grant({laptop}, "for the laptop");
    open();
    m_monitors.clear();
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_THAT(m_log.take(QtWarningMsg), IsEmpty());
}

TEST_F(PluggedIn, nothingIsOpen_isNoChangeAndAsksNobody)
{
    m_monitors = {external, laptop};
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_EQ(m_service.seen().sessions, 0);
}

TEST_F(PluggedIn, unchangedMonitors_areAskedOfTheCompositorAlone)
{
    grant({laptop}, "for the laptop");
    open();
    EXPECT_FALSE(haveDisplaysChanged());
    const int before = m_looks;
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_EQ(m_looks, before + 1);
}

/// The same with a shell that tells its monitors better.
class PluggedInOnGnome : public PluggedIn
{
protected:
    static QString nameOf(const char *serial) { return QStringLiteral("Vendor Product ") + QLatin1String(serial); }

    void plugIn()
    {
        m_shell.change({"eDP-1", "DP-2"});
        m_monitors = {external, laptop};
    }

    const QStringList m_desk{nameOf("DP-2"), nameOf("eDP-1")};
    TestShell m_shell{m_bus.address(), {"eDP-1"}};
};

TEST_F(PluggedInOnGnome, monitorThatWasSharedBefore_isAChangeUntilItIsRecordedByItsOwnToken)
{
    grant(m_desk, "for the desk");
    grant({nameOf("eDP-1")}, "for the laptop");
    open();
    EXPECT_FALSE(haveDisplaysChanged());
    plugIn();
    EXPECT_TRUE(haveDisplaysChanged());
    EXPECT_TRUE(haveDisplaysChanged()) << "not only the first time";
    EXPECT_FALSE(wouldAskAgain());
    close();
    open();
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_THAT(tokens(), ElementsAre("for the laptop", "for the desk"));
    EXPECT_THAT(m_log.take(QtWarningMsg), IsEmpty());
}

TEST_F(PluggedInOnGnome, monitorThatGoesAgainBeforeItIsRecorded_isNoChange)
{
    grant(m_desk, "for the desk");
    grant({nameOf("eDP-1")}, "for the laptop");
    open();
    plugIn();
    EXPECT_TRUE(haveDisplaysChanged());
    m_shell.change({"eDP-1"});
    m_monitors = {laptop};
    EXPECT_FALSE(haveDisplaysChanged());
}

TEST_F(PluggedInOnGnome, monitorOfWhichTheUserWasNeverAsked_isNoChange)
{
    grant({laptop, external}, "by other names");
    grant({nameOf("eDP-1")}, "for the laptop");
    open();
    plugIn();
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_TRUE(wouldAskAgain());
    EXPECT_EQ(m_log.take(QtWarningMsg).size(), 1);
}

TEST_F(PluggedInOnGnome, sessionWithoutATokenOfItsOwn_isNoChange)
{
    grant(m_desk, "for the desk");
    m_service.behave({.streams = {{.node = m_pictures.node()}}, .newToken = ""});
    open();
    plugIn();
    EXPECT_FALSE(haveDisplaysChanged()) << "it would be opened again and again";
}

TEST_F(PluggedInOnGnome, sessionThatHasEnded_isNoChange)
{
    grant(m_desk, "for the desk");
    grant({nameOf("eDP-1")}, "for the laptop");
    open();
    m_service.endSharing();
    plugIn();
    EXPECT_FALSE(haveDisplaysChanged()) << "whoever opens the next one finds out why";
}

TEST_F(PluggedInOnGnome, shellThatDoesNotAnswer_isAskedAgainAtTheNextLook)
{
    grant(m_desk, "for the desk");
    grant({nameOf("eDP-1")}, "for the laptop");
    open();
    m_shell.hang();
    m_monitors = {external, laptop};
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_THAT(m_log.take(QtWarningMsg), IsEmpty()) << "nothing is known";
    m_shell.recover();
    plugIn();
    EXPECT_TRUE(haveDisplaysChanged());
}

TEST_F(PluggedInOnGnome, shellThatDoesNotAnswerAtTheStart_isNoReasonToAskTheUser)
{
    grant({nameOf("eDP-1")}, "for the laptop");
    m_shell.hang();
    open();
    EXPECT_THAT(tokens(), ElementsAre("for the laptop"));
    EXPECT_EQ(tokenFor({nameOf("eDP-1")}), QStringLiteral("another")) << "is kept for the same";
}

TEST_F(PluggedInOnGnome, questionThatNobodyAnswers_doesNotKeepFromWhatWasShared)
{
    m_seams.userPatience = 500ms;
    m_portal = std::make_shared<ScreenCastPortal>(m_seams);
    close();
    grant({nameOf("eDP-1")}, "for the laptop");
    plugIn();
    m_service.behave({.streams = {}, .answer = TestPortal::Answer::None});
    const auto refused = m_queue.sync([this] { return m_source->shareableContent(); });
    ASSERT_FALSE(refused);
    EXPECT_TRUE(isFault(refused.error(), Fault::ScreenQuestionUnanswered));
    m_service.behave({.streams = {{.node = m_pictures.node()}}, .newToken = "another"});
    EXPECT_FALSE(m_queue.sync([this] { return m_source->shareableContent(); })) << "it is not put again so soon";
    m_shell.change({"eDP-1"});
    open();
    EXPECT_THAT(tokens(), ElementsAre("", "for the laptop"));
}

TEST_F(PluggedInOnGnome, shellThatIsSlowWhileTheUserThinks_costsNoToken)
{
    m_service.behave({.streams = {{.node = m_pictures.node()}}, .newToken = "for the laptop"});
    m_shell.hangAfter(2); // before the user is asked
    open();
    EXPECT_THAT(tokens(), ElementsAre(""));
    EXPECT_TRUE(PortalGrantFile({}).hasTokenForJust({nameOf("eDP-1")}));
}

TEST_F(PluggedInOnGnome, monitorThatADockHasGivenAnotherConnector_isOpenedByItsToken)
{
    grant({nameOf("7")}, "for the screen");
    m_shell.change({"DP-6/7"});
    open();
    EXPECT_THAT(tokens(), ElementsAre("for the screen"));
    m_shell.change({"DP-5/7"});
    m_monitors = {external};
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_THAT(m_log.take(QtWarningMsg), IsEmpty());
}

} // namespace
