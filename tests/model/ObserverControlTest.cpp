#include "model/ObserverControl.h"
#include "ObserverRoot.h"
#include "base/SerialQueue.h"
#include "base/TaskScope.h"
#include "model/ModelState.h"
#include "support/FakeHttpTransport.h"
#include "support/FakeProcessLauncher.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <gmock/gmock.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const QString getStatus = QStringLiteral("GET /api/status");
const QString postStop = QStringLiteral("POST /api/stop");
const QString startingText = QStringLiteral("Starting recording service\u2026");

FakeHttpTransport::Answer idle()
{
    return FakeHttpTransport::answer(R"({"running":false,"chunkIndex":0})");
}

QString words(Fault fault, const QString &detail = {})
{
    return faultError(fault, detail).localizedDescription;
}

class Observer : public testing::Test
{
protected:
    std::unique_ptr<ObserverControl> make(std::optional<QString> repoRoot)
    {
        auto control = std::make_unique<ObserverControl>(ObserverControl::Dependencies{
            .clock = m_clock,
            .state = m_state,
            .launcher = m_launcher,
            .transport = m_transport,
            .worker = m_worker,
            .localAPIToken = QStringLiteral("local-token"),
            .repoRoot = std::move(repoRoot),
        });
        control->hooks = {.applyObserverStatus = [this](const ObserverStatus &) { ++m_applied; },
                          .stopCapture = [this] { m_steps.append(QStringLiteral("stop capture")); },
                          .startPolling = [this] { m_steps.append(QStringLiteral("start polling")); }};
        return control;
    }
    void refresh(ObserverControl &control)
    {
        m_tasks.spawn([&control](std::stop_token stop) { return control.refreshStatus(std::move(stop)); });
    }
    void refuseStatus(Fault fault = Fault::ConnectionRefused, const QString &detail = {})
    {
        m_transport.always(getStatus, std::unexpected(faultError(fault, detail)));
    }
    void endChild() { m_launcher.children().constLast()->running = false; }

    SerialQueue m_worker{QStringLiteral("test.worker")};
    ManualClock m_clock{[this] { settleEvents({&m_worker}); }};
    ModelState m_state{ObserverSettings::defaults()};
    FakeProcessLauncher m_launcher;
    FakeHttpTransport m_transport;
    int m_applied = 0;
    QStringList m_steps;
    ObserverRoot m_root;
    std::unique_ptr<ObserverControl> m_control = make(m_root.path());
    TaskScope m_tasks;
};

TEST_F(Observer, start_launchesTheChildAndClearsTheError)
{
    m_state.setHelperError(QStringLiteral("old trouble"));
    m_launcher.expectLaunch();
    EXPECT_TRUE(m_control->startHelper());
    EXPECT_EQ(m_state.helperError(), std::nullopt);
    const ProcessDescription &child = m_launcher.children().constFirst()->description;
    EXPECT_EQ(child.workingDirectory, m_root.path());
    EXPECT_EQ(child.environment.value(QStringLiteral("OSTREL_LOCAL_API_TOKEN")), QStringLiteral("local-token"));
    EXPECT_TRUE(m_control->startHelper()) << "the child that runs is enough";
    EXPECT_EQ(m_launcher.children().size(), 1);
}

TEST_F(Observer, start_handsTheSecretsOfTheSettingsDown)
{
    ObserverSettings settings = ObserverSettings::defaults();
    settings.analysisApiToken = QStringLiteral("analysis-secret");
    settings.byokGoogleVertexApiKey = QStringLiteral("vertex-secret");
    m_state.setSettings(settings);
    m_launcher.expectLaunch();
    EXPECT_TRUE(m_control->startHelper());
    const QByteArray line = m_launcher.children().constFirst()->description.standardInput;
    EXPECT_THAT(line.toStdString(), testing::HasSubstr("analysis-secret"));
    EXPECT_THAT(line.toStdString(), testing::HasSubstr("vertex-secret"));
}

TEST_F(Observer, repoRootMissing_isTheHelperErrorUntilTheStartSucceeds)
{
    const auto control = make(std::nullopt);
    EXPECT_FALSE(control->startHelper());
    EXPECT_EQ(m_state.helperError(), QStringLiteral("Repo root not found"));
    for (const Fault fault : {Fault::ConnectionRefused, Fault::PortTaken, Fault::TimedOut}) {
        refuseStatus(fault, QStringLiteral("8799"));
        refresh(*control);
        EXPECT_EQ(m_state.helperError(), QStringLiteral("Repo root not found"));
    }
    m_transport.always(getStatus, idle());
    refresh(*control);
    EXPECT_EQ(m_state.helperError(), QStringLiteral("Repo root not found"));
}

