#include "platform/instance/BusRemoteControl.h"
#include "platform/instance/BusRunningApplication.h"
#include "platform/instance/PassedText.h"

#include "app/StandardInput.h"
#include "base/Op.h"
#include "support/Printers.h"
#include "support/RunTask.h"
#include "support/SessionBus.h"

#include <QElapsedTimer>
#include <QTimer>

#include <gmock/gmock.h>

#include <future>

#include <unistd.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

using Outcome = SettingAnswer::Outcome;
using Answer = std::expected<SettingAnswer, RemoteFailure>;

const SettingAnswer saved{.outcome = Outcome::AtOnce, .words = QStringLiteral("Größe 😀\nzwei")};

/// Both ends on a real bus. The asking end blocks, so it has a thread of its own.
class RemoteBus : public testing::Test
{
protected:
    void open()
    {
        m_control.open({.changeSetting = [this](SettingChange change) -> Task<SettingAnswer> {
                            m_changes.append(change.key + u'=' + change.value);
                            if (m_holdsAnswers)
                                co_await Op<int>(m_life.get_token(), [](auto) { return [] {}; });
                            co_return saved;
                        },
                        .complaint = [this] { return m_complaint; },
                        .activate = {}});
    }
    std::expected<QString, RemoteFailure> complaint(qint64 processId)
    {
        auto answer = std::async(std::launch::async, [this, processId] {
            return BusRunningApplication(m_bus.address(), 10s).complaint(processId);
        });
        EXPECT_TRUE(pumpUntil([&answer] { return answer.wait_for(0s) == std::future_status::ready; }));
        return answer.get();
    }
    std::expected<bool, RemoteFailure> activate(qint64 processId)
    {
        auto answer = std::async(std::launch::async, [this, processId] {
            return BusRunningApplication(m_bus.address(), 10s).activate(processId);
        });
        EXPECT_TRUE(pumpUntil([&answer] { return answer.wait_for(0s) == std::future_status::ready; }));
        return answer.get();
    }
    std::future<Answer> ask(qint64 processId, const QString &value, std::chrono::milliseconds patience)
    {
        return std::async(std::launch::async, [this, processId, value, patience] {
            BusRunningApplication recorder(m_bus.address(), patience);
            return recorder.changeSetting(processId, {.key = QStringLiteral("model"), .value = value});
        });
    }
    Answer askAndWait(qint64 processId, const QString &value = QStringLiteral("v"),
                      std::chrono::milliseconds patience = 10s)
    {
        auto answer = ask(processId, value, patience);
        EXPECT_TRUE(pumpUntil([&answer] { return answer.wait_for(0s) == std::future_status::ready; }));
        return answer.get();
    }
    Answer askUs(const QString &value = QStringLiteral("v"), std::chrono::milliseconds patience = 10s)
    {
        return askAndWait(::getpid(), value, patience);
    }

    SessionBus m_bus;
    BusRemoteControl m_control{m_bus.address()};
    QStringList m_changes;
    QString m_complaint;
    bool m_holdsAnswers = false;
    std::stop_source m_life;
};

TEST_F(RemoteBus, change_arrivesWholeAndItsAnswerComesBack)
{
    open();
    for (const QString &value :
         {QString(), QStringLiteral("zwölf \"\n 😀"), QString(longestInput, u'x'), QStringLiteral("-")}) {
        m_changes.clear();
        EXPECT_EQ(askUs(value), Answer(saved));
        EXPECT_EQ(m_changes, QStringList(QStringLiteral("model=") + value));
    }
}

TEST_F(RemoteBus, complaint_isToldAsItIsAtTheMomentAndOnlyByTheRecorder)
{
    open();
    EXPECT_EQ(complaint(::getpid()), QString());
    m_complaint = QStringLiteral("Größe 😀");
    EXPECT_EQ(complaint(::getpid()), m_complaint);
    EXPECT_EQ(complaint(1), std::unexpected(RemoteFailure::NotTheRecorder));
}

TEST_F(RemoteBus, everyOutcome_isUnderstood)
{
    for (const Outcome outcome :
         {Outcome::AtOnce, Outcome::NextRecording, Outcome::RecordingEnds, Outcome::Refused, Outcome::NotSaved}) {
        const SettingAnswer answer{.outcome = outcome, .words = QStringLiteral("words")};
        m_control.open(
            {.changeSetting = [answer](SettingChange) -> Task<SettingAnswer> { co_return answer; }, .activate = {}});
        EXPECT_EQ(askUs(), Answer(answer));
    }
}

