#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/FreePort.h"
#include "support/Printers.h"

#include <QElapsedTimer>
#include <QJsonObject>

#include <gmock/gmock.h>

#include <csignal>

#include <sys/stat.h>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

QStringList setWords(const char *key, const QString &value)
{
    return {QStringLiteral("settings"), QStringLiteral("set"), QLatin1String(key), value};
}

/// A desktop with a bus, on which something can be recorded.
class SettingsEndToEnd : public testing::Test
{
protected:
    SettingsEndToEnd() { m_ostrel.writeSettings(); }

    void startRecording()
    {
        m_ostrel.start({QStringLiteral("record")});
        m_ostrel.waitForMessage("Recording into");
    }
    OstrelProgram::Outcome set(const char *key, const QString &value) { return m_ostrel.run(setWords(key, value)); }
    QJsonValue shown(const char *key)
    {
        return m_ostrel.json({QStringLiteral("settings"), QStringLiteral("show")}).object().value(QLatin1String(key));
    }
    QByteArray file() const
    {
        return readFile(m_ostrel.path(QStringLiteral(".ostrel/settings.json"))).value_or(QByteArray());
    }
    OstrelProgram::Outcome setFromInput(const char *key, const QByteArray &input)
    {
        const QString inputFile = m_desktop.path(QStringLiteral("input"));
        EXPECT_TRUE(writeFileAtomically(inputFile, input).has_value());
        QProcess process;
        process.setProcessEnvironment(m_ostrel.environment());
        process.setStandardInputFile(inputFile);
        process.start(OstrelProgram::file(), setWords(key, QStringLiteral("-")));
        EXPECT_TRUE(process.waitForFinished());
        return {.status = process.exitCode(),
                .output = process.readAllStandardOutput(),
                .messages = process.readAllStandardError()};
    }

    /// Runs a line of shell in which "$0" is the program.
    OstrelProgram::Outcome runByShell(const char *line)
    {
        QProcess process;
        process.setProcessEnvironment(m_ostrel.environment());
        process.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QLatin1String(line), OstrelProgram::file()});
        EXPECT_TRUE(process.waitForFinished());
        return {.status = process.exitCode(),
                .output = process.readAllStandardOutput(),
                .messages = process.readAllStandardError()};
    }

    VirtualDesktop m_desktop{{.size = {1280, 800}, .windowManager = true}};
    OstrelProgram m_ostrel{m_desktop.environment()};
};

TEST_F(SettingsEndToEnd, withoutARecorder_whatWasSetIsShown)
{
    EXPECT_EQ(set("frameFps", QStringLiteral("1.25")).status, 0);
    EXPECT_EQ(shown("frameFps").toDouble(), 1.25);
    EXPECT_EQ(set("saveRawInputs", QStringLiteral("true")).status, 0);
    EXPECT_EQ(shown("saveRawInputs"), QJsonValue(true));
    EXPECT_EQ(setFromInput("byokGoogleVertexApiKey", "geheim\n").status, 0);
    EXPECT_EQ(shown("byokGoogleVertexApiKey"), QStringLiteral("<redacted>"));
    EXPECT_EQ(setFromInput("byokGoogleVertexApiKey", {}).status, 0);
    EXPECT_EQ(shown("byokGoogleVertexApiKey"), QString());
    EXPECT_EQ(shown("frameFps").toDouble(), 1.25) << "the others stay";
}

TEST_F(SettingsEndToEnd, wrongUse_isStatus2AndTheFileIsAsItWas)
{
    const QByteArray before = file();
    for (const auto &[key, value] :
         {std::pair("localPort", "99999"), std::pair("frameFps", "0"), std::pair("nonsense", "1"),
          std::pair("archiveEnabled", "true"), std::pair("byokGoogleVertexApiKey", "geheim")}) {
        const auto outcome = set(key, QLatin1String(value));
        EXPECT_EQ(outcome.status, 2) << key;
        EXPECT_EQ(outcome.output, QByteArray());
        EXPECT_THAT(outcome.messages.toStdString(), AllOf(HasSubstr(key), Not(HasSubstr("geheim"))));
    }
    EXPECT_EQ(file(), before);
}

TEST_F(SettingsEndToEnd, argumentThatIsNoUtf8_isStatus2AndTheFileIsAsItWas)
{
    const QByteArray before = file();
    const auto outcome = runByShell(R"sh("$0" settings set model "$(printf 'a\377')")sh");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("The value of model is not valid UTF-8"));
    EXPECT_EQ(file(), before);
}

TEST_F(SettingsEndToEnd, closedStandardDescriptors_areNeitherAValueNorMixedWithFiles)
{
    EXPECT_EQ(setFromInput("byokGoogleVertexApiKey", "geheim\n").status, 0);
    const auto outcome = runByShell(R"("$0" settings set byokGoogleVertexApiKey - <&-)");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("standard input"));
    EXPECT_EQ(shown("byokGoogleVertexApiKey"), QStringLiteral("<redacted>")) << "it is not removed";
    EXPECT_EQ(runByShell(R"("$0" settings set localPort 9001 <&- >&- 2>&-)").status, 0);
    EXPECT_EQ(shown("localPort").toInt(), 9001);
    EXPECT_EQ(runByShell(R"("$0" settings show >&-)").status, 1);
}

TEST_F(SettingsEndToEnd, settingsFileThatIsAPipe_holdsNothingUp)
{
    const QString settings = m_ostrel.path(QStringLiteral(".ostrel/settings.json"));
    ASSERT_TRUE(QFile::remove(settings));
    ASSERT_EQ(::mkfifo(QFile::encodeName(settings).constData(), 0600), 0);
    const auto show = m_ostrel.run({QStringLiteral("settings"), QStringLiteral("show")});
    EXPECT_EQ(show.status, 0);
    EXPECT_THAT(show.messages.toStdString(), HasSubstr("no regular file"));
    const auto outcome = set("localPort", QStringLiteral("9001"));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("no regular file"));
    EXPECT_THAT(m_ostrel.run({QStringLiteral("doctor")}).output.toStdString(),
                HasSubstr("mv ~/.ostrel/settings.json ~/.ostrel/settings.json.aside"));
}