TEST_F(Observer, launchFails_isTheHelperErrorAndStaysWhilePolling)
{
    const Error noNode = faultError(Fault::NoSuchProgram, QStringLiteral("node"));
    m_launcher.expectFailure(noNode);
    EXPECT_EQ(m_control->startHelper(), std::unexpected(noNode));
    EXPECT_EQ(m_state.helperError(), noNode.localizedDescription);
    refuseStatus();
    m_launcher.expectFailure(noNode);
    refresh(*m_control);
    EXPECT_EQ(m_state.helperError(), noNode.localizedDescription);
    refresh(*m_control);
    EXPECT_EQ(m_state.helperError(), noNode.localizedDescription);

    m_clock.advance(5001ms);
    m_launcher.expectLaunch();
    refresh(*m_control);
    EXPECT_EQ(m_state.helperError(), startingText);
}

TEST_F(Observer, childDeadAndStatusFailingThreeSecondsApart_isStartedOnceAndAgainAfterSix)
{
    refuseStatus();
    m_launcher.expectLaunch();
    refresh(*m_control);
    endChild();
    m_clock.advance(3s);
    refresh(*m_control);
    EXPECT_EQ(m_launcher.children().size(), 1);
    m_clock.advance(3s);
    m_launcher.expectLaunch();
    refresh(*m_control);
    EXPECT_EQ(m_launcher.children().size(), 2);
}

TEST_F(Observer, childDead_isStartedAgainAfter5001MsAndNotAfter5000)
{
    refuseStatus();
    m_launcher.expectLaunch();
    refresh(*m_control);
    endChild();
    m_clock.advance(5000ms);
    refresh(*m_control);
    EXPECT_EQ(m_launcher.children().size(), 1);
    m_clock.advance(1ms);
    m_launcher.expectLaunch();
    refresh(*m_control);
    EXPECT_EQ(m_launcher.children().size(), 2);
}

TEST_F(Observer, childRunsAndStatusFails_isNotStartedAgain)
{
    m_launcher.expectLaunch();
    EXPECT_TRUE(m_control->startHelper());
    refuseStatus();
    refresh(*m_control);
    m_clock.advance(60s);
    refresh(*m_control);
    EXPECT_EQ(m_launcher.children().size(), 1);
    EXPECT_EQ(m_state.helperError(), startingText);
}

TEST_F(Observer, statusFails_onlyTransientTextsGiveWay)
{
    m_launcher.allowLaunches();
    refuseStatus();
    m_control->startHelper();
    for (const char *transient : {"Helper stopped", "Starting helper"}) {
        m_state.setHelperError(QString::fromLatin1(transient));
        refresh(*m_control);
        EXPECT_EQ(m_state.helperError(), startingText);
    }
    m_state.setHelperError(QStringLiteral("No capturable display found"));
    refresh(*m_control);
    EXPECT_EQ(m_state.helperError(), QStringLiteral("No capturable display found"));
}

TEST_F(Observer, statusSucceedsAgain_onlyTransientTextsAreTakenAway)
{
    m_transport.always(getStatus, idle());
    for (const QString &transient :
         {startingText, QStringLiteral("Helper stopped"), QStringLiteral("Starting helper")}) {
        m_state.setHelperError(transient);
        refresh(*m_control);
        EXPECT_EQ(m_state.helperError(), std::nullopt);
    }
    m_state.setHelperError(QStringLiteral("No capturable display found"));
    refresh(*m_control);
    EXPECT_EQ(m_state.helperError(), QStringLiteral("No capturable display found"));
    EXPECT_EQ(m_applied, 4);
}

TEST_F(Observer, portTaken_isShownUntilItIsFree)
{
    const QString taken = words(Fault::PortTaken, QStringLiteral("8799"));
    m_launcher.allowLaunches();
    m_control->startHelper();
    refuseStatus(Fault::PortTaken, QStringLiteral("8799"));
    refresh(*m_control);
    EXPECT_EQ(m_state.helperError(), taken);
    refresh(*m_control);
    EXPECT_EQ(m_state.helperError(), taken);
    refuseStatus();
    refresh(*m_control);
    EXPECT_EQ(m_state.helperError(), startingText);
    refuseStatus(Fault::PortTaken, QStringLiteral("8799"));
    refresh(*m_control);
    m_transport.always(getStatus, idle());
    refresh(*m_control);
    EXPECT_EQ(m_state.helperError(), std::nullopt);
}

TEST_F(Observer, unreachable_isAskedThirtyTimesAQuarterOfASecondApart)
{
    refuseStatus();
    std::optional<Result<>> outcome;
    m_tasks.spawn([this, &outcome](std::stop_token stop) -> Task<> {
        outcome = co_await m_control->waitUntilReachable(ObserverControl::reachableAttempts, std::move(stop));
    });
    for (int asked = 1; asked < 30; ++asked) {
        EXPECT_EQ(m_transport.count(getStatus), asked);
        m_clock.advance(249ms);
        EXPECT_EQ(m_transport.count(getStatus), asked);
        m_clock.advance(1ms);
    }
    EXPECT_EQ(m_transport.count(getStatus), 30);
    EXPECT_EQ(outcome, Result<>(std::unexpected(faultError(Fault::ConnectionRefused))));
    m_clock.advance(10s);
    EXPECT_EQ(m_transport.count(getStatus), 30);
}

