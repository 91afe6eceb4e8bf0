#include "TestPictures.h"
#include "TestPortal.h"
#include "TestShell.h"
#include "base/Fault.h"
#include "platform/portal/PortalDisplaySource.h"
#include "platform/portal/PortalGrantFile.h"
#include "platform/portal/ScreenCastPortal.h"
#include "support/PipeWireSession.h"
#include "support/RealScreenRecording.h"
#include "support/RunTask.h"
#include "support/SessionBus.h"
#include "support/TestHome.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <utility>

using namespace ostrel;

namespace {

using namespace std::chrono_literals;

/// The real recorder on a desktop with two monitors, like GNOME, that does what the test says.
class UnpluggedRecording : public RealScreenRecording
{
protected:
    static constexpr QSize size{64, 32};

    UnpluggedRecording() : RealScreenRecording([] {})
    {
        m_service.behave({.streams = {{.node = m_left->node(), .id = "0"}, {.node = m_right->node(), .id = "1"}},
                          .newToken = "token"});
        makeRecorder(m_displays);
        m_recorder->onDisplaysChanged = [this] { ++m_changes; };
    }
    ~UnpluggedRecording() override { m_recorder.reset(); }

    Result<> start()
    {
        auto started = runTask<Result<>>([this](std::stop_token) { return m_recorder->start(m_settings, m_api); });
        return started.value_or(std::unexpected(Error{}));
    }
    /// Between programs that are just starting a picture may get lost.
    void recordFrame(TestPictures &pictures, std::uint32_t colour)
    {
        m_clock.advance(10s);
        const qint64 before = counter(QStringLiteral("accepted"));
        QElapsedTimer sinceSent;
        ASSERT_TRUE(pumpUntil([&] {
            if (!sinceSent.isValid() || sinceSent.hasExpired(500)) {
                pictures.send(std::vector(std::size_t(size.width() * size.height()), colour), {});
                sinceSent.start();
            }
            return counter(QStringLiteral("accepted")) > before;
        }));
    }
    qint64 counter(const QString &label)
    {
        m_samples.sync([] {});
        return counterNow(label);
    }
    /// The compositor takes both monitors' pictures away, as it does whatever the reason.
    void losePictures()
    {
        m_left.reset();
        ASSERT_TRUE(pumpUntil([&] { return m_changes > 0; }));
        m_right.reset();
        ASSERT_TRUE(pumpUntil([&] { return !m_deaths.isEmpty(); }));
    }
    qsizetype framesPosted() const
    {
        const auto requests = m_transport.requests();
        return requests.isEmpty()
                   ? 0
                   : QJsonDocument::fromJson(*requests.last().body)[QStringLiteral("frames")].toArray().size();
    }

    const TestHome m_home;
    SessionBus m_bus;
    PipeWireSession m_pipeWire{m_bus.environment(), m_bus.path(QStringLiteral("."))};
    std::optional<TestShell> m_shell{std::in_place, m_bus.address(), QList<QByteArray>{"DP-1", "DP-2"}};
    TestPortal m_service{m_bus.address(), m_pipeWire.socket()};
    std::unique_ptr<TestPictures> m_left = pictures();
    std::unique_ptr<TestPictures> m_right = pictures();
    QStringList m_compositorsMonitors; ///< used on the queue, or while it rests
    PortalDisplaySource m_displays{std::make_shared<ScreenCastPortal>(
        PortalSeams{.reasonPatience = 30s, .compositorsMonitors = [this] { return m_compositorsMonitors; }})};
    int m_changes = 0;

