#include "observer/QProcessLauncher.h"

#include "base/Fault.h"
#include "support/Printers.h"
#include "support/RunTask.h"

#include "ObserverRoot.h"

#include <gtest/gtest.h>

#include <csignal>
#include <unistd.h>

using namespace ostrel;

namespace {

class Launcher : public testing::Test
{
protected:
    /// A shell that runs in the test's folder; its script may write to the file "report".
    ProcessDescription shell(const char *script) const
    {
        return {.executable = QStringLiteral("/bin/sh"),
                .arguments = {QStringLiteral("-c"), QString::fromLatin1(script)},
                .environment = QProcessEnvironment::systemEnvironment(),
                .workingDirectory = m_folder.path(),
                .standardInput = {}};
    }
    std::unique_ptr<ChildProcess> launch(const ProcessDescription &description)
    {
        auto child = m_launcher.launch(description);
        EXPECT_TRUE(child.has_value());
        return child ? *std::move(child) : nullptr;
    }
    QByteArray report() const { return readFile(m_folder.path(QStringLiteral("report"))).value_or(QByteArray()); }
    static bool exists(qint64 pid) { return ::kill(pid_t(pid), 0) == 0; }
    Error failure(const ProcessDescription &description)
    {
        const auto child = m_launcher.launch(description);
        EXPECT_FALSE(child.has_value());
        return child ? Error{} : child.error();
    }

    ObserverRoot m_folder;
    QProcessLauncher m_launcher;
};

TEST_F(Launcher, whatIsMissingOrForbidden_isNamed)
{
    ProcessDescription description = shell("exit 0");
    description.workingDirectory = QStringLiteral("/no/such/folder");
    EXPECT_EQ(failure(description), faultError(Fault::NoSuchFile, QStringLiteral("/no/such/folder")));
    description = shell("exit 0");
    description.executable = QStringLiteral("/no/such/program");
    EXPECT_EQ(failure(description), faultError(Fault::NoSuchProgram, QStringLiteral("/no/such/program")));
    m_folder.write(QStringLiteral("plain"), "#!/bin/sh\n");
    description.executable = m_folder.path(QStringLiteral("plain"));
    EXPECT_EQ(failure(description), faultError(Fault::PermissionDenied, description.executable));
    m_folder.writeProgram(QStringLiteral("broken"), "#!/no/such/interpreter\n");
    description.executable = m_folder.path(QStringLiteral("broken"));
    EXPECT_TRUE(isFault(failure(description), Fault::ProgramFailedToStart));
}

TEST_F(Launcher, largeStandardInput_arrivesWholeAndStaysOpen)
{
    ProcessDescription description = shell("head -c 300000 | wc -c > report; read x; echo end >> report");
    description.standardInput = QByteArray(300'000, 'x');
    const auto child = launch(description);
    EXPECT_TRUE(pumpUntil([this] { return report() == "300000\n"; }));
    child->terminate();
    EXPECT_TRUE(pumpUntil([&child] { return !child->isRunning(); }));
}

TEST_F(Launcher, noLog_outputGoesNowhere)
{
    const auto child = launch(
        shell("echo noise; (readlink /proc/$$/fd/1; readlink /proc/$$/fd/2) > report.tmp; mv report.tmp report"));
    EXPECT_TRUE(pumpUntil([this] { return report() == "/dev/null\n/dev/null\n"; })) << report().toStdString();
    EXPECT_TRUE(pumpUntil([&child] { return !child->isRunning(); }));
}

TEST_F(Launcher, child_leadsASessionOfItsOwn)
{
    const auto child = launch(shell("cut -d' ' -f6 /proc/$$/stat > report.tmp; mv report.tmp report; read x"));
    ASSERT_TRUE(pumpUntil([this] { return !report().isEmpty(); }));
    EXPECT_EQ(report().trimmed().toLongLong(), child->processId());
    EXPECT_NE(report().trimmed().toLongLong(), ::getsid(0));
    child->terminate();
    EXPECT_TRUE(pumpUntil([&child] { return !child->isRunning(); }));
}

TEST_F(Launcher, signalsThatWeBlock_stillReachTheChild)
{
    sigset_t term, before;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &term, &before), 0);
    // Its input stays open elsewhere, so only the signal can end it.
    const auto child = launch(shell("exec sleep 1000"));
    ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
    child->terminate();
    EXPECT_TRUE(pumpUntil([&child] { return !child->isRunning(); }));
}

TEST_F(Launcher, childThatIgnoresTheSignal_seesTheEndOfItsInput)
{
    const auto child = launch(shell("trap '' TERM; echo ready > report; cat; echo ended > report"));
    ASSERT_TRUE(pumpUntil([this] { return report() == "ready\n"; }));
    child->terminate();
    EXPECT_TRUE(pumpUntil([this] { return report() == "ended\n"; }));
}

TEST_F(Launcher, destroyedChild_runsOnWithItsInputOpenAndIsReapedWhenItEnds)
{
    auto child = launch(shell("echo ready > report; cat; echo ended > report"));
    ASSERT_TRUE(pumpUntil([this] { return report() == "ready\n"; }));
    const qint64 pid = child->processId();
    child.reset();
    // Whatever a destructor sets off has happened once another child has come and gone.
    const auto other = launch(shell("exit 0"));
    ASSERT_TRUE(pumpUntil([&other] { return !other->isRunning(); }));
    EXPECT_TRUE(exists(pid));
    EXPECT_EQ(report(), QByteArray("ready\n"));
    ASSERT_EQ(::kill(pid_t(pid), SIGTERM), 0);
    EXPECT_TRUE(pumpUntil([pid] { return !exists(pid); })) << "it stayed a zombie";
}

TEST_F(Launcher, childThatEnds_isReapedAndKeepsItsHandleUsable)
{
    const auto child = launch(shell("exit 3"));
    const qint64 pid = child->processId();
    ASSERT_GT(pid, 0);
    ASSERT_TRUE(pumpUntil([&child] { return !child->isRunning(); }));
    EXPECT_FALSE(exists(pid));
    child->terminate(); // must not hit whoever has the pid by now
}

} // namespace
