#include "base/Paths.h"
#include "observer/HelperProcess.h"
#include "observer/QProcessLauncher.h"
#include "support/Printers.h"
#include "support/RunTask.h"

#include "Fixtures.h"
#include "ObserverRoot.h"
#include "support/TestHome.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QStandardPaths>

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>

using namespace ostrel;

namespace {

const ObserverSecrets secrets{QStringLiteral("analysis-secret"), QStringLiteral("vertex-secret")};

/// A real node child by the real launcher.
class ObserverChild : public testing::Test
{
protected:
    ObserverChild() { qputenv("OSTREL_TEST_REPORTS", m_root.path().toLocal8Bit()); }
    ~ObserverChild() override
    {
        m_helper.stop();
        pumpUntil([this] { return !m_root.hasNote("started") || m_root.hasNote("ended"); });
        qunsetenv("OSTREL_TEST_REPORTS");
    }

    void start()
    {
        const auto started = m_helper.start(m_root.path(), QStringLiteral("local-token"), secrets);
        ASSERT_TRUE(started.has_value()) << started.error().localizedDescription.toStdString();
        ASSERT_TRUE(pumpUntil([this] { return m_root.hasNote("started"); }));
    }
    QJsonObject facts() const { return readFixture(m_root.path(QStringLiteral("facts.json"))); }
    QStringList commandLine() const
    {
        QStringList words;
        for (const auto &word : facts()[QStringLiteral("commandLine")].toArray())
            words.append(word.toString());
        return words;
    }
    QString variable(const char *name) const
    {
        return facts()[QStringLiteral("environment")].toObject()[QLatin1String(name)].toString();
    }
    pid_t pid() const { return pid_t(facts()[QStringLiteral("pid")].toInt()); }

