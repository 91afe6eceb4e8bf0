#include "ModelFixture.h"

using namespace ostrel;

namespace {

/// Settings that are saved while a recording runs.
class SavingWhileRecording : public RunningRecording
{
protected:
    void save(const ObserverSettings &next)
    {
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        m_tasks.spawn([this, next](std::stop_token) -> Task<> { m_saved = co_await m_model->saveSettings(next); });
        settle();
    }
    ObserverSettings onAnotherPort() const
    {
        ObserverSettings next = m_model->settings();
        next.localPort = 9001;
        return next;
    }
    /// Where each command to the observer went.
    QStringList commandsWithPorts() const
    {
        QStringList commands;
        for (const auto &request : m_observer.requests()) {
            if (request.method != "GET")
                commands.append(QStringLiteral("%1 %2").arg(request.url.path()).arg(request.url.port()));
        }
        return commands;
    }

    std::optional<bool> m_saved;
    TaskScope m_tasks;
};

TEST_F(SavingWhileRecording, samePort_theRecordingGoesOnAndTheObserverIsTold)
{
    m_observer.expect(QStringLiteral("PUT /api/settings"),
                      FakeHttpTransport::answer(ObserverSettings::defaults().toJson()));
    ObserverSettings next = m_model->settings();
    next.frameFps = 1;
    save(next);
    EXPECT_EQ(m_saved, true);
    EXPECT_TRUE(m_model->isRecording());
    EXPECT_TRUE(m_recorder->isCapturing());
    EXPECT_EQ(commands(), QStringList(QStringLiteral("PUT /api/settings")));
    EXPECT_EQ(m_events, QStringList());
}

TEST_F(SavingWhileRecording, anotherPort_theRecordingEndsWholeBeforeTheObserverMoves)
{
    expectStop();
    m_observer.expect(postFrames, statusAnswer(true));
    m_launcher.expectLaunch();
    save(onAnotherPort());
    EXPECT_EQ(m_saved, true);
    EXPECT_EQ(commandsWithPorts(), QStringList({QStringLiteral("/api/frames 8799"), QStringLiteral("/api/stop 8799")}));
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_EQ(m_launcher.children()[0]->terminateCount, 1);
    EXPECT_EQ(m_launcher.children().size(), 2);
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    EXPECT_EQ(m_observer.requests().last().url.port(), 9001) << "polling goes to the new one";
}

TEST_F(SavingWhileRecording, anotherPortAndQuitAtTheEnd_theObserverIsNotStartedAgain)
{
    QObject::connect(m_model.get(), &AppModel::recordingEnded, [this] { m_model->quit(); });
    expectStop();
    m_observer.expect(postStop, statusAnswer(false)); // of the quitting, which can't know that all is said
    m_observer.expect(postFrames, statusAnswer(true));
    save(onAnotherPort());
    EXPECT_EQ(m_saved, true);
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
    EXPECT_EQ(m_launcher.children().size(), 1);
    for (const QString &command : commandsWithPorts())
        EXPECT_TRUE(command.endsWith(QLatin1String(" 8799"))) << command.toStdString();
}

TEST_F(SavingWhileRecording, quitDuringASave_waitsForIt)
{
    expectStop();
    m_observer.expect(postFrames, statusAnswer(true));
    m_secrets.block();
    ObserverSettings next = m_model->settings();
    next.byokGoogleVertexApiKey = QStringLiteral("secret");
    // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    m_tasks.spawn([this, next](std::stop_token) -> Task<> { m_saved = co_await m_model->saveSettings(next); });
    m_model->quit();
    settleEvents({&m_samples, &m_context, &m_observerQueue, &m_worker});
    EXPECT_EQ(m_events, QStringList(endedByRequest)) << "capture does not wait for the keyring";
    EXPECT_EQ(m_saved, std::nullopt);
    m_secrets.unblock();
    settle();
    EXPECT_EQ(m_saved, true);
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
    EXPECT_EQ(m_secrets.item(vertexApiKeyService), QStringLiteral("secret"));
}

} // namespace