TEST_F(Observer, restart_stopsCaptureReplacesTheChildAndPollsAfresh)
{
    m_launcher.expectLaunch();
    m_control->startHelper();
    m_launcher.expectLaunch();
    m_control->restartHelper();
    EXPECT_EQ(m_launcher.children().constFirst()->terminateCount, 1);
    EXPECT_EQ(m_launcher.children().size(), 2);
    EXPECT_TRUE(m_launcher.children().constLast()->running);
    EXPECT_EQ(m_steps, QStringList({QStringLiteral("stop capture"), QStringLiteral("start polling")}));
}

TEST_F(Observer, statusOlderThanAStop_isNotApplied)
{
    const auto late = m_transport.expectHeld(getStatus);
    refresh(*m_control);
    m_transport.expect(QStringLiteral("POST /api/stop"), idle());
    m_tasks.spawn([this](std::stop_token stop) -> Task<> { co_await m_control->stopRecording(std::move(stop)); });
    late->release(FakeHttpTransport::answer(R"({"running":true,"chunkIndex":0})"));
    EXPECT_EQ(m_applied, 0);
    EXPECT_FALSE(m_state.observerIsRunning());
}

TEST_F(Observer, refreshStopped_changesNothing)
{
    const auto late = m_transport.expectHeld(getStatus);
    refresh(*m_control);
    m_tasks.cancelAll();
    EXPECT_TRUE(late->wasCancelled());
    EXPECT_EQ(m_tasks.liveCount(), 0);
    EXPECT_EQ(m_state.helperError(), std::nullopt);
    EXPECT_EQ(m_launcher.children().size(), 0);
}

class Leftovers : public Observer
{
protected:
    void write()
    {
        m_launcher.expectLaunch();
        m_writing.start([this](std::stop_token stop) -> Task<> {
            const bool written = co_await m_control->writeLeftovers(stop);
            if (!stop.stop_requested())
                m_written = written;
        });
        m_clock.advance(0ms);
    }
    int terminations() const { return m_launcher.children().constFirst()->terminateCount; }

    void expectGivenUpAfterTwentySeconds(const FakeHttpTransport::HeldAnswer &hanging)
    {
        m_clock.advance(19'999ms);
        EXPECT_EQ(m_written, std::nullopt);
        EXPECT_EQ(terminations(), 0);
        m_clock.advance(1ms);
        EXPECT_EQ(m_written, false);
        EXPECT_TRUE(hanging.wasCancelled());
        EXPECT_EQ(terminations(), 1);
    }

    std::optional<bool> m_written;
    TaskSlot m_writing;
};

TEST_F(Leftovers, successorAnswersTheStop_areWrittenAndItIsAskedToEnd)
{
    m_transport.always(getStatus, idle());
    m_transport.expect(postStop, idle());
    write();
    EXPECT_EQ(m_written, true);
    EXPECT_EQ(terminations(), 1);
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
}

TEST_F(Leftovers, successorNeverAnswers_areGivenUpAfterTwentySeconds)
{
    const auto hanging = m_transport.expectHeld(getStatus);
    write();
    expectGivenUpAfterTwentySeconds(*hanging);
}

TEST_F(Leftovers, successorHangsInTheStop_areGivenUpAfterTwentySeconds)
{
    m_transport.always(getStatus, idle());
    const auto hanging = m_transport.expectHeld(postStop);
    write();
    expectGivenUpAfterTwentySeconds(*hanging);
}

TEST_F(Leftovers, nobodyEverListens_areGivenUpWhenTheAttemptsAreOver)
{
    refuseStatus();
    write();
    m_clock.advance(20s);
    EXPECT_EQ(m_written, false);
    EXPECT_EQ(m_transport.count(getStatus), ObserverControl::reachableAttempts);
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
}

TEST_F(Leftovers, cancelled_endsAtOnceAndLeavesNoTimer)
{
    const auto hanging = m_transport.expectHeld(getStatus);
    write();
    m_writing.cancel();
    EXPECT_FALSE(m_writing.isRunning());
    EXPECT_TRUE(hanging->wasCancelled());
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
    EXPECT_EQ(m_written, std::nullopt);
}

TEST_F(Leftovers, noSuccessorCanBeStarted_areGivenUpAtOnce)
{
    const auto control = make(std::nullopt);
    std::optional<bool> written;
    m_writing.start(
        [&](std::stop_token stop) -> Task<> { written = co_await control->writeLeftovers(std::move(stop)); });
    EXPECT_EQ(written, false);
}

} // namespace
