#include "support/SessionBus.h"

#include <QDir>
#include <QFile>

#include <sys/stat.h>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

/// An ordinary bus, but for the folders of services that it may start: it starts none.
const QByteArray configuration = R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:runtime=yes</listen> <!-- must be there; the command line names another -->
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

} // namespace

MessageBus::MessageBus(const char *variable, std::initializer_list<const char *> entered)
{
    for (const char *name : {"home", "run"})
        QDir(m_directory.path()).mkdir(QLatin1String(name));
    ::chmod(QFile::encodeName(path(QStringLiteral("run"))).constData(), S_IRWXU);
    m_environment.insert(QStringLiteral("PATH"), qEnvironmentVariable("PATH"));
    m_environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    m_environment.insert(QStringLiteral("HOME"), path(QStringLiteral("home")));
    m_environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), path(QStringLiteral("run")));
    m_environment.insert(QLatin1String(variable), QString::fromLatin1(address()));
    m_environment.insert(QStringLiteral("GSETTINGS_BACKEND"), QStringLiteral("memory"));

    QFile file(path(QStringLiteral("bus.conf")));
    if (!file.open(QIODevice::WriteOnly) || file.write(configuration) != configuration.size())
        failTest(QStringLiteral("\"%1\" could not be written").arg(file.fileName()));
    file.close();
    for (const char *name : entered)
        m_entered.push_back(
            std::make_unique<ScopedVariable>(name, m_environment.value(QLatin1String(name)).toLocal8Bit()));
    start();
}

QByteArray MessageBus::address() const
{
    return QStringLiteral("unix:path=%1").arg(path(QStringLiteral("run/bus"))).toLatin1();
}

void MessageBus::restart()
{
    m_process.reset();
    start();
}

void MessageBus::start()
{
    m_process = std::make_unique<TestProcess>(TestProcess::Command{
        .program = QStringLiteral("dbus-daemon"),
        .arguments = {QStringLiteral("--config-file=") + path(QStringLiteral("bus.conf")), QStringLiteral("--nofork"),
                      QStringLiteral("--nopidfile"), QStringLiteral("--address=%1").arg(QString::fromLatin1(address())),
                      QStringLiteral("--print-address=1")},
        .environment = m_environment,
        .logFile = path(QStringLiteral("bus.log")),
    });
    m_process->readLine(10s);
}

} // namespace ostrel