    std::unique_ptr<TestPictures> pictures() const
    {
        return std::make_unique<TestPictures>(m_pipeWire.socket(), TestPictures::Look{.size = size});
    }
};

TEST_F(UnpluggedRecording, unpluggedMonitor_isFollowedByAFlushAndARecordingOfTheOther)
{
    ASSERT_TRUE(start());
    recordFrame(*m_left, 0x112233);
    recordFrame(*m_right, 0x445566);
    losePictures();
    m_service.endSharing();
    m_shell->change({"DP-1"});
    const auto left = pictures();
    m_service.behave({.streams = {{.node = left->node(), .id = "0"}}, .newToken = "another"});

    m_transport.expect(QStringLiteral("POST /api/frames"), FakeHttpTransport::answer(ObserverStatus().toJson()));
    const auto again = start();
    ASSERT_TRUE(again) << qPrintable(again.error().localizedDescription);
    EXPECT_EQ(framesPosted(), 2) << "those of before";
    EXPECT_EQ(m_service.seen().tokens, (QList<QByteArray>{"", ""})) << "the user is asked";
    recordFrame(*left, 0x778899);
    EXPECT_EQ(m_deaths.size(), 1);
}

TEST_F(UnpluggedRecording, sharingThatTheUserEnds_isFollowedByAFlushAndNoRecording)
{
    ASSERT_TRUE(start());
    recordFrame(*m_left, 0x112233);
    losePictures();
    m_transport.expect(QStringLiteral("POST /api/frames"), FakeHttpTransport::answer(ObserverStatus().toJson()));
    std::optional<Result<>> again;
    m_flows.spawn([&](std::stop_token) -> Task<> { again = co_await m_recorder->start(m_settings, m_api); });
    ASSERT_TRUE(pumpUntil([&] { return framesPosted() == 1; }));
    m_service.endSharing();
    // The word of other monitors, that would excuse it, does not come; word of the same ones excuses nothing.
    m_shell->change({"DP-1", "DP-2"});
    ASSERT_TRUE(pumpUntil([&] { return again.has_value(); }));
    ASSERT_FALSE(*again);
    EXPECT_TRUE(isFault(again->error(), Fault::ScreenSharingEnded)) << qPrintable(again->error().localizedDescription);
    EXPECT_EQ(m_service.seen().sessions, 1);
}

/// The same on a desktop like KDE's, where a monitor that is unplugged ends its own pictures alone.
class UnpluggedRecordingElsewhere : public UnpluggedRecording
{
protected:
    UnpluggedRecordingElsewhere()
    {
        m_shell.reset();
        m_compositorsMonitors = {QStringLiteral("Maker Left"), QStringLiteral("Maker Right")};
    }
};

TEST_F(UnpluggedRecordingElsewhere, unpluggedMonitor_leavesTheRecordingOfTheOtherAlone)
{
    ASSERT_TRUE(start());
    recordFrame(*m_left, 0x112233);
    recordFrame(*m_right, 0x445566);
    m_samples.sync([this] { m_compositorsMonitors.removeLast(); });
    m_right.reset();
    recordFrame(*m_left, 0x778899);
    m_clock.advance(30s);
    recordFrame(*m_left, 0x111111);
    EXPECT_EQ(m_changes, 0) << "the portal would ask, and nobody may be there to answer";
    EXPECT_EQ(m_service.seen().sessions, 1);
    EXPECT_EQ(m_deaths, QStringList());
}

/// The same with a compositor that tells of a third monitor, which the user has shared before with the two.
class PluggedInRecording : public UnpluggedRecording
{
protected:
    PluggedInRecording()
    {
        m_changed = {"DP-1", "DP-2", "DP-3"};
        PortalGrantFile({}).keep({.monitors = namesOf(m_changed), .restoreToken = QStringLiteral("for all three")}, {});
    }

    static QStringList namesOf(const QList<QByteArray> &connectors)
    {
        QStringList names;
        for (const QByteArray &connector : connectors)
            names.append(QStringLiteral("Vendor Product ") + QString::fromLatin1(connector));
        return names;
    }

    QList<QByteArray> m_changed;
};

TEST_F(PluggedInRecording, monitorThatWasSharedBefore_isFollowedByAFlushAndARecordingOfAll)
{
    m_compositorsMonitors = {QStringLiteral("DP-1"), QStringLiteral("DP-2")};
    ASSERT_TRUE(start());
    recordFrame(*m_left, 0x112233);
    EXPECT_EQ(m_changes, 0);
    m_samples.sync([this] { m_compositorsMonitors.append(QStringLiteral("DP-3")); });
    m_shell->change(m_changed);
    const auto third = pictures();
    m_service.behave({.streams = {{.node = m_left->node(), .id = "0"},
                                  {.node = m_right->node(), .id = "1"},
                                  {.node = third->node(), .id = "2"}},
                      .newToken = "the next"});
    m_clock.advance(10s);
    ASSERT_TRUE(pumpUntil([&] { return m_changes == 1; }));

    m_transport.expect(QStringLiteral("POST /api/frames"), FakeHttpTransport::answer(ObserverStatus().toJson()));
    const auto again = start();
    ASSERT_TRUE(again) << qPrintable(again.error().localizedDescription);
    EXPECT_EQ(framesPosted(), 1) << "that of before";
    EXPECT_EQ(m_service.seen().tokens, (QList<QByteArray>{"", "for all three"})) << "the user is not asked again";
    EXPECT_EQ(m_service.seen().closedSessions, 1);
    recordFrame(*third, 0x778899);
    EXPECT_EQ(m_deaths, QStringList());
}

} // namespace