    TestHome m_home;
    ObserverRoot m_root;
    QProcessLauncher m_launcher;
    HelperProcess m_helper{m_launcher};
};

TEST_F(ObserverChild, bundle_runsInItsFolderWithTheAgreedEnvironment)
{
    m_root.makeBundle();
    start();
    EXPECT_EQ(commandLine(), QStringList({QStringLiteral("node"), QStringLiteral("dist/observer.mjs")}));
    EXPECT_EQ(facts()[QStringLiteral("folder")].toString(), QFileInfo(m_root.path()).canonicalFilePath());
    EXPECT_EQ(variable("OSTREL_PARENT_PID"), QString::number(QCoreApplication::applicationPid()));
    EXPECT_EQ(variable("OSTREL_LOCAL_API_TOKEN"), QStringLiteral("local-token"));
    EXPECT_EQ(variable("HOME"), m_home.path());
    EXPECT_EQ(variable("PATH"), qEnvironmentVariable("PATH") + QStringLiteral(":/opt/homebrew/bin:/usr/local/bin"));
}

TEST_F(ObserverChild, sources_runThroughTheirLoader)
{
    m_root.makeSources();
    start();
    EXPECT_EQ(commandLine(), QStringList({QStringLiteral("node"), QStringLiteral("node_modules/tsx/dist/cli.mjs"),
                                          QStringLiteral("apps/mac-observer/src/index.ts")}));
}

TEST_F(ObserverChild, privateNode_isTheOneThatRuns)
{
    m_root.makeBundle();
    const QByteArray node = QStandardPaths::findExecutable(QStringLiteral("node")).toLocal8Bit();
    m_root.writeProgram(QStringLiteral("bin/node"), "#!/bin/sh\nOSTREL_TEST_PRIVATE=yes exec '" + node + "' \"$@\"\n");
    m_root.writeProgram(QStringLiteral("bin/ffmpeg"), "#!/bin/sh\n");
    start();
    EXPECT_EQ(variable("OSTREL_TEST_PRIVATE"), QStringLiteral("yes"));
    EXPECT_EQ(variable("PATH"), qEnvironmentVariable("PATH"));
    EXPECT_EQ(variable("FFMPEG_PATH"), m_root.path(QStringLiteral("bin/ffmpeg")));
}

TEST_F(ObserverChild, secrets_comeDownStandardInputWhichStaysOpen)
{
    m_root.makeBundle();
    start();
    const char *line = "input {\"analysisApiToken\":\"analysis-secret\",\"byokGoogleVertexApiKey\":\"vertex-secret\"}";
    EXPECT_TRUE(pumpUntil([&] { return m_root.hasNote(line); }));
    EXPECT_FALSE(m_root.hasNote("end of input"));
    const QByteArray environment = readFile(QStringLiteral("/proc/%1/environ").arg(pid())).value();
    EXPECT_FALSE(environment.contains("-secret"));
}

TEST_F(ObserverChild, bothOutputs_areInTheLog)
{
    m_root.makeBundle();
    start();
    EXPECT_TRUE(pumpUntil([] {
        const QByteArray log = readFile(HelperProcess::logFile()).value();
        return log.contains("to standard output\n") && log.contains("to standard error\n");
    }));
}

TEST_F(ObserverChild, startWhileItRuns_leavesItAndItsLogAlone)
{
    m_root.makeBundle();
    start();
    const QByteArray log = readFile(HelperProcess::logFile()).value();
    ASSERT_TRUE(m_helper.start(m_root.path(), QStringLiteral("other"), secrets).has_value());
    EXPECT_EQ(readFile(HelperProcess::logFile()), log);
    EXPECT_EQ(m_root.notes().count("started"), 1);
    EXPECT_EQ(::kill(pid(), 0), 0);
}

TEST_F(ObserverChild, stop_sendsSigtermDoesNotWaitAndTheChildIsReaped)
{
    m_root.makeBundle();
    start();
    const pid_t child = pid();
    m_helper.stop();
    EXPECT_FALSE(m_helper.isRunning());
    EXPECT_EQ(::kill(child, 0), 0) << "it has its time to finish";
    EXPECT_TRUE(pumpUntil([this] { return m_root.hasNote("ended"); }));
    EXPECT_TRUE(m_root.hasNote("terminated"));
    EXPECT_TRUE(pumpUntil([child] { return ::kill(child, 0) != 0; })) << "a zombie would still answer";
}

TEST_F(ObserverChild, restart_theOldChildFinishesBesideTheNewOneWithALogOfItsOwn)
{
    m_root.makeBundle();
    start();
    m_helper.stop();
    ASSERT_TRUE(m_helper.start(m_root.path(), QStringLiteral("local-token"), secrets).has_value());
    EXPECT_TRUE(pumpUntil([this] { return m_root.notes().count("started") == 2 && m_root.hasNote("ended"); }));
    EXPECT_TRUE(m_helper.isRunning());
    EXPECT_EQ(readFile(HelperProcess::logFile()).value().count("to standard output"), 1);
    m_helper.stop();
    EXPECT_TRUE(pumpUntil([this] { return m_root.notes().count("ended") == 2; }));
}

TEST_F(ObserverChild, childThatDies_isNoticed)
{
    m_root.makeBundle();
    m_root.write(QStringLiteral("notes"), "started\nended\n");
    ASSERT_TRUE(m_helper.start(m_root.path(), QStringLiteral("t"), secrets).has_value());
    ASSERT_TRUE(pumpUntil([this] { return m_root.notes().count("started") == 2; }));
    ASSERT_EQ(::kill(pid(), SIGKILL), 0);
    EXPECT_TRUE(pumpUntil([this] { return !m_helper.isRunning(); }));
}

TEST_F(ObserverChild, descriptorThatSomebodyForgotToClose_isNotInherited)
{
    m_root.makeBundle();
    const int forgotten = ::open(qPrintable(m_root.path(QStringLiteral("forgotten"))), O_CREAT | O_RDWR, 0600);
    ASSERT_GE(forgotten, 0);
    start();
    ::close(forgotten);
    int logCount = 0;
    for (const auto &link : facts()[QStringLiteral("descriptors")].toArray()) {
        EXPECT_FALSE(link.toString().endsWith(QStringLiteral("/forgotten")));
        logCount += link.toString().endsWith(QStringLiteral("/helper.log")) ? 1 : 0;
    }
    EXPECT_EQ(logCount, 2) << "standard output and standard error, nothing else";
}

/// Runs a program that starts an observer and exits, in one of its ways. @return its wait status
int runHost(const ObserverRoot &root, const char *way)
{
    const QByteArray program = QFile::encodeName(QCoreApplication::applicationDirPath()) + "/observer_helper_host";
    const QByteArray folder = QFile::encodeName(root.path());
    return inForkedChild([&] {
        ::execl(program.constData(), program.constData(), folder.constData(), way, nullptr);
        return 127;
    });
}

TEST_F(ObserverChild, ourOrderlyExit_leavesTheChildToFinishByItself)
{
    m_root.makeBundle();
    ASSERT_EQ(runHost(m_root, "leave"), 0);
    EXPECT_TRUE(pumpUntil([this] { return m_root.hasNote("ended"); })) << "it was killed";
    EXPECT_TRUE(m_root.hasNote("end of input"));
    EXPECT_FALSE(m_root.hasNote("terminated"));
}

TEST_F(ObserverChild, stopRightBeforeOurExit_leavesTheChildToFinishByItself)
{
    m_root.makeBundle();
    ASSERT_EQ(runHost(m_root, "stop"), 0);
    EXPECT_TRUE(pumpUntil([this] { return m_root.hasNote("ended"); })) << "it was killed";
    EXPECT_TRUE(m_root.hasNote("terminated"));
}

TEST_F(ObserverChild, ourSuddenDeath_isTheEndOfTheChildsInput)
{
    m_root.makeBundle();
    const int status = runHost(m_root, "die");
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_TRUE(pumpUntil([this] { return m_root.hasNote("ended"); }));
    EXPECT_TRUE(m_root.hasNote("end of input"));
}

} // namespace
