#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/FreePort.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <csignal>

namespace ostrel {

using namespace std::chrono_literals;

namespace {

constexpr int endTimeoutMs = 60'000;

QByteArray readProc(const QString &process, const char *name)
{
    QFile file(QStringLiteral("/proc/%1/%2").arg(process, QString::fromLatin1(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

OstrelProgram::OstrelProgram(QProcessEnvironment environment) : m_environment(std::move(environment)) {}

QString OstrelProgram::file()
{
    return QStringLiteral(OSTREL_BUILD_DIR "/bin/ostrel");
}

OstrelProgram::Outcome OstrelProgram::run(const QStringList &arguments) const
{
    QProcess process;
    process.setProcessEnvironment(m_environment);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(file(), arguments, QIODevice::ReadOnly);
    if (!process.waitForFinished(endTimeoutMs))
        failTest(QStringLiteral("ostrel %1 did not end").arg(arguments.join(QLatin1Char(' '))));
    return {.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            .output = process.readAllStandardOutput(),
            .messages = process.readAllStandardError()};
}

QJsonDocument OstrelProgram::json(const QStringList &arguments) const
{
    const Outcome outcome = run(arguments + QStringList(QStringLiteral("--json")));
    EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(outcome.output, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << outcome.output.toStdString();
    return document;
}

void OstrelProgram::start(const QStringList &arguments)
{
    launch(file(), arguments);
}

void OstrelProgram::startThrough(const QString &program, const QStringList &arguments)
{
    launch(program, QStringList(file()) + arguments);
}

void OstrelProgram::launch(const QString &program, const QStringList &arguments)
{
    m_messages.clear();
    m_process = std::make_unique<QProcess>();
    m_process->setProcessEnvironment(m_environment);
    m_process->start(program, arguments, QIODevice::ReadOnly);
    if (!m_process->waitForStarted())
        failTest(QStringLiteral("%1 could not be started").arg(program));
}

void OstrelProgram::waitForMessage(const QByteArray &text, int times)
{
    waitUntil(QStringLiteral("the message \"%1\"").arg(QString::fromUtf8(text)), 30s, [&] {
        m_process->waitForReadyRead(50);
        m_messages += m_process->readAllStandardError();
        return m_messages.count(text) >= times;
    });
}

void OstrelProgram::terminate()
{
    signal(SIGTERM);
}

void OstrelProgram::signal(int number)
{
    ::kill(pid_t(m_process->processId()), number);
}

qint64 OstrelProgram::processId() const
{
    return m_process->processId();
}

OstrelProgram::Outcome OstrelProgram::waitForEnd()
{
    if (m_process->state() != QProcess::NotRunning && !m_process->waitForFinished(endTimeoutMs))
        failTest(QStringLiteral("ostrel did not end; it said: %1").arg(QString::fromUtf8(m_messages)));
    m_messages += m_process->readAllStandardError();
    return {.status = m_process->exitStatus() == QProcess::NormalExit ? m_process->exitCode() : -1,
            .output = m_process->readAllStandardOutput(),
            .messages = m_messages};
}

void OstrelProgram::tellOfCapture()
{
    m_environment.insert(QStringLiteral("QT_LOGGING_RULES"),
                         QStringLiteral("com.tamsk.ostrel.ScreenCaptureRecorder.info=true"));
}

int OstrelProgram::framesHandedOver(const QByteArray &messages)
{
    static const QRegularExpression form(QStringLiteral("screen capture submitting frames=(\\d+)"));
    int sum = 0;
    for (const auto &match : form.globalMatch(QString::fromUtf8(messages)))
        sum += match.captured(1).toInt();
    return sum;
}

void OstrelProgram::writeSettings(const QByteArray &otherKeys, int port)
{
    const QByteArray portText = QByteArray::number(port != 0 ? port : freePort());
    const QByteArray comma = otherKeys.isEmpty() ? QByteArray() : QByteArray(", ");
    ASSERT_TRUE(writeFileAtomically(path(QStringLiteral(".ostrel/settings.json")),
                                    "{\"localPort\": " + portText + comma + otherKeys + "}")
                    .has_value());
}

QList<qint64> OstrelProgram::observers() const
{
    const QByteArray variable = "HOME=" + home().toLocal8Bit();
    QList<qint64> found;
    for (const QString &name : QDir(QStringLiteral("/proc")).entryList({QStringLiteral("[0-9]*")}, QDir::Dirs)) {
        if (readProc(name, "cmdline").contains("observer.mjs") &&
            readProc(name, "environ").split('\0').contains(variable))
            found.append(name.toLongLong());
    }
    return found;
}

void OstrelProgram::expectNoObserverStays() const
{
    waitUntil(QStringLiteral("the observer to end"), 15s, [this] { return observers().isEmpty(); });
}

QStringList OstrelProgram::spooled() const
{
    QStringList names;
    for (const QString &folder : {QStringLiteral("incoming"), QStringLiteral("pending")}) {
        const QDir directory(path(QStringLiteral(".ostrel/observer/") + folder));
        for (const QString &name : directory.entryList(QDir::AllEntries | QDir::NoDotAndDotDot))
            names.append(folder + QLatin1Char('/') + name);
    }
    return names;
}

QStringList OstrelProgram::analysedFrames() const
{
    QStringList frames;
    const QDir raw(path(QStringLiteral("raw")));
    for (const QString &chunk : raw.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        for (const QString &picture : QDir(raw.filePath(chunk)).entryList({QStringLiteral("*.jpg")}))
            frames.append(picture.chopped(4));
    }
    return frames;
}

QByteArray OstrelProgram::journal() const
{
    const QDir folder(path(QStringLiteral("ostrel/journal")));
    QByteArray text;
    for (const QString &name : folder.entryList({QStringLiteral("*.md")}))
        text += readFile(folder.filePath(name)).value_or(QByteArray());
    return text;
}

} // namespace ostrel
