#include "observer/HelperProcess.h"

#include "base/Fault.h"
#include "base/Files.h"
#include "base/Paths.h"
#include "observer/JsonRecord.h"
#include "observer/NodeSearch.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <fcntl.h>
#include <unistd.h>

namespace ostrel {

namespace {

/// What node runs, relative to the observer's folder: the bundle, or the sources through their loader.
QStringList scriptList(const QDir &root)
{
    const QString bundle = QStringLiteral("dist/observer.mjs");
    if (root.exists(bundle))
        return {bundle};
    return {QStringLiteral("node_modules/tsx/dist/cli.mjs"), QStringLiteral("apps/mac-observer/src/index.ts")};
}

/// Says what is missing before a start that could only fail: node would say it in the log alone.
Result<> checkFiles(const QDir &root, const QStringList &scripts)
{
    if (!root.exists())
        return std::unexpected(faultError(Fault::NoSuchFile, root.path()));
    for (const QString &script : scripts) {
        if (!QFileInfo(root, script).isFile())
            return std::unexpected(faultError(Fault::NoSuchFile, root.filePath(script)));
    }
    return {};
}

Result<ProcessDescription> describe(const QDir &root, const QString &localAPIToken, const ObserverSecrets &secrets)
{
    const QStringList scripts = scriptList(root);
    if (const Result<> complete = checkFiles(root, scripts); !complete)
        return std::unexpected(complete.error());

    ProcessDescription description{.executable = root.filePath(QStringLiteral("bin/node")),
                                   .arguments = scripts,
                                   .environment = QProcessEnvironment::systemEnvironment(),
                                   .workingDirectory = root.path(),
                                   .standardInput = secrets.toLine()};
    QProcessEnvironment &environment = description.environment;
    if (!NodeSearch::privateNode(root)) {
        // `env` itself would start all right and find nothing.
        if (!NodeSearch::find(root, environment))
            return std::unexpected(faultError(Fault::NoSuchProgram, QStringLiteral("node")));
        description.executable = QStringLiteral("/usr/bin/env");
        description.arguments.prepend(QStringLiteral("node"));
        environment.insert(QStringLiteral("PATH"), NodeSearch::path(environment));
    }
    environment.insert(QStringLiteral("OSTREL_PARENT_PID"), QString::number(QCoreApplication::applicationPid()));
    environment.insert(QStringLiteral("OSTREL_LOCAL_API_TOKEN"), localAPIToken);
    const QString ffmpeg = root.filePath(QStringLiteral("bin/ffmpeg"));
    if (isExecutableFile(ffmpeg))
        environment.insert(QStringLiteral("FFMPEG_PATH"), ffmpeg);
    return description;
}

/// A new, empty log; nothing when it can't be had, for a child without a log is better than none.
std::unique_ptr<QFile> newLog()
{
    makePrivateDirectory(stateDirectory());
    const QByteArray path = QFile::encodeName(HelperProcess::logFile());
    // A new file rather than the old one made empty: a predecessor that is still closing down writes to its own.
    ::unlink(path.constData());
    const int descriptor = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0)
        return nullptr;
    auto log = std::make_unique<QFile>();
    if (!log->open(descriptor, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle)) {
        ::close(descriptor);
        return nullptr;
    }
    return log;
}

} // namespace

QByteArray ObserverSecrets::toLine() const
{
    RecordWriter write;
    write("analysisApiToken", analysisApiToken);
    write("byokGoogleVertexApiKey", byokGoogleVertexApiKey);
    return write.finish() + '\n'; // a line break inside a secret is escaped
}

HelperProcess::HelperProcess(ProcessLauncher &launcher) : m_launcher(launcher) {}

HelperProcess::~HelperProcess() = default;

QString HelperProcess::logFile()
{
    return stateDirectory() + QLatin1String("/helper.log");
}

bool HelperProcess::isRunning() const
{
    return m_process && m_process->isRunning();
}

Result<> HelperProcess::start(const QString &repoRoot, const QString &localAPIToken, const ObserverSecrets &secrets)
{
    if (isRunning())
        return {};
    auto description = describe(QDir(repoRoot), localAPIToken, secrets);
    if (!description)
        return std::unexpected(description.error());

    auto log = newLog();
    description->logDescriptor = log ? log->handle() : -1;
    auto process = m_launcher.launch(*description);
    if (!process)
        return std::unexpected(process.error());
    m_process = *std::move(process);
    m_logHandle = std::move(log);
    return {};
}

void HelperProcess::stop()
{
    if (isRunning())
        m_process->terminate();
    m_process.reset();
    m_logHandle.reset();
}

} // namespace ostrel
