#include "support/PrivateEnvironment.h"

#include "support/TestProcess.h"

#include <QDir>
#include <QFile>

#include <sys/stat.h>

namespace ostrel {

QProcessEnvironment privateEnvironment(const QString &folder)
{
    const QDir parent(folder);
    QProcessEnvironment environment;
    const auto make = [&](const char *name) {
        if (!parent.mkpath(QLatin1String(name)))
            failTest(QStringLiteral("The folder %1 could not be made.").arg(parent.filePath(QLatin1String(name))));
        return parent.filePath(QLatin1String(name));
    };
    environment.insert(QStringLiteral("PATH"), qEnvironmentVariable("PATH"));
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    environment.insert(QStringLiteral("HOME"), make("home"));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), make("config"));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), make("data"));
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), make("cache"));
    const QString run = make("run");
    ::chmod(QFile::encodeName(run).constData(), S_IRWXU);
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), run);
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("disabled:"));
    // The machine's own, where it has one, is nobody's business: its sleep would be ours.
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), QStringLiteral("disabled:"));
    environment.insert(QStringLiteral("GSETTINGS_BACKEND"), QStringLiteral("memory"));
    return environment;
}

} // namespace ostrel
