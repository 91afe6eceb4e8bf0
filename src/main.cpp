#include "app/CommandLine.h"
#include "model/SystemSettingsOpener.h"
#include "observer/QProcessLauncher.h"
#include "platform/defaults/QSettingsUserDefaults.h"
#include "platform/secretfile/FileSecretStore.h"
#include "platform/session/SessionPlatform.h"

#include <QCoreApplication>

using namespace ostrel;

/// The one place that knows the concrete platform.
int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("ostrel"));
    QCoreApplication::setApplicationVersion(QStringLiteral(OSTREL_VERSION));

    const SessionPlatform session = makeSessionPlatform(QProcessEnvironment::systemEnvironment());
    FileSecretStore secrets;
    QSettingsUserDefaults userDefaults;
    QProcessLauncher processes;
    NullSystemSettingsOpener settingsOpener;
    const Platform platform{.displays = *session.displays,
                            .screenCaptureAccess = *session.screenCaptureAccess,
                            .foreground = *session.foreground,
                            .contextAccessibility = *session.contextAccessibility,
                            .permissionAccessibility = *session.permissionAccessibility,
                            .secrets = secrets,
                            .userDefaults = userDefaults,
                            .settingsOpener = settingsOpener,
                            .processes = processes};
    return printResult(runCommandLine(QCoreApplication::arguments(), platform));
}
