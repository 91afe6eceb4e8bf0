#include "observer/HelperProcess.h"

#include "base/Fault.h"
#include "support/FakeProcessLauncher.h"
#include "support/Printers.h"

#include "ObserverRoot.h"
#include "support/TestHome.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace ostrel;

namespace {

/// Sets one variable of our own environment for one test; a null value unsets it.
class Variable
{
public:
    Variable(const char *name, const QByteArray &value)
        : m_name(name), m_before(qgetenv(name)), m_wasSet(qEnvironmentVariableIsSet(name))
    {
        value.isNull() ? qunsetenv(name) : qputenv(name, value);
    }
    ~Variable() { m_wasSet ? qputenv(m_name, m_before) : qunsetenv(m_name); }

private:
    const char *m_name;
    const QByteArray m_before;
    const bool m_wasSet;
};

const ObserverSecrets secrets{QStringLiteral("analysis-secret"), QStringLiteral("vertex-secret")};

class Helper : public testing::Test
{
protected:
    Result<> start() { return m_helper.start(m_root.path(), QStringLiteral("local-token"), secrets); }
    const ProcessDescription &launched() const { return m_launcher.children().last()->description; }
    QString variable(const char *name) const { return launched().environment.value(QString::fromLatin1(name)); }

    TestHome m_home;
    ObserverRoot m_root;
    FakeProcessLauncher m_launcher;
    HelperProcess m_helper{m_launcher};
};

TEST_F(Helper, bundledRoot_runsTheBundleWithNodeFromThePath)
{
    m_root.makeBundle();
    m_root.makeSources();
    m_launcher.expectLaunch();
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(launched().executable, QStringLiteral("/usr/bin/env"));
    EXPECT_EQ(launched().arguments, QStringList({QStringLiteral("node"), QStringLiteral("dist/observer.mjs")}));
    EXPECT_EQ(launched().workingDirectory, m_root.path());
    EXPECT_TRUE(m_helper.isRunning());
}

TEST_F(Helper, sourceRoot_runsTheSourcesThroughTheirLoader)
{
    m_root.makeSources();
    m_launcher.expectLaunch();
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(launched().arguments,
              QStringList({QStringLiteral("node"), QStringLiteral("node_modules/tsx/dist/cli.mjs"),
                           QStringLiteral("apps/mac-observer/src/index.ts")}));
}

TEST_F(Helper, privateNode_isRunDirectlyAndPathIsLeftAlone)
{
    m_root.makeBundle();
    m_root.writeProgram(QStringLiteral("bin/node"), "#!/bin/sh\n");
    const Variable path("PATH", "/somewhere/without/node");
    m_launcher.expectLaunch();
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(launched().executable, m_root.path(QStringLiteral("bin/node")));
    EXPECT_EQ(launched().arguments, QStringList{QStringLiteral("dist/observer.mjs")});
    EXPECT_EQ(variable("PATH"), QStringLiteral("/somewhere/without/node"));
}

TEST_F(Helper, privateNodeThatIsNotExecutable_isPassedOver)
{
    m_root.makeBundle();
    m_root.write(QStringLiteral("bin/node"), "");
    m_launcher.expectLaunch();
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(launched().executable, QStringLiteral("/usr/bin/env"));
}

TEST_F(Helper, ownPath_isExtendedByWherePackageManagersInstall)
{
    m_root.makeBundle();
    const ObserverRoot elsewhere;
    elsewhere.writeProgram(QStringLiteral("node"), "");
    const Variable path("PATH", "/nowhere:" + elsewhere.path().toLocal8Bit());
    m_launcher.expectLaunch();
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(variable("PATH"),
              QStringLiteral("/nowhere:") + elsewhere.path() + QStringLiteral(":/opt/homebrew/bin:/usr/local/bin"));
}

TEST_F(Helper, noPathAtAll_isThatOfTheSystem)
{
    m_root.makeBundle();
    const Variable path("PATH", QByteArray());
    m_launcher.expectLaunch();
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(variable("PATH"), QStringLiteral("/usr/bin:/bin:/opt/homebrew/bin:/usr/local/bin"));
}

TEST_F(Helper, noNodeAnywhere_failsByNameAndLaunchesNothing)
{
    m_root.makeBundle();
    const ObserverRoot elsewhere;
    elsewhere.write(QStringLiteral("node"), "not executable");
    const Variable path("PATH", elsewhere.path().toLocal8Bit());
    const auto started = start();
    ASSERT_FALSE(started.has_value());
    EXPECT_EQ(started.error(), faultError(Fault::NoSuchProgram, QStringLiteral("node")));
    EXPECT_FALSE(m_helper.isRunning());
}

TEST_F(Helper, environment_isOursWithParentTokenAndWithoutSecrets)
{
    m_root.makeBundle();
    const Variable own("OSTREL_TEST_OWN", "kept");
    const Variable ffmpeg("FFMPEG_PATH", QByteArray());
    m_launcher.expectLaunch();
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(variable("OSTREL_TEST_OWN"), QStringLiteral("kept"));
    EXPECT_EQ(variable("OSTREL_PARENT_PID"), QString::number(QCoreApplication::applicationPid()));
    EXPECT_EQ(variable("OSTREL_LOCAL_API_TOKEN"), QStringLiteral("local-token"));
    EXPECT_FALSE(launched().environment.contains(QStringLiteral("FFMPEG_PATH")));
    const QString handedOver = launched().environment.toStringList().join(u'\n') + launched().arguments.join(u'\n');
    EXPECT_FALSE(handedOver.contains(QStringLiteral("-secret")));
    EXPECT_FALSE(launched().arguments.join(u' ').contains(QStringLiteral("local-token")));
}

TEST_F(Helper, secrets_areOneLineOfJsonOnStandardInput)
{
    m_root.makeBundle();
    m_launcher.expectLaunch();
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(launched().standardInput, QByteArray("{\"analysisApiToken\":\"analysis-secret\","
                                                   "\"byokGoogleVertexApiKey\":\"vertex-secret\"}\n"));
    EXPECT_EQ((ObserverSecrets{QStringLiteral("a\nb"), QStringLiteral("\"")}.toLine()),
              QByteArray("{\"analysisApiToken\":\"a\\nb\",\"byokGoogleVertexApiKey\":\"\\\"\"}\n"));
}

TEST_F(Helper, bundledFfmpeg_isNamedOnlyWhenItIsExecutable)
{
    m_root.makeBundle();
    const Variable ffmpeg("FFMPEG_PATH", "/usr/bin/own-ffmpeg");
    m_root.write(QStringLiteral("bin/ffmpeg"), "");
    m_launcher.allowLaunches();
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(variable("FFMPEG_PATH"), QStringLiteral("/usr/bin/own-ffmpeg"));
    m_helper.stop();
    m_root.writeProgram(QStringLiteral("bin/ffmpeg"), "");
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(variable("FFMPEG_PATH"), m_root.path(QStringLiteral("bin/ffmpeg")));
}

TEST_F(Helper, rootThatHoldsNothing_failsThereAndNamesWhatIsMissing)
{
    const auto started = start();
    ASSERT_FALSE(started.has_value());
    EXPECT_EQ(started.error(),
              faultError(Fault::NoSuchFile, m_root.path(QStringLiteral("node_modules/tsx/dist/cli.mjs"))));
    const auto gone = m_helper.start(QStringLiteral("/no/such/root"), QStringLiteral("t"), secrets);
    EXPECT_EQ(gone.error(), faultError(Fault::NoSuchFile, QStringLiteral("/no/such/root")));
}

TEST_F(Helper, launchFails_errorIsReportedAndTheNextStartTriesAgain)
{
    m_root.makeBundle();
    const Error failure = faultError(Fault::ProgramFailedToStart, QStringLiteral("node"));
    m_launcher.expectFailure(failure);
    const auto started = start();
    ASSERT_FALSE(started.has_value());
    EXPECT_EQ(started.error(), failure);
    EXPECT_FALSE(m_helper.isRunning());
    m_launcher.expectLaunch();
    EXPECT_TRUE(start().has_value());
}

TEST_F(Helper, startWhileTheChildRuns_leavesChildAndLogUntouched)
{
    m_root.makeBundle();
    m_launcher.expectLaunch();
    ASSERT_TRUE(start().has_value());
    ASSERT_TRUE(writeFileAtomically(HelperProcess::logFile(), "output").has_value());
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(m_launcher.children().size(), 1);
    EXPECT_TRUE(m_launcher.children().first()->isHeld);
    EXPECT_EQ(readFile(HelperProcess::logFile()), QByteArray("output"));
}

TEST_F(Helper, childEndedByItself_isStartedAnewWithAFreshLog)
{
    m_root.makeBundle();
    m_launcher.allowLaunches();
    ASSERT_TRUE(start().has_value());
    m_launcher.children().first()->running = false;
    EXPECT_FALSE(m_helper.isRunning());
    ASSERT_TRUE(writeFileAtomically(HelperProcess::logFile(), "old output").has_value());
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(m_launcher.children().size(), 2);
    EXPECT_FALSE(m_launcher.children().first()->isHeld);
    EXPECT_EQ(readFile(HelperProcess::logFile()), QByteArray());
}

TEST_F(Helper, stop_asksARunningChildToEndAndForgetsIt)
{
    m_root.makeBundle();
    m_launcher.expectLaunch();
    ASSERT_TRUE(start().has_value());
    m_helper.stop();
    EXPECT_EQ(m_launcher.children().first()->terminateCount, 1);
    EXPECT_FALSE(m_launcher.children().first()->isHeld);
    EXPECT_FALSE(m_helper.isRunning());
    m_helper.stop();
    EXPECT_EQ(m_launcher.children().first()->terminateCount, 1);
}

TEST_F(Helper, stopOfAChildThatHasEnded_sendsItNothing)
{
    m_root.makeBundle();
    m_launcher.expectLaunch();
    ASSERT_TRUE(start().has_value());
    m_launcher.children().first()->running = false;
    m_helper.stop();
    EXPECT_EQ(m_launcher.children().first()->terminateCount, 0);
    EXPECT_FALSE(m_launcher.children().first()->isHeld);
}

/// How many descriptors of ours lead to the log.
int openLogCount()
{
    int count = 0;
    for (const QFileInfo &link : QDir(QStringLiteral("/proc/self/fd")).entryInfoList(QDir::System | QDir::Files))
        count += link.symLinkTarget().endsWith(QStringLiteral("/helper.log")) ? 1 : 0;
    return count;
}

TEST_F(Helper, log_isPrivateHandedToTheChildAndClosedAfterStop)
{
    m_root.makeBundle();
    m_launcher.expectLaunch();
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(HelperProcess::logFile(), m_home.path(QStringLiteral(".ostrel/helper.log")));
    struct stat file{}, folder{}, handed{};
    ASSERT_EQ(::stat(qPrintable(HelperProcess::logFile()), &file), 0);
    ASSERT_EQ(::stat(qPrintable(m_home.path(QStringLiteral(".ostrel"))), &folder), 0);
    EXPECT_EQ(file.st_mode & 0777, 0600U);
    EXPECT_EQ(folder.st_mode & 0777, 0700U);
    ASSERT_EQ(::fstat(launched().logDescriptor, &handed), 0);
    EXPECT_EQ(handed.st_ino, file.st_ino);
    EXPECT_EQ(openLogCount(), 1);
    m_helper.stop();
    EXPECT_EQ(openLogCount(), 0);
}

TEST_F(Helper, logThatCannotBeMade_childRunsWithoutOne)
{
    m_root.makeBundle();
    ASSERT_TRUE(QDir().mkpath(HelperProcess::logFile() + QStringLiteral("/folder")));
    m_launcher.expectLaunch();
    ASSERT_TRUE(start().has_value());
    EXPECT_EQ(launched().logDescriptor, -1);
}

} // namespace
