#include "ModelFixture.h"

#include <QDir>
#include <QFile>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class Model : public ModelFixture
{
protected:
    void writeDay(const QString &dateKey, const QByteArray &text) const
    {
        QDir().mkpath(m_settings.outputDirectory);
        QFile day(m_settings.outputDirectory + u'/' + dateKey + QStringLiteral(".md"));
        ASSERT_TRUE(day.open(QIODevice::WriteOnly));
        day.write(text);
    }
};

TEST_F(Model, construction_startsTheObserverAndAsksItAtOnce)
{
    m_settings.localPort = 12345;
    launch();
    EXPECT_EQ(m_launcher.children().size(), 1);
    ASSERT_EQ(m_observer.endpoints(), QStringList(getStatus));
    EXPECT_EQ(m_observer.requests().constFirst().url, QUrl(QStringLiteral("http://127.0.0.1:12345/api/status")));
    EXPECT_EQ(m_model->settings(), m_settings);
    EXPECT_EQ(m_model->draftSettings(), m_settings);
    EXPECT_EQ(m_model->permissions(), PermissionsSnapshot(true, true, true));
    EXPECT_FALSE(m_model->status()->running);
}

TEST_F(Model, beforeTheFirstAnswer_thereIsNoStatus)
{
    m_launcher.expectLaunch();
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    build();
    EXPECT_EQ(m_model->status(), std::nullopt);
    EXPECT_FALSE(m_model->isRecording());
    EXPECT_EQ(m_model->recordButtonTitle(), QStringLiteral("Start recording"));
    EXPECT_EQ(m_model->recorderSubtext(), startingText);
    EXPECT_TRUE(m_model->recorderSubtextIsError());
    EXPECT_FALSE(m_model->recorderSubtextIsBackfillNotice());
}

TEST_F(Model, polling_asksEveryOneAndAHalfSeconds)
{
    launch();
    advance(1499ms);
    EXPECT_EQ(m_observer.count(getStatus), 1);
    advance(1ms);
    EXPECT_EQ(m_observer.count(getStatus), 2);
    advance(60s);
    EXPECT_EQ(m_observer.count(getStatus), 42);
}

TEST_F(Model, slowAnswer_pollsDoNotOverlap)
{
    launch();
    const auto slow = m_observer.expectHeld(getStatus);
    advance(30s);
    EXPECT_EQ(m_observer.count(getStatus), 2);
    slow->release(statusAnswer(false));
    settle();
    advance(1500ms);
    EXPECT_EQ(m_observer.count(getStatus), 3);
}

TEST_F(Model, polling_publishesWhatIsGrantedMeanwhile)
{
    m_screenGranted = false;
    launch();
    int changes = 0;
    QObject::connect(m_model.get(), &AppModel::permissionsChanged, [&changes] { ++changes; });
    advance(3s);
    EXPECT_EQ(changes, 0);
    EXPECT_TRUE(m_model->shouldShowPermissionsGate());
    m_screenGranted = true;
    advance(1500ms);
    EXPECT_EQ(changes, 1);
    EXPECT_FALSE(m_model->shouldShowPermissionsGate());
}

TEST_F(Model, repoRootMissing_textPersistsWhilePolling)
{
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    build(std::nullopt);
    EXPECT_EQ(m_model->helperError(), text("Repo root not found"));
    advance(60s);
    EXPECT_EQ(m_model->helperError(), text("Repo root not found"));
}

TEST_F(Model, observerDownAndItsChildDead_isStartedAtMostOnceInFiveSeconds)
{
    m_launcher.allowLaunches();
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    build();
    ASSERT_EQ(m_launcher.children().size(), 1);
    for (const int launches : {2, 2, 2, 2, 3, 3}) { // polls 1.5 s apart; the second start comes after 6 s
        child().running = false;
        advance(1500ms);
        EXPECT_EQ(m_launcher.children().size(), launches);
    }
}