TEST_F(RemoteBus, value_isNotSeenByWhoeverWatchesTheBus)
{
    TestProcess monitor({.program = QStringLiteral("dbus-monitor"),
                         .arguments = {QStringLiteral("--address"), QString::fromLatin1(m_bus.address())},
                         .environment = m_bus.environment(),
                         .logFile = m_bus.path(QStringLiteral("monitor.log"))});
    monitor.readLine(10s); // it watches
    open();
    EXPECT_EQ(askUs(QStringLiteral("geheimes-wort")), Answer(saved));
    QByteArray seen;
    ASSERT_TRUE(pumpUntil([&] {
        seen += monitor.readAllOutput();
        return seen.contains("zwei");
    })) << "the answer passes by";
    EXPECT_TRUE(seen.contains("ChangeSetting"));
    EXPECT_FALSE(seen.contains("geheimes-wort"));
}

TEST_F(RemoteBus, ownerThatIsNotTheRecorder_isToldNothing)
{
    open();
    ASSERT_TRUE(askUs().has_value());
    m_changes.clear();
    EXPECT_EQ(askAndWait(::getppid()), Answer(std::unexpected(RemoteFailure::NotTheRecorder)));
    EXPECT_EQ(m_changes, QStringList());
}

TEST_F(RemoteBus, nameThatIsTaken_isLeftToItsOwner)
{
    open();
    ASSERT_TRUE(askUs().has_value());
    BusRemoteControl second(m_bus.address());
    bool secondWasAsked = false;
    second.open({.changeSetting = [&](SettingChange) -> Task<SettingAnswer> {
                     secondWasAsked = true;
                     co_return saved;
                 },
                 .activate = {}});
    EXPECT_EQ(askUs(), Answer(saved));
    second.close();
    EXPECT_EQ(askUs(), Answer(saved));
    EXPECT_FALSE(secondWasAsked);
}

TEST_F(RemoteBus, recorderThatHasJustStarted_isWaitedFor)
{
    auto answer = ask(::getpid(), QStringLiteral("v"), 10s);
    QTimer::singleShot(300ms, [this] { open(); });
    ASSERT_TRUE(pumpUntil([&answer] { return answer.wait_for(0s) == std::future_status::ready; }));
    EXPECT_EQ(answer.get(), Answer(saved));
}

TEST_F(RemoteBus, noRecorderOnTheBus_isNotThere)
{
    EXPECT_EQ(askUs(), Answer(std::unexpected(RemoteFailure::NotThere)));
    open();
    ASSERT_TRUE(askUs().has_value());
    m_control.close();
    EXPECT_EQ(askUs(), Answer(std::unexpected(RemoteFailure::NotThere))) << "the name goes with it";
}

TEST_F(RemoteBus, activation_arrivesOnTheMainThread)
{
    int activations = 0;
    m_control.open({.changeSetting = [](SettingChange) -> Task<SettingAnswer> { co_return saved; },
                    .activate = [&activations] { ++activations; }});
    EXPECT_EQ(activate(::getpid()), true);
    EXPECT_TRUE(pumpUntil([&activations] { return activations == 1; }));
    EXPECT_EQ(activate(::getppid()),
              (std::expected<bool, RemoteFailure>(std::unexpected(RemoteFailure::NotTheRecorder))));
    EXPECT_EQ(activations, 1);
}

TEST_F(RemoteBus, activationOfARecorderInATerminal_isRefusedByIt)
{
    open();
    EXPECT_EQ(activate(::getpid()), false);
}

TEST_F(RemoteBus, activationByTheDesktop_isUnderstood)
{
    int activations = 0;
    m_control.open({.changeSetting = [](SettingChange) -> Task<SettingAnswer> { co_return saved; },
                    .activate = [&activations] { ++activations; }});
    ASSERT_EQ(activate(::getpid()), true);
    TestProcess desktop(
        {.program = QStringLiteral("gdbus"),
         .arguments = {QStringLiteral("call"), QStringLiteral("--address"), QString::fromLatin1(m_bus.address()),
                       QStringLiteral("--dest"), QStringLiteral("com.tamsk.ostrel"), QStringLiteral("--object-path"),
                       QStringLiteral("/com/tamsk/ostrel"), QStringLiteral("--method"),
                       QStringLiteral("org.freedesktop.Application.ActivateAction"), QStringLiteral("open-panel"),
                       QStringLiteral("[]"), QStringLiteral("{}")},
         .environment = m_bus.environment(),
         .logFile = m_bus.path(QStringLiteral("desktop.log"))});
    EXPECT_TRUE(pumpUntil([&activations] { return activations == 2; }));
}