TEST_F(SettingsEndToEnd, whileRecording_theObserverWritesWhereItWasTold)
{
    m_desktop.startTerminal(QStringLiteral("Release checklist"));
    startRecording();
    const auto outcome = set("outputDirectory", QStringLiteral("~/elsewhere"));
    EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
    EXPECT_EQ(outcome.messages, QByteArray("outputDirectory is saved.\n"));
    EXPECT_EQ(shown("outputDirectory"), QStringLiteral("~/elsewhere"));
    for (int i = 0; i < 13; ++i) {
        m_desktop.type(QStringLiteral("word "));
        QThread::sleep(1); // the program under test records in real time; nothing is awaited by this
    }
    m_ostrel.terminate();
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);
    EXPECT_EQ(m_ostrel.journal(), QByteArray()) << "nothing in the former folder";
    const QDir folder(m_ostrel.path(QStringLiteral("elsewhere")));
    const QStringList days = folder.entryList({QStringLiteral("*.md")});
    ASSERT_FALSE(days.isEmpty());
    EXPECT_THAT(readFile(folder.filePath(days[0])).value().toStdString(), HasSubstr("XTerm"));
    EXPECT_EQ(shown("outputDirectory"), QStringLiteral("~/elsewhere")) << "still";
    m_ostrel.expectNoObserverStays();
}

TEST_F(SettingsEndToEnd, whileRecording_manyChangesAtOnceLoseNothing)
{
    startRecording();
    const std::vector<std::pair<const char *, const char *>> changes{
        {"model", "m"}, {"thinkingLevel", "HIGH"}, {"journalTailSize", "9"}, {"chunkOverlapMs", "7"}};
    std::vector<std::unique_ptr<QProcess>> commands;
    for (const auto &[key, value] : changes) {
        commands.push_back(std::make_unique<QProcess>());
        commands.back()->setProcessEnvironment(m_ostrel.environment());
        commands.back()->start(OstrelProgram::file(), setWords(key, QLatin1String(value)));
    }
    for (const auto &command : commands) {
        ASSERT_TRUE(command->waitForFinished());
        EXPECT_EQ(command->exitCode(), 0) << command->readAllStandardError().toStdString();
    }
    EXPECT_EQ(shown("model"), QStringLiteral("m"));
    EXPECT_EQ(shown("thinkingLevel"), QStringLiteral("HIGH"));
    EXPECT_EQ(shown("journalTailSize").toInteger(), 9);
    EXPECT_EQ(shown("chunkOverlapMs").toInteger(), 7);
    m_ostrel.terminate();
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);
}

TEST_F(SettingsEndToEnd, whileRecording_frameRateIsForTheNextOneAndASecretIsTaken)
{
    startRecording();
    const auto outcome = set("frameFps", QStringLiteral("1"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("applies from the next one on"));
    EXPECT_EQ(setFromInput("byokGoogleVertexApiKey", "geheim\n").status, 0);
    EXPECT_EQ(shown("byokGoogleVertexApiKey"), QStringLiteral("<redacted>"));
    EXPECT_THAT(file().toStdString(), Not(HasSubstr("geheim")));
    m_ostrel.terminate();
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);
}

TEST_F(SettingsEndToEnd, whileRecording_anotherPortEndsTheRecordingWhole)
{
    m_desktop.startTerminal(QStringLiteral("Release checklist"));
    startRecording();
    QThread::sleep(4); // something to record; nothing is awaited by this
    const int port = freePort();
    const auto outcome = set("localPort", QString::number(port));
    EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("ends the recording under way"));
    const auto recording = m_ostrel.waitForEnd();
    EXPECT_EQ(recording.status, 0);
    EXPECT_THAT(recording.messages.toStdString(),
                AllOf(HasSubstr("port was changed to " + std::to_string(port)), HasSubstr("callbacks=")));
    EXPECT_EQ(m_ostrel.spooled(), QStringList()) << "all of it is analysed";
    EXPECT_EQ(shown("localPort").toInteger(), port);
    m_ostrel.expectNoObserverStays();

    m_ostrel.start({QStringLiteral("record"), QStringLiteral("--seconds"), QStringLiteral("1")});
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0) << "on the new one";
}

TEST_F(SettingsEndToEnd, recorderOutOfReach_isNamedAndTheFileIsAsItWas)
{
    m_ostrel.environment().remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
    m_ostrel.environment().remove(QStringLiteral("XDG_RUNTIME_DIR"));
    startRecording();
    const QByteArray before = file();
    const auto outcome = set("frameFps", QStringLiteral("1"));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), AllOf(HasSubstr("Process " + std::to_string(m_ostrel.processId())),
                                                      HasSubstr("Without a session bus"), HasSubstr("`kill ")));
    EXPECT_EQ(file(), before);
    m_ostrel.terminate();
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);
}

TEST_F(SettingsEndToEnd, recorderThatHangs_isGivenUpAfterFiveSeconds)
{
    startRecording();
    m_ostrel.signal(SIGSTOP);
    QElapsedTimer elapsed;
    elapsed.start();
    const auto outcome = set("frameFps", QStringLiteral("1"));
    EXPECT_LT(elapsed.elapsed(), 15'000);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("has not answered in time"));
    m_ostrel.signal(SIGCONT);
    m_ostrel.terminate();
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);
}

} // namespace