TEST_F(Model, restartedHelper_isPolledByOneTaskOnly)
{
    launch();
    advance(700ms);
    m_launcher.expectLaunch();
    m_model->restartHelper();
    settle();
    EXPECT_EQ(m_observer.count(getStatus), 2);
    m_observer.forgetRequests();
    advance(15s);
    EXPECT_EQ(m_observer.count(getStatus), 10);
}

TEST_F(Model, restartedHelperWhileRecording_captureEndsWithItsFlush)
{
    launch();
    record();
    m_launcher.expectLaunch();
    m_observer.expect(postFrames, FakeHttpTransport::answer(R"({"running":true,"chunkIndex":0})"));
    m_model->restartHelper();
    settle();
    EXPECT_EQ(commands(), QStringList(postFrames));
    EXPECT_FALSE(m_recorder->isCapturing());
    m_observer.always(getStatus, statusAnswer(false));
    advance(1500ms);
    EXPECT_FALSE(m_model->isRecording());
}

TEST_F(Model, portOfAnotherProgram_isTheHelperErrorAndNamesThePort)
{
    m_launcher.expectLaunch();
    m_observer.always(getStatus, std::unexpected(faultError(Fault::PortTaken, QStringLiteral("8799"))));
    build();
    EXPECT_EQ(m_model->visibleHelperError(), text("Port 8799 is in use by another program"));
}

TEST_F(Model, permissionRowPressed_opensItsSettings)
{
    launch();
    m_model->requestAccessibilityPermission();
    settle();
    EXPECT_EQ(m_opener.opened, QStringList(QStringLiteral("accessibility")));
}

TEST_F(Model, journalRefreshed_holdsTheSevenNewestDays)
{
    launch();
    for (int day = 10; day < 20; ++day)
        writeDay(QStringLiteral("2024-05-%1").arg(day), "## Session a\n- [10:32] Wrote the report\n");
    int changes = 0;
    QObject::connect(m_model.get(), &AppModel::journalDaysChanged, [&changes] { ++changes; });
    m_model->refreshJournal();
    EXPECT_TRUE(m_model->journalDays().isEmpty());
    settle();
    ASSERT_EQ(m_model->journalDays().size(), 7);
    EXPECT_EQ(m_model->journalDays().constFirst().dateKey, QStringLiteral("2024-05-19"));
    EXPECT_EQ(m_model->journalDays().constLast().dateKey, QStringLiteral("2024-05-13"));
    m_model->refreshJournal();
    settle();
    EXPECT_EQ(changes, 1) << "what is the same is not announced";
}

TEST_F(Model, journalRefreshedDuringAReading_isReadOnceMore)
{
    launch();
    std::latch gate(1);
    m_worker.post([&gate] { gate.wait(); });
    m_model->refreshJournal();
    m_worker.post([this] { writeDay(QStringLiteral("2024-05-20"), "## Session a\n"); });
    m_model->refreshJournal();
    m_model->refreshJournal();
    gate.count_down();
    settle();
    EXPECT_EQ(m_model->journalDays().size(), 1);
}

TEST_F(Model, diskThatHangs_mainThreadStillHandlesEvents)
{
    launch();
    writeDay(QStringLiteral("2024-05-20"), "## Session a\n");
    std::latch gate(1);
    m_worker.post([&gate] { gate.wait(); });
    m_model->refreshJournal();
    m_model->refreshPermissions();
    m_model->toggleRecording();
    bool handled = false;
    QMetaObject::invokeMethod(m_model.get(), [&handled] { handled = true; }, Qt::QueuedConnection);
    QCoreApplication::processEvents();
    EXPECT_TRUE(handled);
    EXPECT_TRUE(m_model->journalDays().isEmpty());
    EXPECT_EQ(commands(), QStringList());

    m_observer.expect(postStart, statusAnswer(true));
    gate.count_down();
    settle();
    EXPECT_EQ(m_model->journalDays().size(), 1);
    EXPECT_TRUE(m_model->isRecording());
}

TEST_F(Model, diagnosticSummary_isTheRecorders)
{
    launch();
    record();
    EXPECT_THAT(m_model->diagnosticSummary().toStdString(), testing::HasSubstr("accepted=1"));
}

} // namespace