TEST_F(RemoteBus, noBus_isNoBusAtOnce)
{
    for (const QByteArray &address : {QByteArray(), QByteArray("unix:path=/nonexistent/bus"), QByteArray("nonsense")}) {
        BusRunningApplication recorder(address);
        EXPECT_EQ(recorder.changeSetting(::getpid(), {}), Answer(std::unexpected(RemoteFailure::NoBus)));
        BusRemoteControl control(address);
        control.open({.changeSetting = [](SettingChange) -> Task<SettingAnswer> { co_return saved; }, .activate = {}});
        control.close();
    }
}

TEST_F(RemoteBus, recorderThatDoesNotAnswer_isSilentWhenTheTimeIsOver)
{
    open();
    m_holdsAnswers = true;
    EXPECT_EQ(askUs(QStringLiteral("v"), 500ms), Answer(std::unexpected(RemoteFailure::Silent)));
    EXPECT_EQ(m_changes.size(), 1);
    m_life.request_stop();
}

TEST_F(RemoteBus, recorderThatEndsDuringACall_isNoticedAtOnce)
{
    open();
    m_holdsAnswers = true;
    auto answer = ask(::getpid(), QStringLiteral("v"), 20s);
    ASSERT_TRUE(pumpUntil([this] { return m_changes.size() == 1; }));
    m_control.close();
    m_life.request_stop();
    ASSERT_TRUE(pumpUntil([&answer] { return answer.wait_for(0s) == std::future_status::ready; }));
    EXPECT_EQ(answer.get(), Answer(std::unexpected(RemoteFailure::Broken)));
}

TEST_F(RemoteBus, answerGivenRightBeforeTheEnd_stillArrives)
{
    for (int i = 0; i < 20; ++i) {
        bool answered = false;
        m_control.open({.changeSetting = [&answered](SettingChange) -> Task<SettingAnswer> {
                            answered = true;
                            co_return saved;
                        },
                        .activate = {}});
        auto answer = ask(::getpid(), QStringLiteral("v"), 10s);
        ASSERT_TRUE(pumpUntil([&answered] { return answered; }));
        m_control.close();
        ASSERT_EQ(answer.wait_for(10s), std::future_status::ready);
        EXPECT_EQ(answer.get(), Answer(saved));
    }
}

TEST_F(RemoteBus, busThatHangs_keepsNobody)
{
    m_bus.process().freeze();
    QElapsedTimer elapsed;
    elapsed.start();
    open();
    EXPECT_LT(elapsed.elapsed(), 500) << "opening waits for nothing";
    EXPECT_EQ(askUs(QStringLiteral("v"), 500ms), Answer(std::unexpected(RemoteFailure::Silent)));
    elapsed.restart();
    m_control.close();
    EXPECT_LT(elapsed.elapsed(), 5000);
    m_bus.process().thaw();
}

TEST_F(RemoteBus, busThatHangsLater_keepsNobody)
{
    open();
    ASSERT_TRUE(askUs().has_value());
    m_bus.process().freeze();
    QElapsedTimer elapsed;
    elapsed.start();
    m_control.close();
    EXPECT_LT(elapsed.elapsed(), 5000);
    m_bus.process().thaw();
}

TEST(PassedTextOfAStranger, onlyAFileOfFittingLengthIsRead)
{
    EXPECT_EQ(PassedText::readFrom(PassedText(QStringLiteral("zwölf")).descriptor()), QStringLiteral("zwölf"));
    EXPECT_EQ(PassedText::readFrom(PassedText(QString()).descriptor()), QString());
    EXPECT_EQ(PassedText::readFrom(PassedText(QString(5 * longestInput, u'x')).descriptor()), std::nullopt);
    int pipe[2] = {};
    ASSERT_EQ(::pipe(pipe), 0);
    EXPECT_EQ(PassedText::readFrom(pipe[0]), std::nullopt) << "and it is not waited for";
    ::close(pipe[0]);
    ::close(pipe[1]);
    EXPECT_EQ(PassedText::readFrom(-1), std::nullopt);
}

} // namespace
