#include "app/ProgramUpdates.h"

#include "capture/RecordingResumeMarker.h"
#include "model/ModelFixture.h"
#include "support/HttpTestServer.h"
#include "support/RunTask.h"
#include "support/UpdateFeed.h"
#include "update/OwnInstallation.h"

using namespace ostrel;

namespace {

const QString newVersion = QStringLiteral("0.2.0");

/// A model that records, in an installation of the user's own, with a feed that has a newer version.
class UpdateWhileRecording : public RunningRecording
{
protected:
    void start(const std::optional<QString> &feedUrl)
    {
        InstalledProgram program{.bundle = {.prefix = {},
                                            .feedUrl = feedUrl,
                                            .publicKey = m_key.publicText(),
                                            .shortVersion = QStringLiteral("0.1.0")},
                                 .installation = m_own.find()};
        m_updates = std::make_unique<ProgramUpdates>(*m_model, m_clock, m_defaults, program,
                                                     [this](const QString &path) { m_relaunched = path; });
    }

    SigningKey m_key;
    OwnInstallation m_own;
    const QByteArray m_archive = programArchive(newVersion);
    const QByteArray m_feed =
        signedFeed(m_key, feedDocument({announcement(m_key, newVersion, m_archive, QStringLiteral("archive"))}));
    HttpTestServer m_server{[this](const HttpTestServer::Request &request, QTcpSocket &socket) {
        socket.write(HttpTestServer::response(200, request.line.contains("/feed ") ? m_feed : m_archive));
    }};
    std::optional<QString> m_relaunched;
    std::unique_ptr<ProgramUpdates> m_updates;
};

TEST_F(UpdateWhileRecording, recordingIsEndedAndTheMarkerWrittenBeforeTheInstallation)
{
    m_observer.expect(postFrames, statusAnswer(true));
    expectStop();
    start(m_server.url(QStringLiteral("/feed")).toString());
    ASSERT_TRUE(pumpUntil([this] { return m_relaunched.has_value(); }));
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_EQ(child().terminateCount, 1);
    EXPECT_TRUE(RecordingResumeMarker::consume());
    EXPECT_EQ(m_own.startedVersion(), newVersion);
    EXPECT_EQ(m_relaunched, m_own.path(QStringLiteral("current/bin/ostrel")));
}

TEST_F(UpdateWhileRecording, withoutAFeed_nothingIsAskedAndNoCheckIsOffered)
{
    start(std::nullopt);
    settle();
    EXPECT_EQ(m_updates->controller(), nullptr);
    EXPECT_FALSE(bool(m_updates->checkForUpdates()));
    EXPECT_EQ(m_server.requests().size(), 0);
    EXPECT_EQ(commands(), QStringList());
    m_observer.expect(postFrames, statusAnswer(true));
    expectStop();
    m_model->stopRecording();
    settle();
}

} // namespace
