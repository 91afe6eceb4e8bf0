#include "TestPictures.h"
#include "TestPortal.h"
#include "TestShell.h"
#include "base/Fault.h"
#include "base/SerialQueue.h"
#include "platform/portal/PortalDisplaySource.h"
#include "platform/portal/PortalGrantFile.h"
#include "platform/portal/ScreenCastPortal.h"
#include "support/LogRecorder.h"
#include "support/PipeWireSession.h"
#include "support/SessionBus.h"
#include "support/TestHome.h"

#include <gmock/gmock.h>

#include <memory>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const QString laptop = QStringLiteral("eDP-1 Maker Panel");
const QString external = QStringLiteral("DP-2 Maker Screen");

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
    /// A display is captured from now on.
    void open()
    {
        m_queue.sync([this] {
            const auto content = m_source->shareableContent();
            ASSERT_TRUE(content) << qPrintable(content.error().localizedDescription);
        });
    }
    bool haveDisplaysChanged()
    {
        return m_queue.sync([this] { return m_source->haveDisplaysChanged(); });
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
    PortalSeams m_seams{.reasonPatience = 30s, .compositorsMonitors = [this] {
                            ++m_looks;
                            return m_monitors;
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

TEST_F(PluggedIn, monitorThatWasSharedBefore_isAChangeUntilItIsRecordedByItsOwnToken)
{
    grant({external, laptop}, "for the desk");
    grant({laptop}, "for the laptop");
    open();
    m_monitors = {external, laptop};
    EXPECT_TRUE(haveDisplaysChanged());
    EXPECT_TRUE(haveDisplaysChanged()) << "not only the first time";

    m_queue.sync([this] { m_source = std::make_unique<PortalDisplaySource>(m_portal); });
    m_portal->releaseUnused();
    open();
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_THAT(tokens(), ElementsAre("for the laptop", "for the desk"));
    EXPECT_THAT(m_log.take(QtWarningMsg), IsEmpty());
}

TEST_F(PluggedIn, monitorOfWhichTheUserWasNeverAsked_isNoChangeAndSaidOnce)
{
    grant({laptop}, "for the laptop");
    open();
    m_monitors = {external, laptop};
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_FALSE(haveDisplaysChanged());
    const QStringList said = m_log.take(QtWarningMsg);
    ASSERT_EQ(said.size(), 1);
    EXPECT_THAT(said.first().toStdString(), HasSubstr("only those that you have shared are recorded"));
}

TEST_F(PluggedIn, nextRecordingWithAMonitorThatIsNew_asksTheUserAndItsTokenIsKeptForBoth)
{
    grant({laptop}, "for the laptop");
    m_monitors = {external, laptop};
    EXPECT_TRUE(m_source->wouldAskUser());
    open();
    EXPECT_THAT(tokens(), ElementsAre(""));
    EXPECT_TRUE(PortalGrantFile({}).hasTokenForJust({external, laptop}));
    EXPECT_TRUE(PortalGrantFile({}).hasTokenForJust({laptop}));
}

TEST_F(PluggedIn, questionThatNobodyAnswers_doesNotKeepFromWhatWasShared)
{
    m_seams.userPatience = 500ms;
    m_portal = std::make_shared<ScreenCastPortal>(m_seams);
    m_queue.sync([this] { m_source = std::make_unique<PortalDisplaySource>(m_portal); });
    grant({laptop}, "for the laptop");
    m_monitors = {external, laptop};
    m_service.behave({.streams = {}, .answer = TestPortal::Answer::None});
    const auto refused = m_queue.sync([this] { return m_source->shareableContent(); });
    ASSERT_FALSE(refused);
    EXPECT_TRUE(isFault(refused.error(), Fault::ScreenQuestionUnanswered));
    m_service.behave({.streams = {{.node = m_pictures.node()}}, .newToken = "another"});
    EXPECT_FALSE(m_queue.sync([this] { return m_source->shareableContent(); })) << "it is not put again so soon";
    m_monitors = {laptop};
    open();
    EXPECT_THAT(tokens(), ElementsAre("", "for the laptop"));
}

TEST_F(PluggedIn, monitorThatGoesAgainBeforeItIsRecorded_isNoChange)
{
    grant({external, laptop}, "for the desk");
    grant({laptop}, "for the laptop");
    open();
    m_monitors = {external, laptop};
    EXPECT_TRUE(haveDisplaysChanged());
    m_monitors = {laptop};
    EXPECT_FALSE(haveDisplaysChanged());
}

TEST_F(PluggedIn, compositorThatGoesMeanwhile_isNoChange)
{
    grant({laptop}, "for the laptop");
    open();
    m_monitors.clear();
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_THAT(m_log.take(QtWarningMsg), IsEmpty());
}

TEST_F(PluggedIn, sessionThatHasEnded_isNoChange)
{
    grant({external, laptop}, "for the desk");
    grant({laptop}, "for the laptop");
    open();
    m_service.endSharing();
    m_monitors = {external, laptop};
    EXPECT_FALSE(haveDisplaysChanged()) << "whoever opens the next one finds out why";
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
    static QString nameOf(const char *connector)
    {
        return QStringLiteral("('%1', 'Vendor', 'Product', '0x1')").arg(QLatin1String(connector));
    }

    TestShell m_shell{m_bus.address(), {"eDP-1"}};
};

TEST_F(PluggedInOnGnome, monitorThatWasSharedBefore_isAChangeByTheShellsNames)
{
    grant({nameOf("DP-2"), nameOf("eDP-1")}, "for the desk");
    grant({nameOf("eDP-1")}, "for the laptop");
    open();
    EXPECT_FALSE(haveDisplaysChanged());
    m_shell.change({"eDP-1", "DP-2"});
    m_monitors = {external, laptop};
    EXPECT_TRUE(haveDisplaysChanged());
    EXPECT_THAT(tokens(), ElementsAre("for the laptop"));
}

TEST_F(PluggedInOnGnome, monitorOfWhichTheUserWasNeverAsked_isNoChange)
{
    grant({laptop, external}, "by other names");
    grant({nameOf("eDP-1")}, "for the laptop");
    open();
    m_shell.change({"eDP-1", "DP-2"});
    m_monitors = {external, laptop};
    EXPECT_FALSE(haveDisplaysChanged());
    EXPECT_EQ(m_log.take(QtWarningMsg).size(), 1);
}

} // namespace
